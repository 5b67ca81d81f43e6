#include "kavo/world/world.h"

#include <pybind11/stl.h>

#include <Eigen/Geometry>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "bindings/python/records.h"
#include "bindings/python/world_view.h"
#include "kavo/math/pose3.h"
#include "kavo/world/shapes/octree.h"
#include "kavo/world/shapes/point_cloud.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::python {

namespace {

using Vector4 = Eigen::Vector4d;

Pose3 MakePose(const Vector4& rotation, const Eigen::Vector3d& translation) {
  return {Eigen::Quaterniond(rotation[3], rotation[0], rotation[1], rotation[2]), translation};
}

Vector4 RotationOf(const Pose3& pose) { return pose.rotation().coeffs(); }

// What another pose had, bit for bit: to scale its quaternion again could change the last bit.
Pose3 RestorePose(const Vector4& rotation, const Eigen::Vector3d& translation) {
  using Rotation = Eigen::Quaternion<double, Eigen::DontAlign>;
  // So that it begins with its first member.
  static_assert(std::is_standard_layout_v<Pose3> && sizeof(Pose3) == sizeof(Rotation) + sizeof(translation));
  Pose3 pose = Pose3::FromTranslation(translation);
  reinterpret_cast<Rotation&>(pose).coeffs() = rotation;
  return pose;
}

Eigen::Matrix4d MatrixOf(const Pose3& pose) {
  Eigen::Matrix4d matrix = Eigen::Matrix4d::Identity();
  matrix.topLeftCorner<3, 3>() = pose.matrix();
  matrix.topRightCorner<3, 1>() = pose.translation();
  return matrix;
}

std::string TextOf(const Pose3& pose) {
  std::ostringstream text;
  text.precision(std::numeric_limits<double>::max_digits10);
  const Vector4 r = RotationOf(pose);
  const Eigen::Vector3d& t = pose.translation();
  text << "Pose3(rotation=(" << r[0] << ", " << r[1] << ", " << r[2] << ", " << r[3] << "), translation=("
       << t[0] << ", " << t[1] << ", " << t[2] << "))";
  return text.str();
}

// Point by point, as numbers in coordinate order.
py::array_t<double> TransformPoints(const Pose3& pose, const Numbers& points) {
  if (points.ndim() == 1 && points.shape(0) == 3) {
    const auto point = points.unchecked<1>();
    return py::cast(Eigen::Vector3d(pose * Eigen::Vector3d(point(0), point(1), point(2))));
  }
  Configurations moved;
  for (const Eigen::Vector3d& point : ToPoints(points)) {
    moved.emplace_back(pose * point);
  }
  return ToArray(moved, 3);
}

void DefinePose(py::module_& module) {
  py::class_<Pose3>(module, "Pose3",
                    R"(A rigid transform of space: x -> R x + t, with R the rotation of a unit quaternion.

Immutable. Quaternions are x, y, z, w; translations are in metres. `a @ b` applies `b` first; `a @ points` transforms
points, (3,) or (N, 3).)")
      .def(py::init(&MakePose), py::arg("rotation") = Vector4(0.0, 0.0, 0.0, 1.0),
           py::arg("translation") = Eigen::Vector3d(0.0, 0.0, 0.0),
           "From a quaternion (x, y, z, w; scaled to unit length) and a translation (x, y, z; metres).")
      .def_static(
          "from_matrix",
          [](const Eigen::Matrix4d& matrix) {
            return Pose3::FromMatrix(matrix.topLeftCorner<3, 3>(), matrix.topRightCorner<3, 1>());
          },
          py::arg("matrix"), "From a homogeneous matrix (4, 4) of a proper rotation, which is not checked.")
      .def_property_readonly("rotation", &RotationOf, "The unit quaternion, x, y, z, w (4,).")
      .def_property_readonly(
          "translation", [](const Pose3& pose) { return Eigen::Vector3d(pose.translation()); },
          "Metres (3,).")
      .def_property_readonly("matrix", &MatrixOf, "The homogeneous matrix (4, 4).")
      .def("inverse", &Pose3::inverse, "The transform that undoes this one, to rounding.")
      .def(
          "__matmul__", [](const Pose3& a, const Pose3& b) { return a * b; }, py::arg("other"))
      .def("__matmul__", &TransformPoints, py::arg("points"))
      .def(
          "__eq__",
          [](const Pose3& a, const Pose3& b) {
            return RotationOf(a) == RotationOf(b) && a.translation() == b.translation();
          },
          py::is_operator())
      .def("__repr__", &TextOf)
      .def(py::pickle(
          [](const Pose3& pose) {
            Eigen::Matrix<double, 7, 1> state;
            state << RotationOf(pose), pose.translation();
            return py::make_tuple(py::bytes(reinterpret_cast<const char*>(state.data()), sizeof(double) * 7));
          },
          [](const py::tuple& state) {
            const std::string bytes = py::cast<std::string>(state[0]);
            if (bytes.size() != sizeof(double) * 7) {
              throw py::value_error("not the state of a pose");
            }
            Eigen::Matrix<double, 7, 1> numbers;
            std::memcpy(numbers.data(), bytes.data(), bytes.size());
            return RestorePose(numbers.head<4>(), numbers.tail<3>());
          }));
}

constexpr const char* kInteriors[] = {"if_closed", "solid", "empty"};

Interior ToInterior(const std::string& name) {
  for (const Interior interior : {Interior::kIfClosed, Interior::kSolid, Interior::kEmpty}) {
    if (name == kInteriors[static_cast<int>(interior)]) {
      return interior;
    }
  }
  throw py::value_error("unknown interior '" + name + "': it is 'if_closed', 'solid' or 'empty'");
}

MeshObstacle MakeMesh(const Numbers& vertices,
                      const py::array_t<std::int64_t, py::array::forcecast>& triangles,
                      const std::string& interior) {
  if (triangles.ndim() != 2 || triangles.shape(1) != 3) {
    throw py::value_error("expected triangles as an array of shape (N, 3)");
  }
  const auto indices = triangles.unchecked<2>();
  std::vector<TriangleMesh::Triangle> corners(static_cast<std::size_t>(triangles.shape(0)));
  for (py::ssize_t i = 0; i < triangles.shape(0); ++i) {
    for (py::ssize_t j = 0; j < 3; ++j) {
      const std::int64_t index = indices(i, j);
      if (index < 0 || index >= vertices.shape(0)) {
        throw py::value_error("triangle " + std::to_string(i) + " names vertex " + std::to_string(index) +
                              " of " + std::to_string(vertices.shape(0)));
      }
      corners[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)] = static_cast<std::uint32_t>(index);
    }
  }
  return {std::make_shared<const TriangleMesh>(ToPoints(vertices), corners), ToInterior(interior)};
}

py::array_t<double> PointArray(const std::vector<Eigen::Vector3d>& points) {
  return ToArray(Configurations(points.begin(), points.end()), 3);
}

py::array_t<std::int64_t> TriangleArray(const MeshObstacle& mesh) {
  const auto& triangles = mesh.mesh->triangles();
  py::array_t<std::int64_t> array({static_cast<py::ssize_t>(triangles.size()), py::ssize_t{3}});
  std::int64_t* out = array.mutable_data();
  for (const TriangleMesh::Triangle& triangle : triangles) {
    out = std::copy(triangle.begin(), triangle.end(), out);
  }
  return array;
}

std::vector<double> Broadcast(const Numbers& numbers, std::size_t count, const char* what) {
  if (numbers.ndim() == 0) {
    return std::vector<double>(count, *numbers.data());
  }
  if (numbers.ndim() != 1 || static_cast<std::size_t>(numbers.shape(0)) != count) {
    throw py::value_error(std::string("expected one number, or one for each, as ") + what);
  }
  const auto each = numbers.unchecked<1>();
  std::vector<double> values(count);
  for (std::size_t i = 0; i < count; ++i) {
    values[i] = each(static_cast<py::ssize_t>(i));
  }
  return values;
}

// Its own constructor's arguments are the state of a shape.
template <typename Shape, typename... Arguments, typename State>
auto Pickle(const State& state) {
  return py::pickle(state, [](const py::tuple& arguments) {
    if (arguments.size() != sizeof...(Arguments)) {
      throw py::value_error("not the state of a shape");
    }
    std::size_t i = 0;
    // In the order of the braces.
    return Shape{py::cast<Arguments>(arguments[i++])...};
  });
}

void DefineShapes(py::module_& module) {
  py::class_<SphereObstacle>(module, "Sphere", "A ball about the origin of its frame. Metres.")
      .def(py::init([](double radius) { return SphereObstacle{radius}; }), py::arg("radius"))
      .def_readonly("radius", &SphereObstacle::radius)
      .def(Pickle<SphereObstacle, double>([](const SphereObstacle& s) { return py::make_tuple(s.radius); }));
  py::class_<BoxObstacle>(module, "Box", "A box centred on the origin of its frame; full sides (3,), metres.")
      .def(py::init([](const Eigen::Vector3d& size) { return BoxObstacle{size}; }), py::arg("size"))
      .def_property_readonly("size", [](const BoxObstacle& s) { return Eigen::Vector3d(s.size); })
      .def(Pickle<BoxObstacle, Eigen::Vector3d>([](const BoxObstacle& s) { return py::make_tuple(s.size); }));
  py::class_<CylinderObstacle>(module, "Cylinder",
                               "About the z axis of its frame, centred on its origin. Metres.")
      .def(py::init([](double radius, double height) {
             return CylinderObstacle{radius, height};
           }),
           py::arg("radius"), py::arg("height"))
      .def_readonly("radius", &CylinderObstacle::radius)
      .def_readonly("height", &CylinderObstacle::height)
      .def(Pickle<CylinderObstacle, double, double>(
          [](const CylinderObstacle& s) { return py::make_tuple(s.radius, s.height); }));
  py::class_<CapsuleObstacle>(module, "Capsule",
                              "All within `radius` of a segment of length `height` on the z axis. Metres.")
      .def(py::init([](double radius, double height) {
             return CapsuleObstacle{radius, height};
           }),
           py::arg("radius"), py::arg("height"))
      .def_readonly("radius", &CapsuleObstacle::radius)
      .def_readonly("height", &CapsuleObstacle::height)
      .def(Pickle<CapsuleObstacle, double, double>(
          [](const CapsuleObstacle& s) { return py::make_tuple(s.radius, s.height); }));
  py::class_<HalfSpaceObstacle>(module, "HalfSpace",
                                "All points with z <= 0 in its frame, such as the floor.")
      .def(py::init<>())
      .def(Pickle<HalfSpaceObstacle>([](const HalfSpaceObstacle&) { return py::tuple(); }));
  py::class_<ConeObstacle>(module, "Cone",
                           "About the z axis, base at -height / 2, apex at height / 2. Metres.")
      .def(py::init([](double radius, double height) {
             return ConeObstacle{radius, height};
           }),
           py::arg("radius"), py::arg("height"))
      .def_readonly("radius", &ConeObstacle::radius)
      .def_readonly("height", &ConeObstacle::height)
      .def(Pickle<ConeObstacle, double, double>(
          [](const ConeObstacle& s) { return py::make_tuple(s.radius, s.height); }));
  py::class_<MeshObstacle>(module, "Mesh",
                           R"(Triangles. One mesh may stand for any number of obstacles: they share it.

Args:
    vertices: (V, 3), metres.
    triangles: (T, 3), indices of vertices.
    interior: "if_closed": the inside of pieces that are closed is solid; "solid": that of open surfaces too, as far as
        it can be told; "empty": nothing is.)")
      .def(py::init(&MakeMesh), py::arg("vertices"), py::arg("triangles"),
           py::arg("interior") = kInteriors[0])
      .def_property_readonly(
          "vertices", [](const MeshObstacle& s) { return PointArray(s.mesh->vertices()); }, "(V, 3), metres.")
      .def_property_readonly("triangles", &TriangleArray, "(T, 3), indices of vertices.")
      .def_property_readonly("interior",
                             [](const MeshObstacle& s) { return kInteriors[static_cast<int>(s.interior)]; })
      .def_property_readonly(
          "is_closed", [](const MeshObstacle& s) { return s.mesh->isClosed(); },
          "Whether all its pieces are closed.")
      .def(py::pickle(
          [](const MeshObstacle& s) {
            return py::make_tuple(PointArray(s.mesh->vertices()), TriangleArray(s),
                                  kInteriors[static_cast<int>(s.interior)]);
          },
          [](const py::tuple& state) {
            return MakeMesh(py::cast<Numbers>(state[0]),
                            py::cast<py::array_t<std::int64_t, py::array::forcecast>>(state[1]),
                            py::cast<std::string>(state[2]));
          }));
  const auto make_cloud = [](const Numbers& points, const Numbers& radius) {
    const std::vector<Eigen::Vector3d> at = ToPoints(points);
    return PointCloudObstacle{std::make_shared<const PointCloud>(at, Broadcast(radius, at.size(), "radius"))};
  };
  const auto cloud_radii = [](const PointCloudObstacle& s) {
    Eigen::VectorXd radii(static_cast<Eigen::Index>(s.cloud->points().size()));
    for (Eigen::Index i = 0; i < radii.size(); ++i) {
      radii[i] = s.cloud->radius(static_cast<std::size_t>(i));
    }
    return radii;
  };
  py::class_<PointCloudObstacle>(module, "PointCloud",
                                 "Points (N, 3) with a ball around each: one radius or (N,). Metres.")
      .def(py::init(make_cloud), py::arg("points"), py::arg("radius"))
      .def_property_readonly(
          "points", [](const PointCloudObstacle& s) { return PointArray(s.cloud->points()); },
          "(N, 3), metres.")
      .def_property_readonly("radii", cloud_radii, "(N,), metres.")
      .def(py::pickle(
          [cloud_radii](const PointCloudObstacle& s) {
            return py::make_tuple(PointArray(s.cloud->points()), cloud_radii(s));
          },
          [make_cloud](const py::tuple& state) {
            return make_cloud(py::cast<Numbers>(state[0]), py::cast<Numbers>(state[1]));
          }));
  const auto make_octree = [](const Numbers& centers, const Numbers& sizes) {
    const std::vector<Eigen::Vector3d> at = ToPoints(centers);
    const std::vector<double> edges = Broadcast(sizes, at.size(), "sizes");
    std::vector<Octree::Cell> cells;
    for (std::size_t i = 0; i < at.size(); ++i) {
      cells.push_back({at[i], edges[i]});
    }
    return OctreeObstacle{std::make_shared<const Octree>(std::move(cells))};
  };
  const auto centers_of = [](const OctreeObstacle& s) {
    Configurations centers;
    for (const Octree::Cell& cell : s.octree->cells()) {
      centers.emplace_back(cell.center);
    }
    return ToArray(centers, 3);
  };
  const auto sizes_of = [](const OctreeObstacle& s) {
    Eigen::VectorXd sizes(static_cast<Eigen::Index>(s.octree->cells().size()));
    for (Eigen::Index i = 0; i < sizes.size(); ++i) {
      sizes[i] = s.octree->cells()[static_cast<std::size_t>(i)].size;
    }
    return sizes;
  };
  py::class_<OctreeObstacle>(module, "Octree",
                             "Cubes along the axes: centres (N, 3), edges one or (N,). Metres.")
      .def(py::init(make_octree), py::arg("centers"), py::arg("sizes"))
      .def_property_readonly("centers", centers_of, "(N, 3), metres.")
      .def_property_readonly("sizes", sizes_of, "Edges (N,), metres.")
      .def(py::pickle([centers_of, sizes_of](
                          const OctreeObstacle& s) { return py::make_tuple(centers_of(s), sizes_of(s)); },
                      [make_octree](const py::tuple& state) {
                        return make_octree(py::cast<Numbers>(state[0]), py::cast<Numbers>(state[1]));
                      }));
}

std::vector<std::uint64_t> IdsOf(const World& world) {
  std::vector<std::uint64_t> ids;
  for (const ObstacleHandle obstacle : world.obstacles()) {
    ids.push_back(obstacle.id());
  }
  return ids;
}

py::tuple StateOf(const World& world) {
  py::list obstacles;
  for (const World::Obstacle& obstacle : world.describe()) {
    obstacles.append(
        py::make_tuple(obstacle.shape, obstacle.pose, obstacle.name, obstacle.is_enabled, obstacle.padding));
  }
  return py::make_tuple(obstacles);
}

World WorldFrom(const py::tuple& state) {
  World world;
  for (const py::handle item : state[0]) {
    const auto [shape, pose, name, is_enabled, padding] =
        py::cast<std::tuple<ObstacleShape, Pose3, std::string, bool, double>>(item);
    const ObstacleHandle obstacle = world.add(shape, pose, name);
    world.setPadding(obstacle, padding);
    if (!is_enabled) {
      world.disable(obstacle);
    }
  }
  return world;
}

void DefineWorldItself(py::module_& module) {
  const auto with_id = [](auto operation) {
    return [operation](World& world, std::uint64_t id) { return (world.*operation)(ObstacleHandle(id)); };
  };
  py::class_<World>(module, "World", R"(The obstacles around a robot. Metres, world coordinates.

Obstacles are known by ids, integers that are never used again. A world may be edited from any thread, also while others
plan: planners and views hold a snapshot until they are told to update. What a world does not know (a removed id, a size
that is not positive) is a `FatalError`, and changes nothing. A pickled world gives its obstacles new ids, in their
order.)")
      .def(py::init<>())
      .def(
          "add",
          [](World& world, const ObstacleShape& shape, const Pose3& pose, const std::string& name) {
            return world.add(shape, pose, name).id();
          },
          py::arg("shape"), py::arg("pose") = Pose3(), py::arg("name") = "",
          "Adds an obstacle, enabled, and returns its id. The pose maps its frame to the world.")
      .def(
          "move",
          [](World& world, std::uint64_t id, const Pose3& pose) { world.move(ObstacleHandle(id), pose); },
          py::arg("obstacle"), py::arg("pose"), "Places an obstacle anew.")
      .def("enable", with_id(&World::enable), py::arg("obstacle"), "Undoes `disable`.")
      .def("disable", with_id(&World::disable), py::arg("obstacle"),
           "It stays in the world but touches nothing.")
      .def("is_enabled", with_id(&World::isEnabled), py::arg("obstacle"), "Whether it can be touched.")
      .def(
          "set_padding",
          [](World& world, std::uint64_t id, double padding) {
            world.setPadding(ObstacleHandle(id), padding);
          },
          py::arg("obstacle"), py::arg("padding"), "Grows an obstacle by so much in every answer. Metres.")
      .def("padding", with_id(&World::padding), py::arg("obstacle"), "By how much it is grown, metres.")
      .def("remove", with_id(&World::remove), py::arg("obstacle"), "Takes it out of the world for good.")
      .def("shape", with_id(&World::shape), py::arg("obstacle"), "As it was added.")
      .def("pose", with_id(&World::pose), py::arg("obstacle"), "Maps its frame to the world.")
      .def("name", with_id(&World::name), py::arg("obstacle"), "As it was added; several may share one.")
      .def_property_readonly("obstacles", &IdsOf, "All ids in the order of adding, disabled ones included.")
      .def(
          "view", [](const World& world) { return std::make_unique<View>(world.view()); },
          "A view of the world as it is now, independent of all others.")
      .def("__len__", &World::numObstacles)
      .def("__contains__", with_id(&World::contains))
      .def(py::pickle(&StateOf, &WorldFrom));
}

// One answer for one ball, an array for a batch.
py::object InCollision(View& view, const Numbers& centers, const Numbers& radii) {
  if (centers.ndim() == 1 && centers.shape(0) == 3 && radii.ndim() == 0) {
    const auto center = centers.unchecked<1>();
    const std::lock_guard<std::mutex> lock(view.mutex);
    return py::bool_(view.view.inCollision({center(0), center(1), center(2)}, *radii.data()));
  }
  if (centers.ndim() != 2 || centers.shape(1) != 3) {
    throw py::value_error("expected centers as an array of shape (3,) or (N, 3)");
  }
  const py::ssize_t count = centers.shape(0);
  if (radii.ndim() > 1 || (radii.ndim() == 1 && radii.shape(0) != count)) {
    throw py::value_error("expected radii as one number or an array of shape (N,)");
  }
  py::array_t<bool> touches(count);
  bool* out = touches.mutable_data();
  const auto center = centers.unchecked<2>();
  const double* const radius = radii.data();
  const py::ssize_t stride = radii.ndim() == 0 ? 0 : radii.strides(0);
  {
    const py::gil_scoped_release released;
    const std::lock_guard<std::mutex> lock(view.mutex);
    for (py::ssize_t i = 0; i < count; ++i) {
      const double r = *reinterpret_cast<const double*>(reinterpret_cast<const char*>(radius) + i * stride);
      out[i] = view.view.inCollision({center(i, 0), center(i, 1), center(i, 2)}, r);
    }
  }
  return std::move(touches);
}

py::object NearestTo(View& view, const Numbers& points) {
  const std::vector<Eigen::Vector3d> at = ToPoints(points);
  const auto count = static_cast<py::ssize_t>(at.size());
  py::array_t<double> distances(count);
  py::array_t<std::int64_t> obstacles(count);
  double* distance = distances.mutable_data();
  std::int64_t* obstacle = obstacles.mutable_data();
  {
    const py::gil_scoped_release released;
    const std::lock_guard<std::mutex> lock(view.mutex);
    for (const Eigen::Vector3d& point : at) {
      const std::optional<WorldView::Nearest> nearest = view.view.nearestObstacle(point);
      const double none = point.allFinite() ? std::numeric_limits<double>::infinity() : std::nan("");
      *distance++ = nearest ? nearest->distance : none;
      *obstacle++ = nearest ? static_cast<std::int64_t>(nearest->obstacle.id()) : -1;
    }
  }
  return MakeRecord("Nearest", distances, obstacles);
}

void DefineView(py::module_& module) {
  py::class_<View>(module, "WorldView", R"(The enabled obstacles of a world as they were at the last `update`.

The world behind it may be edited by any thread. Made by `World.view`.)")
      .def(
          "update",
          [](View& view) {
            const py::gil_scoped_release released;
            const std::lock_guard<std::mutex> lock(view.mutex);
            view.view.update();
          },
          "Takes the world as it is now.")
      .def("in_collision", &InCollision, py::arg("centers"), py::arg("radii") = 0.0,
           R"(Which balls touch an obstacle.

Touching counts, and so does a ball that is not finite; a negative radius touches nothing.

Args:
    centers: (3,) or (N, 3), metres, in world coordinates. Read where they lie if they are doubles.
    radii: One for all, or (N,), metres.

Returns:
    A bool, or an array of bools (N,).)")
      .def("nearest", &NearestTo, py::arg("points"), R"(The obstacle nearest to each point.

Args:
    points: (N, 3), metres, in world coordinates.

Returns:
    A `Nearest`: signed distances (N,), negative inside, and ids of obstacles (N,). Infinity and -1 where there is no
    obstacle, NaN and -1 for a point that is not finite.)")
      .def(
          "name",
          [](View& view, std::uint64_t id) {
            const std::lock_guard<std::mutex> lock(view.mutex);
            return view.view.name(ObstacleHandle(id));
          },
          py::arg("obstacle"),
          "Also of an obstacle that was removed since; empty for one that it does not show.");
}

}  // namespace

void DefineWorld(py::module_& module) {
  DefinePose(module);
  DefineShapes(module);
  DefineWorldItself(module);
  DefineView(module);
}

}  // namespace kavo::python
