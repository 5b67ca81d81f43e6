#include "kavo/kinematics/interface/kinematics_internal.h"

#include <utility>

#include "kavo/kinematics/sin_cos_internal.h"
#include "kavo/kinematics/step_internal.h"
#include "kavo/util/log_message.h"

namespace kavo {

namespace {

constexpr char kFile[] = "kinematics/interface/kinematics_internal";

class ProgramSweep : public FrameSweep {
 public:
  explicit ProgramSweep(kinematics::Kinematics::Plan plan)
      : plan_(std::move(plan)),
        coordinates_(plan_.steps.size()),
        motions_(plan_.steps.size()),
        cosines_(plan_.steps.size()),
        slots_(plan_.steps.size()),
        transforms_(plan_.frames.size()) {
    for (const auto& step : plan_.steps) {
      all_revolute_ = all_revolute_ && step.motion == kinematics::Kinematics::Motion::kRevolute;
    }
  }

  const std::vector<math::RigidTransform>& compute(const Eigen::VectorXd& q) override {
    const std::size_t num_steps = plan_.steps.size();
    for (std::size_t i = 0; i < num_steps; ++i) {
      coordinates_[i] = plan_.steps[i].value(q[plan_.steps[i].coordinate]);
    }
    kinematics::internal::SinCos(coordinates_.data(), motions_.data(), cosines_.data(), num_steps);
    if (!all_revolute_) {
      for (std::size_t i = 0; i < num_steps; ++i) {
        if (plan_.steps[i].motion == kinematics::Kinematics::Motion::kPrismatic) {
          motions_[i] = coordinates_[i];
        }
      }
    }
    kinematics::internal::RunPlan(plan_, motions_.data(), cosines_.data(), slots_.data(), transforms_.data());
    return transforms_;
  }

 private:
  kinematics::Kinematics::Plan plan_;
  bool all_revolute_ = true;
  // One entry for each step.
  std::vector<double> coordinates_;
  std::vector<double> motions_;
  std::vector<double> cosines_;
  std::vector<kinematics::internal::Columns> slots_;
  std::vector<math::RigidTransform> transforms_;
};

}  // namespace

KinematicsInternal::KinematicsInternal(kinematics::Kinematics model) : model_(std::move(model)) {}

KinematicsInternal::~KinematicsInternal() = default;

std::size_t KinematicsInternal::numCSpaceCoords() const { return model_.numCSpaceCoords(); }

const std::vector<std::string>& KinematicsInternal::frameNames() const { return model_.frameNames(); }

Kinematics::FrameHandle KinematicsInternal::frame(const std::string& frame_name) const {
  return FrameHandle(model_.frame(frame_name));
}

Pose3 KinematicsInternal::pose(const Eigen::VectorXd& cspace_config, const FrameHandle& frame) const {
  checkConfiguration(cspace_config);
  return model_.transform(cspace_config, checkedIndex(frame)).pose();
}

Eigen::Vector3d KinematicsInternal::position(const Eigen::VectorXd& cspace_config,
                                             const FrameHandle& frame) const {
  checkConfiguration(cspace_config);
  return model_.position(cspace_config, checkedIndex(frame));
}

Eigen::MatrixXd KinematicsInternal::positionJacobian(const Eigen::VectorXd& cspace_config,
                                                     const FrameHandle& frame) const {
  checkConfiguration(cspace_config);
  return model_.positionJacobian(cspace_config, checkedIndex(frame));
}

std::unique_ptr<FrameSweep> KinematicsInternal::frameSweep(const std::vector<FrameHandle>& frames) const {
  std::vector<int> indices;
  indices.reserve(frames.size());
  for (const FrameHandle& frame : frames) {
    indices.push_back(checkedIndex(frame));
  }
  return std::make_unique<ProgramSweep>(model_.plan(indices));
}

void KinematicsInternal::checkConfiguration(const Eigen::VectorXd& cspace_config) const {
  KAVO_CHECK(static_cast<size_t>(cspace_config.size()) == numCSpaceCoords(), kFile, 110)
      << "Length of the configuration [" << cspace_config.size()
      << "] must match number of configuration space coordinates [" << model_.numCSpaceCoords() << "].";
}

int KinematicsInternal::checkedIndex(const FrameHandle& frame) const {
  const int index = frame.index();
  KAVO_CHECK(index >= 0 && static_cast<size_t>(index) < frameNames().size(), kFile, 117)
      << "Frame handle with index [" << index << "] does not belong to this model, which has ["
      << model_.frameNames().size() << "] frames.";
  return index;
}

}  // namespace kavo
