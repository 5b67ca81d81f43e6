#pragma once

#include <vector>

#include "kavo/formats/drawn_shape.h"
#include "kavo/util/export.h"
#include "kavo/world/obstacle.h"

namespace kavo::formats {

//! Shapes as they are drawn: together of no more than 20 000 triangles (but twelve for each mesh), 20 000
//! points and 4 000 cells, of which each gets what it needs or else as much as the others.
KAVO_INTERNAL_EXPORT std::vector<DrawnShape> DrawShapes(const std::vector<ObstacleShape>& shapes);

}  // namespace kavo::formats
