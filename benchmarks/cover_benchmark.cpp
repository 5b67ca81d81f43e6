// How many spheres cover meshes, and how long that takes: beside a greedy choice among random inner points
// and an even grid. Takes mesh files as arguments; without, shapes made here. Both opponents hold only the
// points that they are shown, so that they have it easier.

#include <Eigen/Geometry>
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "kavo/formats/mesh_file.h"
#include "kavo/world/shapes/sphere_cover.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace {

using kavo::TriangleMesh;
using Points = std::vector<Eigen::Vector3d>;

std::mt19937 engine(1);

double Uniform(double low, double high) {
  return low + (high - low) * (static_cast<double>(engine()) * 0x1p-32);
}

// Evenly over the surface.
Points SurfacePoints(const TriangleMesh& mesh, double spacing) {
  Points points;
  for (const TriangleMesh::Triangle& triangle : mesh.triangles()) {
    const Eigen::Vector3d& a = mesh.vertices()[triangle[0]];
    const Eigen::Vector3d b = mesh.vertices()[triangle[1]] - a;
    const Eigen::Vector3d c = mesh.vertices()[triangle[2]] - a;
    const double count = 1.0 + b.cross(c).norm() / 2.0 / (spacing * spacing);
    for (double i = Uniform(0.0, 1.0); i < count; i += 1.0) {
      double u = Uniform(0.0, 1.0);
      double v = Uniform(0.0, 1.0);
      if (u + v > 1.0) {
        u = 1.0 - u;
        v = 1.0 - v;
      }
      points.emplace_back(a + u * b + v * c);
    }
  }
  return points;
}

// The depth of a point in a closed mesh, and the negative distance outside.
double Depth(const TriangleMesh& mesh, const Eigen::Vector3d& point) {
  return mesh.contains(point) ? mesh.distance(point) : -mesh.distance(point);
}

// Balls with the largest radius that there may be, taken by how many more points they hold.
std::size_t Greedy(const TriangleMesh& mesh, const Points& centers, const Points& points, double tolerance) {
  std::vector<std::vector<std::size_t>> sets;
  for (const Eigen::Vector3d& center : centers) {
    const double radius = Depth(mesh, center) + tolerance;
    sets.emplace_back();
    for (std::size_t i = 0; i < points.size() && radius > 0.0; ++i) {
      if ((points[i] - center).squaredNorm() <= radius * radius) {
        sets.back().push_back(i);
      }
    }
  }
  std::vector<bool> is_held(points.size());
  std::size_t num_spheres = 0;
  while (true) {
    std::size_t best = 0;
    std::size_t most = 0;
    for (std::size_t i = 0; i < sets.size(); ++i) {
      auto& set = sets[i];
      set.erase(std::remove_if(set.begin(), set.end(), [&](std::size_t point) { return is_held[point]; }),
                set.end());
      if (set.size() > most) {
        most = set.size();
        best = i;
      }
    }
    if (most == 0) {
      break;
    }
    for (const std::size_t point : sets[best]) {
      is_held[point] = true;
    }
    ++num_spheres;
  }
  // What no centre holds takes one more each.
  return num_spheres + static_cast<std::size_t>(std::count(is_held.begin(), is_held.end(), false));
}

Points RandomInnerPoints(const TriangleMesh& mesh, const Points& surface, std::size_t count) {
  Eigen::AlignedBox3d box;
  for (const Eigen::Vector3d& vertex : mesh.vertices()) {
    box.extend(vertex);
  }
  Points centers;
  for (std::size_t tries = 0; centers.size() < count && tries < 100 * count; ++tries) {
    const Eigen::Vector3d share(Uniform(0.0, 1.0), Uniform(0.0, 1.0), Uniform(0.0, 1.0));
    const Eigen::Vector3d point = box.min() + share.cwiseProduct(box.sizes());
    if (mesh.contains(point)) {
      centers.push_back(point);
    }
  }
  for (std::size_t i = 0; i < count; ++i) {
    centers.push_back(surface[engine() % surface.size()]);
  }
  return centers;
}

// Cubes of an even grid that hold a point, each with a sphere around it that reaches no farther than the
// tolerance beyond a surface through it.
std::size_t Grid(const TriangleMesh& mesh, const Points& surface, double tolerance) {
  const double side = 2.0 * tolerance / std::sqrt(3.0);
  std::vector<std::array<long, 3>> cubes;
  const auto cube_of = [&](const Eigen::Vector3d& point) {
    return std::array<long, 3>{std::lround(point[0] / side), std::lround(point[1] / side),
                               std::lround(point[2] / side)};
  };
  Eigen::AlignedBox3d box;
  for (const Eigen::Vector3d& point : surface) {
    cubes.push_back(cube_of(point));
    box.extend(point);
  }
  const std::array<long, 3> low = cube_of(box.min());
  const std::array<long, 3> high = cube_of(box.max());
  for (long x = low[0]; x <= high[0]; ++x) {
    for (long y = low[1]; y <= high[1]; ++y) {
      for (long z = low[2]; z <= high[2]; ++z) {
        if (mesh.contains(side * Eigen::Vector3d(static_cast<double>(x), static_cast<double>(y),
                                                 static_cast<double>(z)))) {
          cubes.push_back({x, y, z});
        }
      }
    }
  }
  std::sort(cubes.begin(), cubes.end());
  return static_cast<std::size_t>(std::unique(cubes.begin(), cubes.end()) - cubes.begin());
}

// A box with bulging sides.
std::shared_ptr<const TriangleMesh> Barrel(int count) {
  Points vertices;
  std::vector<TriangleMesh::Triangle> triangles;
  const auto add = [&](double u, double v) {
    const double angle = 2.0 * M_PI * u;
    const double side = 0.05 * std::pow(1.0 - std::pow(std::fabs(v), 4.0), 0.25);
    vertices.emplace_back(side * std::cos(angle), side * std::sin(angle), 0.12 * v);
    return static_cast<std::uint32_t>(vertices.size() - 1);
  };
  for (int i = 0; i < count; ++i) {
    for (int j = 0; j < count; ++j) {
      const double u[2] = {static_cast<double>(i) / count, static_cast<double>((i + 1) % count) / count};
      const double v[2] = {2.0 * j / count - 1.0, 2.0 * (j + 1) / count - 1.0};
      triangles.push_back({add(u[0], v[0]), add(u[1], v[0]), add(u[1], v[1])});
      triangles.push_back({add(u[0], v[0]), add(u[1], v[1]), add(u[0], v[1])});
    }
  }
  return std::make_shared<const TriangleMesh>(vertices, triangles);
}

struct Total {
  std::size_t spheres = 0;
  std::size_t greedy = 0;
  std::size_t grid = 0;
  double seconds = 0.0;
};

void Measure(const std::string& name, const std::shared_ptr<const TriangleMesh>& mesh, double tolerance,
             Total& total) {
  const auto begin = std::chrono::steady_clock::now();
  const kavo::SphereCover cover = kavo::CoverBySpheres({{kavo::MeshObstacle{mesh}, {}}}, {tolerance, {}});
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  const Points surface = SurfacePoints(*mesh, 0.3 * tolerance);
  const Points centers = RandomInnerPoints(*mesh, surface, 3000);
  const std::size_t greedy = Greedy(*mesh, centers, surface, tolerance);
  const std::size_t grid = Grid(*mesh, surface, tolerance);
  // Independent of the proof: points that are in no sphere.
  const auto num_uncovered = std::count_if(surface.begin(), surface.end(), [&](const auto& point) {
    return std::none_of(cover.spheres.begin(), cover.spheres.end(), [&](const kavo::math::Sphere& sphere) {
      return (point - sphere.center).norm() <= sphere.radius * (1.0 + 1e-12);
    });
  });
  std::printf("%-12s %9zu %6.1f %8zu %7.1f %9ld %7.2f %8zu %8zu\n", name.c_str(), mesh->triangles().size(),
              1e3 * tolerance, cover.spheres.size(), 1e3 * cover.bulge, static_cast<long>(num_uncovered),
              seconds, greedy, grid);
  std::fflush(stdout);
  total.spheres += cover.spheres.size();
  total.greedy += greedy;
  total.grid += grid;
  total.seconds += seconds;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::pair<std::string, std::shared_ptr<const TriangleMesh>>> meshes;
  try {
    for (int i = 1; i < argc; ++i) {
      const std::string file = argv[i];
      if (file.rfind("--benchmark", 0) != 0) {
        meshes.emplace_back(file.substr(file.rfind('/') + 1), kavo::formats::ReadMesh(file));
      }
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  if (meshes.empty()) {
    meshes = {{"barrel", Barrel(24)}, {"fine barrel", Barrel(200)}};
  }
  std::printf("%-12s %9s %6s %8s %7s %9s %7s %8s %8s\n", "mesh", "triangles", "mm", "spheres", "bulge",
              "uncovered", "s", "greedy", "grid");
  for (const double tolerance : {0.02, 0.01, 0.005}) {
    Total total;
    for (const auto& [name, mesh] : meshes) {
      Measure(name, mesh, tolerance, total);
    }
    std::printf("%-12s %9s %6.1f %8zu %7s %9s %7.2f %8zu %8zu\n\n", "all", "", 1e3 * tolerance, total.spheres,
                "", "", total.seconds, total.greedy, total.grid);
  }
  return 0;
}
