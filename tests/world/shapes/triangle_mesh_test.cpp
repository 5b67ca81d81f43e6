#include "kavo/world/shapes/triangle_mesh.h"

#include <gmock/gmock.h>

#include <limits>

#include "kavo/util/fatal_error.h"

namespace kavo {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

TEST(TriangleMeshTest, JoinsWhatIsTheSameAndTellsOpenPiecesFromClosedOnes) {
  // A tetrahedron of four loose triangles, as STL has them: one turned over, one twice, and one that is a
  // line; and beside it a single triangle.
  const Eigen::Vector3d a(0.0, 0.0, 0.0);
  const Eigen::Vector3d b(1.0, 0.0, 0.0);
  const Eigen::Vector3d c(0.0, 1.0, 0.0);
  const Eigen::Vector3d d(-0.0, 0.0, 1.0);
  const Eigen::Vector3d far(5.0, 0.0, 0.0);
  const TriangleMesh mesh(
      {a, b, c, a, b, d, d, c, -a, b, c, d, far, far + c, far + d, c, b, a},
      {{0, 1, 2}, {3, 4, 5}, {12, 13, 14}, {6, 7, 8}, {9, 10, 11}, {15, 16, 17}, {0, 3, 1}});
  EXPECT_THAT(mesh.vertices(), ElementsAre(a, b, c, d, far, far + c, far + d));
  EXPECT_THAT(mesh.triangles(), SizeIs(5));
  EXPECT_THAT(mesh.pieces(), ElementsAre(0, 0, 1, 0, 0));
  ASSERT_EQ(mesh.numPieces(), 2u);
  EXPECT_TRUE(mesh.isPieceClosed(0));
  EXPECT_FALSE(mesh.isPieceClosed(1));
  EXPECT_EQ(mesh.numOpenEdges(), 3u);
}

TEST(TriangleMeshTest, RefusesWhatIsNoMesh) {
  const std::vector<Eigen::Vector3d> corners = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  EXPECT_THROW(TriangleMesh(corners, {}), util::FatalError);
  EXPECT_THROW(TriangleMesh(corners, {{0, 1, 3}}), util::FatalError);
  EXPECT_THROW(TriangleMesh(corners, {{0, 1, 1}}), util::FatalError);
  EXPECT_THROW(
      TriangleMesh({{0, 0, 0}, {1, 0, 0}, {0, std::numeric_limits<double>::infinity(), 0}}, {{0, 1, 2}}),
      util::FatalError);
}

}  // namespace
}  // namespace kavo
