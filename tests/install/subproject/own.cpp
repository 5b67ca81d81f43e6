#include "kavo/math/bounding_sphere.h"

double RadiusAboutBoth() {
  return kavo::math::ComputeBoundingSphere({{{0, 0, 0}, 1}, {{2, 0, 0}, 1}}).radius;
}
