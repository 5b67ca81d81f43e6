#include "kavo/math/bounding_sphere.h"

#include <gtest/gtest.h>

#include <Eigen/Core>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/support/fatal.h"
#include "tests/support/vectors.h"

namespace kavo::math {
namespace {

double Reach(const Eigen::Vector3d& center, const Sphere& sphere) {
  return (center - sphere.center).norm() + sphere.radius;
}

double LargestReach(const Eigen::Vector3d& center, const std::vector<Sphere>& spheres) {
  double reach = 0.0;
  for (const Sphere& sphere : spheres) {
    reach = std::max(reach, Reach(center, sphere));
  }
  return reach;
}

void ExpectEncloses(const Sphere& ball, const std::vector<Sphere>& spheres) {
  ASSERT_TRUE(ball.center.allFinite());
  ASSERT_LE(LargestReach(ball.center, spheres), ball.radius * (1.0 + 4e-16));
}

// A proof that no smaller ball encloses the list. The radius needed is a convex function of the center; it is
// smallest where some convex combination of its slopes, the unit vectors from the touched spheres to the
// center, is zero. The shortest combination is looked for by moving weight from the slope that lengthens it
// most to the one that shortens it most (Frank and Wolfe's method with pairwise steps). Its length g says
// that every center within distance s needs at least radius - g s.
double OptimalityGap(const Sphere& ball, const std::vector<Sphere>& spheres, double contact) {
  std::vector<Eigen::Vector3d> slopes;
  for (const Sphere& sphere : spheres) {
    const Eigen::Vector3d offset = ball.center - sphere.center;
    if (Reach(ball.center, sphere) >= ball.radius - contact && offset.norm() > 0.0) {
      slopes.push_back(offset.normalized());
    } else if (Reach(ball.center, sphere) >= ball.radius - contact) {
      return 0.0;  // A sphere that fills the ball.
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
    if (to == from || direction.squaredNorm() == 0.0) {
      break;
    }
    const double moved = std::min(weights[from], -direction.dot(shortest) / direction.squaredNorm());
    if (!(moved > 0.0)) {
      break;
    }
    weights[to] += moved;
    weights[from] -= moved;
    shortest += moved * direction;
  }
  return shortest.norm();
}

std::vector<Sphere> RandomSpheres(std::mt19937& engine, int count, double max_radius) {
  std::vector<Sphere> spheres;
  for (int i = 0; i < count; ++i) {
    const Eigen::VectorXd v = testing::RandomVec(engine, 4, -1.0, 1.0);
    spheres.push_back({v.head<3>(), max_radius * std::fabs(v[3])});
  }
  return spheres;
}

TEST(BoundingSphere, SquaresMayVanishAndOverflow) {
  for (const double scale : {1e-200, 1e200}) {
    const Sphere ball =
        ComputeBoundingSphere({{{-scale, 0, 0}, 0}, {{3 * scale, 0, 0}, 0}}, SebbMethod::kSmallest);
    EXPECT_NEAR(ball.radius / scale, 2.0, 1e-12);
    EXPECT_LE((ball.center / scale - Eigen::Vector3d::UnitX()).norm(), 1e-12);
  }
}

TEST(BoundingSphere, ListsOfEveryKindAreEnclosedByTheSmallest) {
  std::mt19937 engine(11);
  std::vector<std::pair<std::string, std::vector<Sphere>>> lists;
  lists.emplace_back("a point at the origin", std::vector<Sphere>(1));
  for (int round = 0; round < 24; ++round) {
    lists.emplace_back("a few", RandomSpheres(engine, 1 + round % 8, round % 3 == 0 ? 0.0 : 0.8));
  }
  lists.emplace_back("thousands of balls", RandomSpheres(engine, 5000, 0.3));
  lists.emplace_back("thousands of points", RandomSpheres(engine, 5000, 0.0));

  std::vector<Sphere> on_sphere = RandomSpheres(engine, 2000, 0.0);
  for (Sphere& sphere : on_sphere) {
    sphere.center.normalize();
  }
  lists.emplace_back("points on one sphere", on_sphere);
  std::vector<Sphere> inner_tangent = RandomSpheres(engine, 500, 0.9);
  for (Sphere& sphere : inner_tangent) {
    sphere.center = sphere.center.normalized() * (1.0 - sphere.radius);
  }
  lists.emplace_back("balls that all touch one sphere from inside", inner_tangent);

  std::vector<Sphere> nearly_line = RandomSpheres(engine, 1000, 0.2);
  for (Sphere& sphere : nearly_line) {
    sphere.center = Eigen::Vector3d(1.0, 1e-9 * sphere.center[1], 0.0) * sphere.center[0];
  }
  lists.emplace_back("nearly collinear", nearly_line);

  std::vector<Sphere> grid;
  grid.reserve(1000);
  for (int i = 0; i < 1000; ++i) {
    const int layer = i / 100;
    grid.push_back({Eigen::Vector3d(i % 10, i / 10 % 10, layer), 0.5});
  }
  lists.emplace_back("grid", grid);
  std::vector<Sphere> far = RandomSpheres(engine, 300, 0.1);
  for (Sphere& sphere : far) {
    sphere.center += Eigen::Vector3d(1e3, -2e3, 5e2);
  }
  lists.emplace_back("far from the origin", far);

  for (const auto& [name, spheres] : lists) {
    SCOPED_TRACE(name);
    const Sphere ball = ComputeBoundingSphere(spheres, SebbMethod::kSmallest);
    ExpectEncloses(ball, spheres);
    EXPECT_LT(OptimalityGap(ball, spheres, 1e-9 * ball.radius), 2e-5);
    const Sphere rough = ComputeBoundingSphere(spheres, SebbMethod::kRitter);
    ExpectEncloses(rough, spheres);
    EXPECT_GE(rough.radius, ball.radius * (1.0 - 1e-12));
    EXPECT_LE(rough.radius, ball.radius * 2.0);
  }
}

// Small whole numbers make ties, equal balls, nested balls and dependent centers common.
TEST(BoundingSphere, SmallWholeNumbers) {
  std::mt19937 engine(13);
  const auto up_to = [&](unsigned max) { return static_cast<double>(engine() % (max + 1)); };
  for (int round = 0; round < 20000; ++round) {
    std::vector<Sphere> spheres(1 + engine() % 9);
    for (Sphere& sphere : spheres) {
      sphere = {Eigen::Vector3d(up_to(3), up_to(3), up_to(2)), up_to(2)};
    }
    const Sphere ball = ComputeBoundingSphere(spheres, SebbMethod::kSmallest);
    ExpectEncloses(ball, spheres);
    ASSERT_LT(OptimalityGap(ball, spheres, 1e-9 * (ball.radius + 1e-300)), 2e-5) << "round " << round;
  }
}

TEST(BoundingSphere, RejectsWhatHasNoAnswer) {
  const std::string file = "math/bounding_sphere";
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    std::vector<Sphere> spheres;
    int line;
    std::string message;
  } cases[] = {
      {{}, 195, "A list of no spheres has no bounding sphere."},
      {{{}, {{0, inf, 0}, 1}}, 200, "Center of sphere 1 [0 inf 0] is not finite."},
      {{{{0, 0, 0}, -1}}, 203, "Radius of sphere 0 [-1] must be finite and not negative."},
      {{{{0, 0, 0}, nan}}, 203, "Radius of sphere 0 [nan] must be finite and not negative."},
  };
  for (const auto& c : cases) {
    testing::ExpectFatal([&] { ComputeBoundingSphere(c.spheres); }, {}, file, c.line, c.message);
  }
}

}  // namespace
}  // namespace kavo::math
