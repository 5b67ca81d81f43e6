#include "kavo/kinematics/interface/kinematics.h"

namespace kavo {

namespace {

// For models that know no better way.
class FrameByFrameSweep : public FrameSweep {
 public:
  FrameByFrameSweep(const Kinematics& kinematics, const std::vector<Kinematics::FrameHandle>& frames)
      : kinematics_(kinematics), frames_(frames), transforms_(frames.size()) {}

  const std::vector<math::RigidTransform>& compute(const Eigen::VectorXd& q) override {
    for (std::size_t i = 0; i < frames_.size(); ++i) {
      transforms_[i] = math::RigidTransform(kinematics_.pose(q, frames_[i]));
    }
    return transforms_;
  }

 private:
  const Kinematics& kinematics_;
  std::vector<Kinematics::FrameHandle> frames_;
  std::vector<math::RigidTransform> transforms_;
};

}  // namespace

Kinematics::~Kinematics() = default;

std::unique_ptr<FrameSweep> Kinematics::frameSweep(const std::vector<FrameHandle>& frames) const {
  return std::make_unique<FrameByFrameSweep>(*this, frames);
}

}  // namespace kavo
