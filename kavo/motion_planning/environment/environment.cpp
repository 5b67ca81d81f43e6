#include "kavo/motion_planning/environment/environment.h"

namespace kavo::planning {

Environment::~Environment() = default;

}  // namespace kavo::planning
