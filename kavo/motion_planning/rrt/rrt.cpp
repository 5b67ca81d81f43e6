#include "kavo/motion_planning/rrt/rrt.h"

namespace kavo::planning {

RRT::~RRT() = default;

}  // namespace kavo::planning
