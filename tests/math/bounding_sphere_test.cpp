#include "kavo/math/bounding_sphere.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <utility>

#include "tests/support/fatal.h"
#include "tests/support/vectors.h"

namespace kavo::math {
namespace {

double Reach(const Eigen::Vector3d& center, const Sphere& sphere) {
  return (center - sphere.center).norm() + sphere.radius;
}

void ExpectEncloses(const Sphere& ball, const std::vector<Sphere>& spheres) {
  ASSERT_TRUE(ball.center.allFinite());
  for (const Sphere& sphere : spheres) {
    ASSERT_LE(Reach(ball.center, sphere), ball.radius * (1.0 + 4e-16));
  }
}

// A proof that no smaller ball encloses the list. The radius needed is a convex function of the center; it is
// smallest where some convex combination of its slopes, the unit vectors from the touched spheres to the
// center, is zero. The shortest combination is looked for by moving weight from the slope that lengthens it
// most to the one that shortens it most (Frank and Wolfe's method with pairwise steps). Its length g says
// that every center within distance s needs at least radius - g s.
double OptimalityGap(const Sphere& ball, const std::vector<Sphere>& spheres, double contact) {
  std::vector<Eigen::Vector3d> slopes;
  for (const Sphere& sphere : spheres) {
    if (Reach(ball.center, sphere) >= ball.radius - contact) {
      slopes.push_back((ball.center - sphere.center).normalized());  // Zero if the sphere fills the ball.
    }
  }
  if (slopes.empty()) {
    return HUGE_VAL;
  }
  std::vector<double> weights(slopes.size(), 0.0);
  weights[0] = 1.0;
  Eigen::Vector3d shortest = slopes.front();
  for (int step = 0; step < 100000 && shortest.norm() > 1e-5; ++step) {
    std::size_t to = 0;
    std::size_t from = slopes.size();
    for (std::size_t i = 0; i < slopes.size(); ++i) {
      const double along = slopes[i].dot(shortest);
      if (along < slopes[to].dot(shortest)) {
        to = i;
      }
      if (weights[i] > 0.0 && (from == slopes.size() || along > slopes[from].dot(shortest))) {
        from = i;
      }
    }
    const Eigen::Vector3d direction = slopes[to] - slopes[from];
    const double moved = std::min(-direction.dot(shortest) / direction.squaredNorm(), weights[from]);
    if (!(moved > 0.0)) {
      break;
    }
    weights[to] += moved;
    weights[from] -= moved;
    shortest += moved * direction;
  }
  return shortest.norm();
}

TEST(BoundingSphere, CasesWorkedOutByHand) {
  const double h = std::sqrt(3.0) / 2.0;
  const struct {
    std::vector<Sphere> spheres;
    Sphere expected;
  } cases[] = {
      {{{{0, 0, 0}, 0}}, {{0, 0, 0}, 0}},
      {{{{1, -2, 7}, 0}}, {{1, -2, 7}, 0}},
      // Nested, and touching from inside.
      {{{{0.5, 0, 0}, 0.2}, {{0.1, 0.3, 0}, 0.3}, {{0, 0, 0}, 1}}, {{0, 0, 0}, 1}},
      {{{{0.5, 0, 0}, 0.5}, {{0, 0, 0}, 1}}, {{0, 0, 0}, 1}},
      // From -2 - 1 to 3 + 2 along x.
      {{{{-2, 0, 0}, 1}, {{3, 0, 0}, 2}}, {{1, 0, 0}, 4}},
      {{{{0, 0, 0}, 0.1}, {{1, 1, 1}, 0.1}, {{2, 2, 2}, 0.1}}, {{1, 1, 1}, std::sqrt(3.0) + 0.1}},
      // Acute and obtuse triangles, a square and a tetrahedron.
      {{{{1, 0, 0}, 0.2}, {{-0.5, h, 0}, 0.2}, {{-0.5, -h, 0}, 0.2}}, {{0, 0, 0}, 1.2}},
      {{{{-1, 0, 0}, 0}, {{1, 0, 0}, 0}, {{0, 0.2, 0}, 0}}, {{0, 0, 0}, 1}},
      {{{{1, 1, 0}, 0}, {{1, -1, 0}, 0}, {{-1, 1, 0}, 0}, {{-1, -1, 0}, 0}}, {{0, 0, 0}, std::sqrt(2.0)}},
      {{{{1, 1, 1}, 0.5}, {{1, -1, -1}, 0.5}, {{-1, 1, -1}, 0.5}, {{-1, -1, 1}, 0.5}},
       {{0, 0, 0}, std::sqrt(3.0) + 0.5}},
      // The answer touches a point at (3, 0, 0) and both large balls: |c - (0, +-2, 0)| + 1 = |c - (3, 0, 0)|
      // gives sqrt(c^2 + 4) = 2 - c, so c = 0.
      {{{{0, 2, 0}, 1}, {{0, -2, 0}, 1}, {{3, 0, 0}, 0}}, {{0, 0, 0}, 3}},
      {{{{1, 1, 1}, 2}, {{1, 1, 1}, 3}, {{1, 1, 1}, 1}}, {{1, 1, 1}, 3}},
      {{{{-1e-200, 0, 0}, 0}, {{3e-200, 0, 0}, 0}}, {{1e-200, 0, 0}, 2e-200}},
      {{{{-1e200, 0, 0}, 0}, {{3e200, 0, 0}, 0}}, {{1e200, 0, 0}, 2e200}},
  };
  for (const auto& [spheres, expected] : cases) {
    const Sphere ball = ComputeBoundingSphere(spheres, SebbMethod::kSmallest);
    SCOPED_TRACE(::testing::Message() << expected.center.transpose() << " radius " << expected.radius);
    EXPECT_NEAR(ball.radius, expected.radius, 1e-12 * expected.radius);
    EXPECT_LE((ball.center - expected.center).cwiseAbs().maxCoeff(), 1e-12 * expected.radius);
  }
}

void ExpectSmallest(const std::vector<Sphere>& spheres) {
  const Sphere ball = ComputeBoundingSphere(spheres, SebbMethod::kSmallest);
  ExpectEncloses(ball, spheres);
  ASSERT_LT(OptimalityGap(ball, spheres, 1e-9 * (ball.radius + 1e-300)), 2e-5);
  const Sphere rough = ComputeBoundingSphere(spheres, SebbMethod::kRitter);
  ExpectEncloses(rough, spheres);
  ASSERT_GE(rough.radius, ball.radius * (1.0 - 1e-12));
  ASSERT_LE(rough.radius, ball.radius * 2.0);
}

TEST(BoundingSphere, LargeAndDegenerateListsAreEnclosedByTheSmallest) {
  const std::pair<const char*, std::function<void(Sphere&)>> lists[] = {
      {"balls", [](Sphere&) {}},
      {"points", [](Sphere& s) { s.radius = 0.0; }},
      {"points on one sphere",
       [](Sphere& s) {
         s = {s.center.normalized(), 0.0};
       }},
      {"all touch one sphere from inside", [](Sphere& s) { s.center *= (1.0 - s.radius) / s.center.norm(); }},
      {"coplanar", [](Sphere& s) { s.center[2] = 5.0; }},
      {"collinear", [](Sphere& s) { s.center = Eigen::Vector3d(1.0, 2.0, 3.0) * s.center[0]; }},
      {"nearly so",
       [](Sphere& s) { s.center = Eigen::Vector3d(1.0, 1e-9 * s.center[1], 0.0) * s.center[0]; }},
      {"grid",
       [](Sphere& s) {
         s = {(5.0 * s.center).array().floor(), 0.5};
       }},
      {"repeated",
       [](Sphere& s) {
         s = {s.center.array().sign(), 0.5};
       }},
      {"far from the origin", [](Sphere& s) { s.center += Eigen::Vector3d(1e3, -2e3, 5e2); }},
  };
  std::mt19937 engine(11);
  for (const auto& [name, change] : lists) {
    SCOPED_TRACE(name);
    std::vector<Sphere> spheres(2000);
    for (Sphere& sphere : spheres) {
      const Eigen::VectorXd v = testing::RandomVec(engine, 4, -1.0, 1.0);
      sphere = {v.head<3>(), 0.3 * std::fabs(v[3])};
      change(sphere);
    }
    ExpectSmallest(spheres);
  }
}

// In every second list, small whole numbers make ties, equal balls, nested balls and dependent centers
// common.
TEST(BoundingSphere, ShortListsAreEnclosedByTheSmallest) {
  std::mt19937 engine(13);
  for (int round = 0; round < 20000; ++round) {
    const auto up_to = [&](unsigned max) {
      return round % 2 == 0 ? static_cast<double>(engine() % (max + 1))
                            : static_cast<double>(engine()) * 0x1p-32 * max;
    };
    SCOPED_TRACE(round);
    std::vector<Sphere> spheres(1 + engine() % 9);
    for (Sphere& sphere : spheres) {
      sphere = {Eigen::Vector3d(up_to(3), up_to(3), up_to(2)), up_to(2)};
    }
    ExpectSmallest(spheres);
  }
}

TEST(BoundingSphere, RejectsWhatHasNoAnswer) {
  const double nan = std::nan("");
  const std::string center =
      "std::isfinite(sphere.center[0]) && std::isfinite(sphere.center[1]) && std::isfinite(sphere.center[2])";
  const std::string radius = "std::isfinite(sphere.radius) && sphere.radius >= 0.0";
  const struct {
    std::vector<Sphere> spheres;
    std::string condition;
    int line;
    std::string message;
  } cases[] = {
      {{}, "!spheres.empty()", 195, "A list of no spheres has no bounding sphere."},
      {{{}, {{0, HUGE_VAL, 0}, 1}}, center, 200, "Center of sphere 1 [0 inf 0] is not finite."},
      {{{{nan, 0, 0}, 1}}, center, 200, "Center of sphere 0 [nan 0 0] is not finite."},
      {{{{0, 0, -HUGE_VAL}, 1}}, center, 200, "Center of sphere 0 [0 0 -inf] is not finite."},
      {{{{0, 0, 0}, -1}}, radius, 203, "Radius of sphere 0 [-1] must be finite and not negative."},
      {{{{0, 0, 0}, HUGE_VAL}}, radius, 203, "Radius of sphere 0 [inf] must be finite and not negative."},
      {{{{0, 0, 0}, nan}}, radius, 203, "Radius of sphere 0 [nan] must be finite and not negative."},
  };
  for (const auto& c : cases) {
    testing::ExpectFatal([&] { ComputeBoundingSphere(c.spheres); }, c.condition, "math/bounding_sphere",
                         c.line, c.message);
  }
}

}  // namespace
}  // namespace kavo::math
