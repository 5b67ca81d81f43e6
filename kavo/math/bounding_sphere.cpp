#include "kavo/math/bounding_sphere.h"

#include <array>
#include <cmath>
#include <cstddef>

#include "kavo/util/log_message.h"
#include "kavo/util/to_string.h"

namespace kavo::math {

namespace {

constexpr char kFile[] = "math/bounding_sphere";

// The walk ends by itself, because the radius grows from one support set to the next; this many steps are far
// beyond any that it takes.
constexpr int kMaxSteps = 10000;

// A sphere farther out than this, relative to the radius, is worth another step.
constexpr double kTolerance = 1e-14;

double Dot(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

double Length(const Eigen::Vector3d& v) { return std::sqrt(Dot(v, v)); }

// The radius that a sphere around `center` needs to enclose `sphere`.
double Reach(const Eigen::Vector3d& center, const Sphere& sphere) {
  const Eigen::Vector3d offset = sphere.center - center;
  return Length(offset) + sphere.radius;
}

// A few spheres, without allocation: a support set and the sphere that joins it.
struct FewSpheres {
  std::array<Sphere, 5> items;
  std::size_t size = 0;

  void Add(const Sphere& sphere) { items[size++] = sphere; }
};

double LargestReach(const Eigen::Vector3d& center, const FewSpheres& spheres) {
  double reach = 0.0;
  for (std::size_t i = 0; i < spheres.size; ++i) {
    reach = std::fmax(reach, Reach(center, spheres.items[i]));
  }
  return reach;
}

// Centers of the spheres that the given ones touch from inside, with the center in the affine hull of theirs.
// At most two; none when the given centers are affinely dependent (a smaller set then has the same answer).
//
// With the first center as origin, t = R - r_0 and the others at d_i, |c - d_i| = t + r_0 - r_i squared less
// |c| = t squared is linear: 2 c.d_i = |d_i|^2 - e_i^2 - 2 t e_i with e_i = r_0 - r_i. So c = u + t v, and
// |c| = t gives t.
struct Centers {
  std::array<Eigen::Vector3d, 2> items;
  std::size_t size = 0;
};

Centers TangentCenters(const FewSpheres& touching) {
  Centers centers;
  const Sphere& first = touching.items[0];
  if (touching.size == 1) {
    centers.items[centers.size++] = first.center;
    return centers;
  }
  // An orthonormal basis of the hull, grown with the d_i, makes the linear system triangular.
  std::array<Eigen::Vector3d, 3> basis;
  std::array<double, 3> u_along;
  std::array<double, 3> v_along;
  Eigen::Vector3d u = Eigen::Vector3d::Zero();
  Eigen::Vector3d v = Eigen::Vector3d::Zero();
  for (std::size_t i = 0; i + 1 < touching.size; ++i) {
    const Sphere& other = touching.items[i + 1];
    const Eigen::Vector3d d = other.center - first.center;
    const double e = first.radius - other.radius;
    Eigen::Vector3d rest = d;
    double u_side = 0.5 * (Dot(d, d) - e * e);
    double v_side = -e;
    for (std::size_t k = 0; k < i; ++k) {
      rest -= Dot(basis[k], rest) * basis[k];
      const double along = Dot(basis[k], d);
      u_side -= along * u_along[k];
      v_side -= along * v_along[k];
    }
    const double height = Length(rest);
    if (!(height > 1e-14 * Length(d))) {
      return centers;
    }
    basis[i] = rest / height;
    const double along = Dot(basis[i], d);
    u_along[i] = u_side / along;
    v_along[i] = v_side / along;
    u += u_along[i] * basis[i];
    v += v_along[i] * basis[i];
  }
  const double a = Dot(v, v) - 1.0;
  const double half_b = Dot(u, v);
  const double c = Dot(u, u);
  // A discriminant below zero by rounding counts as zero; a wrong center does no harm, for the caller
  // measures it.
  const double root = std::sqrt(std::fmax(0.0, half_b * half_b - a * c));
  const double q = half_b > 0.0 ? -half_b - root : -half_b + root;
  for (const double t : {q / a, c / q}) {
    if (std::isfinite(t) && t >= 0.0) {
      centers.items[centers.size++] = first.center + u + t * v;
    }
  }
  return centers;
}

struct Support {
  FewSpheres spheres;
  Sphere ball;
};

// The smallest ball around `joining` and the spheres of a support set, and the spheres that it touches.
// `joining` lies outside the old ball, so it is one of them.
Support BestSupport(const FewSpheres& old, const Sphere& joining) {
  FewSpheres all = old;
  all.Add(joining);
  Support best;
  best.ball.radius = HUGE_VAL;
  for (unsigned subset = 0; subset < (1u << old.size); ++subset) {
    FewSpheres touching;
    touching.Add(joining);
    for (std::size_t i = 0; i < old.size; ++i) {
      if ((subset >> i) & 1u) {
        touching.Add(old.items[i]);
      }
    }
    if (touching.size > 4) {
      continue;
    }
    const Centers centers = TangentCenters(touching);
    for (std::size_t i = 0; i < centers.size; ++i) {
      const double radius = LargestReach(centers.items[i], all);
      if (radius < best.ball.radius) {
        best.ball = {centers.items[i], radius};
        best.spheres = touching;
      }
    }
  }
  return best;
}

// The sphere of the list that reaches farthest from `center`.
std::size_t Farthest(const std::vector<Sphere>& spheres, const Eigen::Vector3d& center, double* reach) {
  std::size_t farthest = 0;
  *reach = -1.0;
  for (std::size_t i = 0; i < spheres.size(); ++i) {
    const double candidate = Reach(center, spheres[i]);
    if (candidate > *reach) {
      *reach = candidate;
      farthest = i;
    }
  }
  return farthest;
}

Sphere SmallestEnclosing(const std::vector<Sphere>& spheres) {
  Support support;
  support.spheres.Add(spheres.front());
  support.ball = spheres.front();
  // Every center met is a bound from above once its reach is known; the best is kept, so that an end by
  // rounding or by the step limit still gives an enclosing sphere.
  Sphere best{support.ball.center, HUGE_VAL};
  for (int step = 0; step < kMaxSteps; ++step) {
    double reach;
    const std::size_t farthest = Farthest(spheres, support.ball.center, &reach);
    if (reach < best.radius) {
      best = {support.ball.center, reach};
    }
    if (reach <= support.ball.radius * (1.0 + kTolerance)) {
      break;
    }
    const Support next = BestSupport(support.spheres, spheres[farthest]);
    if (!(next.ball.radius > support.ball.radius)) {
      break;
    }
    support = next;
  }
  return best;
}

Sphere Ritter(const std::vector<Sphere>& spheres) {
  Sphere ball = spheres.front();
  for (const Sphere& sphere : spheres) {
    const Eigen::Vector3d offset = sphere.center - ball.center;
    const double distance = Length(offset);
    if (distance + ball.radius <= sphere.radius) {
      ball = sphere;
    } else if (distance + sphere.radius > ball.radius) {
      const double radius = 0.5 * (distance + ball.radius + sphere.radius);
      ball.center += ((radius - ball.radius) / distance) * offset;
      ball.radius = radius;
    }
  }
  Farthest(spheres, ball.center, &ball.radius);
  return ball;
}

}  // namespace

Sphere ComputeBoundingSphere(const std::vector<Sphere>& spheres, SebbMethod method) {
  KAVO_CHECK(!spheres.empty(), kFile, 195) << "A list of no spheres has no bounding sphere.";
  double largest = 0.0;
  for (std::size_t i = 0; i < spheres.size(); ++i) {
    const Sphere& sphere = spheres[i];
    KAVO_CHECK(
        std::isfinite(sphere.center[0]) && std::isfinite(sphere.center[1]) && std::isfinite(sphere.center[2]),
        kFile, 200)
        << "Center of sphere " << i << " " << util::ToString(sphere.center) << " is not finite.";
    KAVO_CHECK(std::isfinite(sphere.radius) && sphere.radius >= 0.0, kFile, 203)
        << "Radius of sphere " << i << " [" << sphere.radius << "] must be finite and not negative.";
    for (const double value : {sphere.center[0], sphere.center[1], sphere.center[2], sphere.radius}) {
      largest = std::fmax(largest, std::fabs(value));
    }
  }
  if (largest == 0.0) {
    return {};
  }

  // Scaled by a power of two, which is exact, so that no square overflows or vanishes.
  const int exponent = std::ilogb(largest);
  std::vector<Sphere> scaled = spheres;
  for (Sphere& sphere : scaled) {
    for (int i = 0; i < 3; ++i) {
      sphere.center[i] = std::scalbn(sphere.center[i], -exponent);
    }
    sphere.radius = std::scalbn(sphere.radius, -exponent);
  }
  Sphere ball = method == SebbMethod::kRitter ? Ritter(scaled) : SmallestEnclosing(scaled);
  for (int i = 0; i < 3; ++i) {
    ball.center[i] = std::scalbn(ball.center[i], exponent);
  }
  ball.radius = std::scalbn(ball.radius, exponent);
  return ball;
}

}  // namespace kavo::math
