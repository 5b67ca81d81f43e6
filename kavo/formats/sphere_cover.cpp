#include <algorithm>
#include <cmath>
#include <cstddef>

#include "kavo/formats/sphere_cover_internal.h"
#include "kavo/kinematics/sin_cos_internal.h"
#include "kavo/math/constants_internal.h"

namespace kavo::formats {

namespace {

using Spheres = std::vector<math::Sphere>;

using math::kPi;

// Makes up for rounding: radii grow by the one, and the tolerance shrinks by more than that costs.
constexpr double kGrow = 1.0 + 1e-9;
constexpr double kShrink = 1.0 - 1e-6;

double Length(double x, double y) { return std::sqrt(x * x + y * y); }

double Length(double x, double y, double z) { return std::sqrt(x * x + y * y + z * z); }

// 1 - cos(pi / n), as twice a square so that nothing cancels.
double OneMinusCos(int n) {
  double sin;
  double cos;
  kinematics::internal::SinCos(0.5 * kPi / n, &sin, &cos);
  return 2.0 * sin * sin;
}

// `count` spheres around the z axis.
void AddRing(double ring_radius, double z, double radius, int count, Spheres& spheres) {
  for (int i = 0; i < count; ++i) {
    double sin;
    double cos;
    kinematics::internal::SinCos(2.0 * kPi * i / count, &sin, &cos);
    spheres.push_back({{ring_radius * cos, ring_radius * sin, z}, radius * kGrow});
  }
}

// The rings that cover what is left along the edge of a cylinder. In a half-plane through the axis that is a
// triangle: the corner, and the points at distance `leg` from it on the cap and on the side. A ring at depth
// c below both surfaces, with spheres of radius c + t, covers in each such half-plane a disc of squared
// radius (c + t)^2 - k, where k is what the gap between two neighbours costs; that leaves a smaller triangle.
struct Ring {
  double depth;
  double radius;
  int count;
};

// \param share How much of the squared reach of a ring, 2 c t + t^2, may go into its gaps, in (0, 1).
// None if that does not end.
std::optional<std::vector<Ring>> EdgeRings(double cylinder_radius, double leg, double tolerance,
                                           double share) {
  constexpr std::size_t kMaxRings = 50;
  std::vector<Ring> rings;
  while (rings.size() < kMaxRings) {
    const double half = 0.5 * leg;
    const auto full_reach = [&](double depth) { return 2.0 * depth * tolerance + tolerance * tolerance; };
    const auto gap = [&](double depth, double one_minus_cos) {
      return 2.0 * cylinder_radius * (cylinder_radius - depth) * one_minus_cos;
    };
    int count = 3;
    while (gap(half, OneMinusCos(count)) > share * full_reach(half)) {
      if (++count > static_cast<int>(kMaxCoverSpheres)) {
        return std::nullopt;
      }
    }
    const double one_minus_cos = OneMinusCos(count);
    const auto covers_leg = [&](double depth) {
      return (leg - depth) * (leg - depth) <= full_reach(depth) - gap(depth, one_minus_cos);
    };
    if (covers_leg(half)) {
      rings.push_back({half, std::sqrt(2.0 * half * half + gap(half, one_minus_cos)), count});
      return rings;
    }
    // A deeper ring has smaller gaps, so that it reaches the ends of the legs at last.
    double low = half;
    double high = leg;
    for (int i = 0; i < 50; ++i) {
      const double middle = 0.5 * low + 0.5 * high;
      (covers_leg(middle) ? high : low) = middle;
    }
    rings.push_back({high, high + tolerance, count});
    leg = 2.0 * high - leg;
  }
  return std::nullopt;
}

// The rings at both edges, of as few spheres as it takes.
bool CoverEdges(double radius, double half_length, double leg, double tolerance, Spheres& spheres) {
  std::vector<Ring> best;
  std::size_t best_count = 0;
  for (int twentieth = 1; twentieth < 20; ++twentieth) {
    const std::optional<std::vector<Ring>> rings = EdgeRings(radius, leg, tolerance, 0.05 * twentieth);
    if (!rings) {
      continue;
    }
    std::size_t count = 0;
    for (const Ring& ring : *rings) {
      count += static_cast<std::size_t>(ring.count);
    }
    if (best.empty() || count < best_count) {
      best = *rings;
      best_count = count;
    }
  }
  if (best.empty() || spheres.size() + 2 * best_count > kMaxCoverSpheres) {
    return false;
  }
  for (const Ring& ring : best) {
    for (const double side : {-1.0, 1.0}) {
      AddRing(radius - ring.depth, side * (half_length - ring.depth), ring.radius, ring.count, spheres);
    }
  }
  return true;
}

}  // namespace

std::optional<Spheres> CoverBox(const Eigen::Vector3d& half_size, double tolerance) {
  tolerance *= kShrink;
  Spheres spheres;
  Eigen::Vector3d box = half_size;
  while (true) {
    Eigen::Array3i count(1, 1, 1);
    Eigen::Vector3d cell = box;
    double radius = Length(cell[0], cell[1], cell[2]);
    while (radius - std::min({cell[0], cell[1], cell[2]}) > tolerance) {
      Eigen::Index longest = 0;
      for (Eigen::Index axis = 1; axis < 3; ++axis) {
        longest = cell[axis] > cell[longest] ? axis : longest;
      }
      if (++count[longest] > static_cast<int>(kMaxCoverSpheres)) {
        return std::nullopt;
      }
      cell[longest] = box[longest] / count[longest];
      radius = Length(cell[0], cell[1], cell[2]);
    }
    const bool has_inside = std::min({count[0], count[1], count[2]}) > 2;
    for (int i = 0; i < count[0]; ++i) {
      for (int j = 0; j < count[1]; ++j) {
        const bool is_outer = !has_inside || i == 0 || i == count[0] - 1 || j == 0 || j == count[1] - 1;
        for (int k = 0; k < count[2]; k += is_outer ? 1 : count[2] - 1) {
          if (spheres.size() == kMaxCoverSpheres) {
            return std::nullopt;
          }
          spheres.push_back({{(2 * i + 1 - count[0]) * cell[0], (2 * j + 1 - count[1]) * cell[1],
                              (2 * k + 1 - count[2]) * cell[2]},
                             radius * kGrow});
        }
      }
    }
    if (!has_inside) {
      return spheres;
    }
    tolerance += 2.0 * std::min({cell[0], cell[1], cell[2]});
    box -= 2.0 * cell;
  }
}

std::optional<Spheres> CoverCylinder(double radius, double half_length, double tolerance) {
  tolerance *= kShrink;
  Spheres spheres;
  // A sphere whose centre is that deep below a surface may reach it in a disc of radius `reach`.
  const double depth = std::min(radius, half_length);
  const double reach = std::sqrt(2.0 * depth * tolerance + tolerance * tolerance);
  const double around = Length(radius, half_length);
  if (around - depth <= tolerance) {
    return Spheres{{Eigen::Vector3d::Zero(), around * kGrow}};
  }
  // What the larger spheres leave open at an edge, on the cap and on the side.
  double leg = 0.0;
  if (radius <= half_length) {
    // Where the reach is that large, the outermost spheres cover the caps, from as deep below them as that
    // takes at least.
    const bool covers_caps = reach >= radius;
    double end_depth = radius;
    double count = 1.0 + std::ceil((half_length - radius) / reach);
    if (covers_caps) {
      count = std::ceil(half_length / reach);
      end_depth =
          std::max(half_length / count, (radius * radius - tolerance * tolerance) / (2.0 * tolerance));
    } else {
      leg = radius - reach;
    }
    if (!(count <= static_cast<double>(kMaxCoverSpheres))) {
      return std::nullopt;
    }
    const int steps = static_cast<int>(count) - 1;
    const double sphere_radius = covers_caps ? Length(radius, end_depth) : radius + tolerance;
    for (int i = 0; i <= steps; ++i) {
      const double z = steps == 0 ? 0.0 : (half_length - end_depth) * ((2.0 * i - steps) / steps);
      spheres.push_back({{0.0, 0.0, z}, sphere_radius * kGrow});
    }
  } else {
    // Each sphere of a ring covers at full height a square of half the diagonal `reach`, to the radial and to
    // the tangential side; the next ring joins on the inside.
    const double half_band = reach * std::sqrt(0.5);
    double ring_radius = radius - half_length;
    leg = half_length - half_band;
    while (true) {
      if (ring_radius <= 0.0) {
        spheres.push_back({Eigen::Vector3d::Zero(), (half_length + tolerance) * kGrow});
        break;
      }
      const double outer = ring_radius + std::max(half_length, half_band);
      int count = 3;
      while (2.0 * outer * ring_radius * OneMinusCos(count) > 0.5 * reach * reach) {
        if (++count > static_cast<int>(kMaxCoverSpheres)) {
          return std::nullopt;
        }
      }
      AddRing(ring_radius, 0.0, half_length + tolerance, count, spheres);
      if (spheres.size() > kMaxCoverSpheres) {
        return std::nullopt;
      }
      if (ring_radius <= half_band) {
        break;
      }
      ring_radius -= 2.0 * half_band;
    }
  }
  if (leg > 0.0 && !CoverEdges(radius, half_length, leg, tolerance, spheres)) {
    return std::nullopt;
  }
  return spheres;
}

}  // namespace kavo::formats
