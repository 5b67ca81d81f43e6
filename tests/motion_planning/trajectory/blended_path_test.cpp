#include "kavo/motion_planning/trajectory/blended_path.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using Eigen::Vector2d;
using testing::Path;
using testing::RandomVec;
using testing::ScriptedEnvironment;
using Piece = BlendedPath::Piece;

double Largest(const Eigen::VectorXd& q) { return q.cwiseAbs().maxCoeff(); }

// By de Casteljau, apart from how the library evaluates its pieces.
Eigen::VectorXd OnCurve(Eigen::MatrixXd points, double u) {
  for (Eigen::Index n = points.cols() - 1; n > 0; --n) {
    for (Eigen::Index i = 0; i < n; ++i) {
      points.col(i) = ((1.0 - u) * points.col(i) + u * points.col(i + 1)).eval();
    }
  }
  return points.col(0);
}

// The largest coordinate of the way from a point to a segment, by samples of that.
double DistanceToSegment(const Eigen::VectorXd& q, const Eigen::VectorXd& a, const Eigen::VectorXd& b) {
  double nearest = testing::kInf;
  for (int i = 0; i <= 1000; ++i) {
    nearest = std::min(nearest, Largest(q - a - (b - a) * i / 1000.0));
  }
  return nearest;
}

TEST(BlendedPathTest, BlendsStayNearTheirCornersAndTakeHalfOfASegmentAtMost) {
  std::mt19937 engine(7);
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    Path path(4);
    for (Eigen::VectorXd& q : path) {
      q = RandomVec(engine, 3, -1.0, 1.0);
    }
    BlendOptions options;
    options.deviation = 0.02 * (1 + round % 20);
    options.is_smooth = round % 2 == 1;
    options.largest_share = round % 3 == 0 ? 0.3 : 0.5;
    options.top_speeds = Eigen::Vector3d(1.0, 3.0, 0.2);
    const BlendedPath blended = BlendPath(path, ScriptedEnvironment(3, {}), options);
    ASSERT_EQ(blended.Pieces().size(), 5u);
    EXPECT_EQ(blended.NumBlends(), 2u);
    double largest = 0.0;
    double share = 0.0;
    for (std::size_t i = 0; i < 5; ++i) {
      const Piece& piece = blended.Pieces()[i];
      const Eigen::MatrixXd points = piece.ControlPoints();
      const Eigen::Index last = points.cols() - 1;
      ASSERT_EQ(last, i % 2 == 0 ? 1 : options.is_smooth ? 4 : 2);
      // Directions are the derivatives, and do not jump.
      const auto degree = static_cast<double>(last) / piece.length;
      EXPECT_LT(Largest(degree * (points.col(1) - points.col(0)) - piece.direction_in), 1e-9);
      EXPECT_LT(Largest(degree * (points.col(last) - points.col(last - 1)) - piece.direction_out), 1e-9);
      if (i > 0) {
        EXPECT_EQ(piece.start, blended.Pieces()[i - 1].end);
        EXPECT_EQ(piece.direction_in, blended.Pieces()[i - 1].direction_out);
      }
      if (i % 2 == 1) {
        const Eigen::VectorXd& corner = path[(i + 1) / 2];
        for (int k = 0; k <= 20; ++k) {
          const Eigen::VectorXd q = OnCurve(points, k / 20.0);
          const double distance =
              std::min(DistanceToSegment(q, piece.start, corner), DistanceToSegment(q, corner, piece.end));
          EXPECT_LE(distance, options.deviation + 1e-9);
        }
        largest = Largest(OnCurve(points, 0.5) - corner);
        share = std::max((piece.start - corner).norm() / (corner - path[(i - 1) / 2]).norm(),
                         (piece.end - corner).norm() / (corner - path[(i + 3) / 2]).norm());
        EXPECT_LE(share, options.largest_share);
        // No smaller than it has to be.
        EXPECT_TRUE(largest > options.deviation - 1e-9 || share > options.largest_share - 1e-4)
            << largest << " " << share;
      }
    }
  }
}

TEST(BlendedPathTest, RepeatedCollinearAndTurningWaypoints) {
  struct Case {
    std::string name;
    Path path;
    double deviation;
    std::vector<std::size_t> stops;
    std::size_t num_pieces;
    std::size_t num_stops;
    // Of each waypoint.
    std::vector<std::size_t> pieces;
    std::vector<double> along;
  };
  const Vector2d a(0.0, 0.0), b(1.0, 0.0), c(1.0, 1.0), d(3.0, 0.0);
  const Case cases[] = {
      {"one", {a}, 0.1, {}, 0, 0, {0}, {0.0}},
      {"nowhere", {a, a, a}, 0.1, {}, 0, 0, {0, 0, 0}, {0.0, 0.0, 0.0}},
      {"repeated", {a, a, b, b, c, c}, 0.0, {}, 2, 1, {0, 0, 0, 0, 1, 1}, {0.0, 0.0, 1.0, 1.0, 1.0, 1.0}},
      {"blended", {a, b, b, c}, 0.05, {}, 3, 0, {0, 1, 0, 2}, {0.0, 0.2, 0.8, 0.8}},
      {"straight", {a, b, b, d}, 0.0, {}, 1, 0, {0, 0, 0, 0}, {0.0, 1.0, 1.0, 3.0}},
      {"back", {a, d, b}, 0.1, {}, 2, 1, {0, 0, 1}, {0.0, 3.0, 2.0}},
      {"nearly straight",
       {a, b, Vector2d(2.0, 5e-10), Vector2d(2.5, -5e-10), d},
       0.0,
       {},
       1,
       0,
       {0, 0, 0, 0, 0},
       {0.0, 1.0, 2.0, 2.5, 3.0}},
      {"ends where it ends",
       {a, d, b, Vector2d(1.0, 5e-10)},
       0.0,
       {},
       2,
       1,
       {0, 0, 1, 1},
       {0.0, 3.0, 2.0, 2.0}},
      {"told to stop", {a, b, b, d, c}, 0.05, {2, 4}, 4, 1, {0, 0, 0, 2, 3}, {0.0, 1.0, 1.0, 0.1, 1.9}},
  };
  for (const Case& item : cases) {
    SCOPED_TRACE(item.name);
    BlendOptions options;
    options.deviation = item.deviation;
    options.stops = item.stops;
    const BlendedPath blended = BlendPath(item.path, ScriptedEnvironment(2, {}), options);
    EXPECT_EQ(blended.Pieces().size(), item.num_pieces);
    EXPECT_EQ(blended.NumStops(), item.num_stops);
    for (std::size_t i = 0; i < item.path.size(); ++i) {
      EXPECT_EQ(blended.Places()[i].piece, item.pieces[i]) << i;
      EXPECT_NEAR(blended.Places()[i].along, item.along[i], 1e-8) << i;
    }
    EXPECT_EQ(blended.Start(), a);
    if (!blended.Pieces().empty()) {
      EXPECT_EQ(blended.Pieces().back().end, item.path.back());
    }
  }
}

TEST(BlendedPathTest, TightensWhatIsNotValidAndStopsWhereNothingIs) {
  const Path path = {Vector2d(0.0, 0.0), Vector2d(1.0, 0.0), Vector2d(1.0, 1.0)};
  BlendOptions options;
  options.deviation = 0.1;
  options.resolution = 1e-4;
  struct Case {
    // The corner is kept clear to this distance, measured along the diagonal.
    double free;
    std::size_t num_tightened;
    std::size_t num_stops;
    double reach;
  };
  // A parabola that begins at 0.4 has its middle at 0.1 from both lines.
  for (const Case& item :
       {Case{0.11, 0, 0, 0.4}, Case{0.06, 1, 0, 0.2}, Case{0.0016, 1, 0, 0.00625}, Case{0.0015, 0, 1, 0.0}}) {
    SCOPED_TRACE(item.free);
    const ScriptedEnvironment environment(
        2, {}, [&](const Eigen::VectorXd& q) { return std::min(1.0 - q[0], q[1]) <= item.free; });
    const BlendedPath blended = BlendPath(path, environment, options);
    EXPECT_EQ(blended.NumTightened(), item.num_tightened);
    EXPECT_EQ(blended.NumStops(), item.num_stops);
    EXPECT_NEAR(blended.Pieces().front().length, 1.0 - item.reach, 1e-12);
  }
}

}  // namespace
}  // namespace kavo::planning
