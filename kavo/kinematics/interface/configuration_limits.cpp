#include "kavo/kinematics/interface/configuration_limits.h"

#include "kavo/util/log_message.h"

namespace kavo::kinematics {

ConfigurationLimits::ConfigurationLimits(const Eigen::VectorXd& min, const Eigen::VectorXd& max)
    : dimension_(static_cast<std::size_t>(min.size())), min_(min), max_(max) {
  KAVO_CHECK(min.size() == max.size(), "kinematics/interface/configuration_limits", 9)
      << "Length of 'min' [" << min.size() << "] must match length of 'max' [" << max.size() << "].";
  range_ = max_ - min_;
}

ConfigurationLimits::ConfigurationLimits(const std::vector<JointLimits>& joint_limits)
    : dimension_(joint_limits.size()),
      min_(static_cast<Eigen::Index>(joint_limits.size())),
      max_(static_cast<Eigen::Index>(joint_limits.size())) {
  Eigen::Index i = 0;
  for (const JointLimits& limits : joint_limits) {
    min_[i] = limits.min;
    max_[i] = limits.max;
    ++i;
  }
  range_ = max_ - min_;
}

}  // namespace kavo::kinematics
