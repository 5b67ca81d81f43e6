#pragma once

#include "kavo/formats/drawn_shape.h"
#include "kavo/world/obstacle.h"

namespace kavo::formats {

//! A shape as it is drawn.
DrawnShape DrawShape(const ObstacleShape& shape);

}  // namespace kavo::formats
