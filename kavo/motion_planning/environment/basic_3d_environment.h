#pragma once

#include <cstdint>
#include <memory>

#include "kavo/kinematics/interface/configuration_limits.h"
#include "kavo/motion_planning/environment/environment.h"
#include "kavo/util/export.h"
#include "kavo/world/world_view.h"

namespace kavo::planning {

//! A point that moves in a box among obstacles. A configuration is its position (x, y, z) in the world, in
//! metres. Motions are proven: those that are valid touch nothing anywhere, those that are not come nearer to
//! something than a hundredth of a millimetre (or would take millions of parts to tell).
class KAVO_EXPORT Basic3dEnvironment : public Environment {
 public:
  //! Takes the world as it is now.
  virtual void UpdateWorldView() = 0;
};

//! What a `Basic3dEnvironment` is made from. Its fields are the parameters of its constructor.
struct KAVO_EXPORT Basic3dEnvironmentConfig {
  //! \param world_view_in The obstacles.
  //! \param q_limits_in The box that the point may occupy, bounds included; of dimension 3, otherwise a fatal
  //!   error.
  //! \param max_sampling_attempts_in Random points that `SampleConfiguration` tries before it gives up.
  //! \param seed_in Seed of the random points.
  Basic3dEnvironmentConfig(const WorldView& world_view_in, const kinematics::ConfigurationLimits& q_limits_in,
                           std::uint64_t max_sampling_attempts_in, std::uint32_t seed_in);

  WorldView world_view;                      //!< The obstacles.
  kinematics::ConfigurationLimits q_limits;  //!< The box that the point may occupy.
  std::uint64_t max_sampling_attempts;       //!< Random points tried for one sample.
  std::uint32_t seed;                        //!< Of the random points.
};

//! A point environment under the Euclidean distance. Where some minimum of the limits is above its maximum a
//! warning is issued, and no configuration is valid. Limits of another dimension than 3 are a fatal error.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::BoxObstacle{{0.1, 1.5, 1.0}}, kavo::Pose3::FromTranslation({1.0, -0.25, 0.5}), "wall");
//! const kavo::kinematics::ConfigurationLimits room(Eigen::Vector3d(0.0, -1.0, 0.0),
//!                                                  Eigen::Vector3d(2.0, 1.0, 1.0));
//! const auto environment = kavo::planning::CreateBasic3dEnvironment({world.view(), room, 100, 1});
//! assert(!environment->IsValidConfiguration(Eigen::Vector3d(1.0, 0.0, 0.5)));
//! @endcode
KAVO_EXPORT std::shared_ptr<Basic3dEnvironment> CreateBasic3dEnvironment(
    const Basic3dEnvironmentConfig& config);

}  // namespace kavo::planning
