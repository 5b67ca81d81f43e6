#include "kavo/math/bounding_sphere.h"

int main() {
  const auto sphere = kavo::math::ComputeBoundingSphere({{{0.0, 0.0, 0.0}, 1.0}, {{4.0, 0.0, 0.0}, 1.0}});
  return sphere.radius > 2.9 && sphere.radius < 3.1 ? 0 : 1;
}
