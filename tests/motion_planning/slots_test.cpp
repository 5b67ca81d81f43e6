#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <vector>

#include "kavo/motion_planning/environment/basic_3d_environment.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/rrt/rrt.h"
#include "kavo/motion_planning/tree/tree.h"

namespace kavo::planning {
namespace {

// The place of a virtual operation in the table of its class: a pointer to it holds its offset, to which some
// processors add one (Itanium C++ ABI). The destructor takes the places 0 and 1.
template <typename... Operation>
std::vector<std::ptrdiff_t> Slots(Operation... operations) {
  const auto slot = [](auto operation) {
    std::ptrdiff_t offset = 0;
    std::memcpy(&offset, &operation, sizeof(offset));
    return offset / static_cast<std::ptrdiff_t>(sizeof(void*));
  };
  return {slot(operations)...};
}

// Programs that were built against an older header still call what they mean to: new operations stand behind.
TEST(SlotsTest, OperationsKeepTheirPlaces) {
  EXPECT_EQ(Slots(&Tree::CSpaceDimension, &Tree::NumNodes, &Tree::Nodes, &Tree::ClearAndSetRoot,
                  &Tree::Insert, &Tree::Backtrace, &Tree::Distance, &Tree::GetClosest,
                  &Tree::GetApproxClosest, &Tree::TryGetNode, &Tree::SupportsNodeId),
            (std::vector<std::ptrdiff_t>{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(Slots(&Environment::CSpaceDimension, &Environment::CSpaceCoordLimits,
                  &Environment::CSpaceDistanceMetric, &Environment::IsValidConfiguration,
                  &Environment::SampleConfiguration, &Environment::CountValid, &Environment::IsValidMotion,
                  &Environment::IsValidCurve),
            (std::vector<std::ptrdiff_t>{2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(Slots(&RobotEnvironment::TaskSpacePosition, &RobotEnvironment::GetTaskSpacePositionJacobian,
                  &RobotEnvironment::SampleTaskSpace, &RobotEnvironment::UpdateWorldView,
                  &RobotEnvironment::SetBasePose),
            (std::vector<std::ptrdiff_t>{10, 11, 12, 13, 14}));
  EXPECT_EQ(Slots(&Basic3dEnvironment::UpdateWorldView), (std::vector<std::ptrdiff_t>{10}));
  EXPECT_EQ(Slots(&RRT::CSpaceDimension, &RRT::TryToFindPath, &RRT::GetAllValidatedConfigurations,
                  &RRT::GetAllValidatedEdges),
            (std::vector<std::ptrdiff_t>{2, 3, 4, 5}));
}

}  // namespace
}  // namespace kavo::planning
