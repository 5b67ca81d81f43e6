// Sphere queries against a world, compared with a reference: a list of shapes with a virtual test each.
//
// Each benchmark of a scene reports the time of one query; the lines that start with "ratio" say how many
// times faster the world answers the same queries than the list does, and than FCL does among meshes, clouds
// and octrees, where it is there. The program ends with an error if an answer differs.

#include <benchmark/benchmark.h>

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/compounds.h"
#include "benchmarks/ratio.h"
#include "kavo/math/pose3.h"
#include "kavo/math/rigid_transform.h"
#include "kavo/world/world.h"

namespace {

using kavo::Pose3;

struct Query {
  Eigen::Vector3d center;
  double radius;
};

class Shape {
 public:
  explicit Shape(const Pose3& pose) : to_local_(pose.inverse()) {}
  virtual ~Shape() = default;
  virtual bool inCollision(const Eigen::Vector3d& center, double radius) const = 0;

 protected:
  Eigen::Vector3d local(const Eigen::Vector3d& point) const { return to_local_ * point; }

 private:
  kavo::math::RigidTransform to_local_;
};

class Ball : public Shape {
 public:
  Ball(const Pose3& pose, double radius) : Shape(pose), center_(pose.translation()), radius_(radius) {}
  bool inCollision(const Eigen::Vector3d& center, double radius) const override {
    return (center - center_).squaredNorm() <= (radius_ + radius) * (radius_ + radius);
  }

 private:
  Eigen::Vector3d center_;
  double radius_;
};

class Box : public Shape {
 public:
  Box(const Pose3& pose, const Eigen::Vector3d& size) : Shape(pose), half_(0.5 * size) {}
  bool inCollision(const Eigen::Vector3d& center, double radius) const override {
    const Eigen::Vector3d outside = (local(center).cwiseAbs() - half_).cwiseMax(0.0);
    return outside.squaredNorm() <= radius * radius;
  }

 private:
  Eigen::Vector3d half_;
};

class Cylinder : public Shape {
 public:
  Cylinder(const Pose3& pose, double radius, double height)
      : Shape(pose), radius_(radius), half_(0.5 * height) {}
  bool inCollision(const Eigen::Vector3d& center, double radius) const override {
    const Eigen::Vector3d p = local(center);
    const double side = std::max(std::sqrt(p[0] * p[0] + p[1] * p[1]) - radius_, 0.0);
    const double end = std::max(std::fabs(p[2]) - half_, 0.0);
    return side * side + end * end <= radius * radius;
  }

 private:
  double radius_;
  double half_;
};

class HalfSpace : public Shape {
 public:
  using Shape::Shape;
  bool inCollision(const Eigen::Vector3d& center, double radius) const override {
    return local(center)[2] <= radius;
  }
};

struct Scene {
  std::string name;
  kavo::World world;
  std::vector<std::unique_ptr<Shape>> shapes;
  std::vector<Query> queries;

  void addBox(const Pose3& pose, const Eigen::Vector3d& size) {
    world.add(kavo::BoxObstacle{size}, pose);
    shapes.push_back(std::make_unique<Box>(pose, size));
  }
  void addBall(const Pose3& pose, double radius) {
    world.add(kavo::SphereObstacle{radius}, pose);
    shapes.push_back(std::make_unique<Ball>(pose, radius));
  }
  void addCylinder(const Pose3& pose, double radius, double height) {
    world.add(kavo::CylinderObstacle{radius, height}, pose);
    shapes.push_back(std::make_unique<Cylinder>(pose, radius, height));
  }
  void addFloor() {
    world.add(kavo::HalfSpaceObstacle{}, Pose3::Identity());
    shapes.push_back(std::make_unique<HalfSpace>(Pose3::Identity()));
  }

  bool inCollisionByList(const Query& query) const {
    return std::any_of(shapes.begin(), shapes.end(), [&query](const std::unique_ptr<Shape>& shape) {
      return shape->inCollision(query.center, query.radius);
    });
  }
};

class Random {
 public:
  double operator()(double low, double high) {
    return low + (high - low) * static_cast<double>(engine_()) * 0x1p-32;
  }
  Pose3 turned(const Eigen::Vector3d& position) {
    const double angle = (*this)(-3.1, 3.1);
    return Pose3(Eigen::Quaterniond(std::cos(0.5 * angle), 0.0, 0.0, std::sin(0.5 * angle)), position);
  }

 private:
  std::mt19937 engine_{7};
};

// Shelves of five boards and two sides beside each other on a floor, goods on the boards. The queries are
// balls as an arm's links carry them, in the space in front of and between the boards.
Scene Shelves(std::size_t num_obstacles, std::size_t num_queries) {
  constexpr double kWidth = 1.0;
  constexpr double kDepth = 0.4;
  constexpr double kStorey = 0.4;
  constexpr std::size_t kGoods = 13;
  Random random;
  Scene scene;
  scene.name = std::to_string(num_obstacles) + " obstacles";
  scene.addFloor();
  std::size_t shelf = 0;
  const std::size_t shelves_in_row = std::max<std::size_t>(
      1, static_cast<std::size_t>(std::sqrt(static_cast<double>(num_obstacles) / 20.0)));
  for (; scene.shapes.size() < num_obstacles; ++shelf) {
    const std::size_t row = shelf / shelves_in_row;
    const Eigen::Vector3d corner(static_cast<double>(shelf % shelves_in_row) * (kWidth + 0.1),
                                 static_cast<double>(row) * 2.0, 0.0);
    for (int board = 0; board < 4; ++board) {
      scene.addBox(Pose3::FromTranslation(corner + Eigen::Vector3d(0.0, 0.0, kStorey * (board + 1))),
                   {kWidth, kDepth, 0.02});
    }
    for (const double side : {-0.5, 0.5}) {
      scene.addBox(Pose3::FromTranslation(corner + Eigen::Vector3d(side * kWidth, 0.0, 1.0)),
                   {0.02, kDepth, 2.0});
    }
    for (std::size_t good = 0; good < kGoods && scene.shapes.size() < num_obstacles; ++good) {
      const double storey = kStorey * static_cast<double>(1 + good % 4);
      const Eigen::Vector3d place =
          corner + Eigen::Vector3d{random(-0.4, 0.4), random(-0.15, 0.15), storey + 0.09};
      if (good % 3 == 0) {
        scene.addBox(random.turned(place), {0.08, 0.12, 0.16});
      } else if (good % 3 == 1) {
        scene.addCylinder(random.turned(place), 0.04, 0.16);
      } else {
        scene.addBall(random.turned(place), 0.06);
      }
    }
  }
  const std::size_t num_rows = (shelf + shelves_in_row - 1) / shelves_in_row;
  const auto rows = static_cast<double>(num_rows);
  for (std::size_t i = 0; i < num_queries; ++i) {
    const double x = random(-0.6, static_cast<double>(shelves_in_row) * (kWidth + 0.1) - 0.5);
    const double y = random(-0.8, (rows - 1.0) * 2.0 + 0.8);
    scene.queries.push_back({{x, y, random(0.05, 2.0)}, random(0.02, 0.12)});
  }
  return scene;
}

// Thin bars in all directions through one region: boxes along the world's axes tell little here.
Scene Bars(std::size_t num_obstacles, std::size_t num_queries) {
  Random random;
  Scene scene;
  scene.name = std::to_string(num_obstacles) + " crossing bars";
  while (scene.shapes.size() < num_obstacles) {
    const Eigen::Quaterniond turn{random(-1.0, 1.0), random(-1.0, 1.0), random(-1.0, 1.0), random(-1.0, 1.0)};
    scene.addBox(Pose3(turn, {random(-0.7, 0.7), random(-0.7, 0.7), random(-0.7, 0.7)}), {0.02, 0.02, 2.0});
  }
  for (std::size_t i = 0; i < num_queries; ++i) {
    scene.queries.push_back({{random(-1.0, 1.0), random(-1.0, 1.0), random(-1.0, 1.0)}, random(0.02, 0.12)});
  }
  return scene;
}

template <typename Test>
void Run(benchmark::State& state, const Scene& scene, const Test& test) {
  std::size_t hits = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (const Query& query : scene.queries) {
      hits += test(query) ? 1 : 0;
    }
  }
  benchmark::DoNotOptimize(hits);
  state.counters["per_query"] =
      benchmark::Counter(static_cast<double>(scene.queries.size()),
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Seconds for all queries of the scene: the best of several rounds, so that a disturbance does not count.
template <typename Test>
double BestTime(const Scene& scene, const Test& test) {
  double best = 1.0e9;
  for (int round = 0; round < 20; ++round) {
    const auto start = std::chrono::steady_clock::now();
    std::size_t hits = 0;
    for (int repeat = 0; repeat < 5; ++repeat) {
      for (const Query& query : scene.queries) {
        hits += test(query) ? 1 : 0;
      }
    }
    benchmark::DoNotOptimize(hits);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    best = std::min(best, elapsed.count() / 5.0);
  }
  return best;
}

// Prints the comparison; false if an answer differs.
bool Compare(const Scene& scene) {
  const kavo::WorldView view = scene.world.view();
  const auto by_world = [&view](const Query& query) { return view.inCollision(query.center, query.radius); };
  const auto by_list = [&scene](const Query& query) { return scene.inCollisionByList(query); };
  // Contact by way of the nearest obstacle, which has no reach to end early at.
  const auto by_nearest = [&view](const Query& query) {
    return view.nearestObstacle(query.center)->distance <= query.radius;
  };
  std::size_t hits = 0;
  for (const Query& query : scene.queries) {
    if (by_world(query) != by_list(query) || by_nearest(query) != by_list(query)) {
      std::fprintf(stderr, "%s: world and list differ\n", scene.name.c_str());
      return false;
    }
    hits += by_list(query) ? 1 : 0;
  }
  const double world_time = BestTime(scene, by_world);
  const double list_time = BestTime(scene, by_list);
  const auto count = static_cast<double>(scene.queries.size());
  const double nearest_time = BestTime(scene, by_nearest);
  std::printf(
      "ratio %6.2f  %-24s world %7.1f ns, list %9.1f ns a query, %4.1f %% in collision; nearest %7.1f ns\n",
      list_time / world_time, scene.name.c_str(), world_time / count * 1.0e9, list_time / count * 1.0e9,
      100.0 * static_cast<double>(hits) / count, nearest_time / count * 1.0e9);
  return true;
}

// Random obstacles of many are edited, one by one, and a view brought up to date each time; against a
// snapshot of all obstacles made anew. False if the view then answers unlike one of a world that never saw an
// edit.
bool CompareEdits(std::size_t num_obstacles) {
  const Scene scene = Shelves(num_obstacles, 500);
  kavo::World world = scene.world;
  kavo::WorldView view = world.view();
  std::vector<kavo::ObstacleHandle> obstacles = world.obstacles();
  Random random;
  // The floor comes first and stays.
  const auto any = [&] {
    return obstacles[static_cast<std::size_t>(random(1.0, static_cast<double>(obstacles.size())))];
  };
  const auto move_by = [&](double reach) {
    const kavo::ObstacleHandle obstacle = any();
    const Eigen::Vector3d shift{random(-reach, reach), random(-reach, reach), random(-reach, reach)};
    const Pose3 pose = world.pose(obstacle);
    world.move(obstacle, Pose3(pose.rotation(), pose.translation() + shift));
    view.update();
  };
  double anew = 1.0;
  for (int i = 0; i < 10; ++i) {
    const kavo::World fresh = Shelves(num_obstacles, 0).world;
    const auto begin = std::chrono::steady_clock::now();
    fresh.view();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    anew = std::min(anew, elapsed.count());
  }
  const std::string of = " one of " + std::to_string(num_obstacles);
  const std::string name = "move" + of;
  kavo::benchmarks::PrintRatio(name + ", by up to 0.1 m",
                               kavo::benchmarks::BestSeconds([&] { move_by(0.1); }), anew);
  // Now and then these make a new snapshot, so that the mean counts.
  const auto print_mean = [&](const std::string& what, const auto& edit) {
    constexpr int kNumEdits = 20000;
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < kNumEdits; ++i) {
      edit();
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    kavo::benchmarks::PrintRatio(what, elapsed.count() / kNumEdits, anew);
  };
  print_mean(name + ", by up to 3 m, mean", [&] { move_by(3.0); });
  print_mean("disable or enable" + of + ", mean", [&] {
    const kavo::ObstacleHandle obstacle = any();
    if (world.isEnabled(obstacle)) {
      world.disable(obstacle);
    } else {
      world.enable(obstacle);
    }
    view.update();
  });
  print_mean("take out" + of + " and put it back, mean", [&] {
    const auto place = static_cast<std::size_t>(random(1.0, static_cast<double>(obstacles.size())));
    const kavo::ObstacleShape shape = world.shape(obstacles[place]);
    const Pose3 pose = world.pose(obstacles[place]);
    world.remove(obstacles[place]);
    view.update();
    obstacles[place] = world.add(shape, pose);
    view.update();
  });
  kavo::World copy;
  for (const kavo::ObstacleHandle obstacle : obstacles) {
    if (world.isEnabled(obstacle)) {
      copy.add(world.shape(obstacle), world.pose(obstacle));
    }
  }
  const kavo::WorldView other = copy.view();
  return std::all_of(scene.queries.begin(), scene.queries.end(), [&](const Query& query) {
    return view.inCollision(query.center, query.radius) == other.inCollision(query.center, query.radius) &&
           view.nearestObstacle(query.center)->distance == other.nearestObstacle(query.center)->distance;
  });
}

// What it takes to make a shape of very many parts from memory and to have it answer, to move it and to ask
// about balls next to it.
bool CompareCompound(const std::string& name, const std::vector<Query>& queries,
                     const std::function<kavo::ObstacleShape()>& make) {
  std::optional<kavo::ObstacleShape> shape;
  double made = 1e9;
  for (int i = 0; i < 5; ++i) {
    shape.reset();
    const auto begin = std::chrono::steady_clock::now();
    shape = make();
    kavo::World world;
    world.add(*shape, Pose3());
    benchmark::DoNotOptimize(world.view().inCollision(queries.front().center, queries.front().radius));
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    made = std::min(made, elapsed.count());
  }
  kavo::World world;
  const kavo::ObstacleHandle handle = world.add(*shape, Pose3());
  kavo::WorldView view = world.view();
  const double moved = kavo::benchmarks::BestSeconds([&] {
    world.move(handle, Pose3());
    view.update();
  });
  const auto of_all = [&](const auto& ask) {
    return kavo::benchmarks::BestSeconds([&] {
             for (const Query& query : queries) {
               benchmark::DoNotOptimize(ask(query));
             }
           }) /
           static_cast<double>(queries.size());
  };
  const auto touches = [&](const Query& query) { return view.inCollision(query.center, query.radius); };
  const auto nearest = [&](const Query& query) { return view.nearestObstacle(query.center)->distance; };
  const auto num_touching = std::count_if(queries.begin(), queries.end(), touches);
  const double touch_seconds = of_all(touches);
  std::printf(
      "%-28s made in %8.2f ms, moved in %6.0f ns; a ball %7.1f ns (%ld of %zu touch), nearest %8.1f ns\n",
      name.c_str(), made * 1e3, moved * 1e9, touch_seconds * 1e9, static_cast<long>(num_touching),
      queries.size(), of_all(nearest) * 1e9);
  for (const Query& query : queries) {
    if (touches(query) != (nearest(query) <= query.radius)) {
      std::fprintf(stderr, "%s: contact and distance differ\n", name.c_str());
      return false;
    }
  }
#ifdef KAVO_BENCHMARK_FCL
  kavo::benchmarks::FclCompound fcl(*shape);
  const auto by_fcl = [&](const Query& query) { return fcl.touches(query.center, query.radius); };
  kavo::benchmarks::PrintRatio(name + ", a ball, FCL", touch_seconds, of_all(by_fcl));
#endif
  return true;
}

bool CompareCompounds() {
  Random random;
  const auto balls = kavo::benchmarks::BumpyBalls(60, {}, random);
  std::vector<Query> queries;
  for (int i = 0; i < 500; ++i) {
    const kavo::benchmarks::BumpyBall& ball = balls[static_cast<std::size_t>(i) % balls.size()];
    const Eigen::Vector3d place = ball.at(random(-1.0, 1.0), random(-3.1, 3.1)) - ball.center;
    queries.push_back({ball.center + place * random(0.95, 1.6), random(0.02, 0.08)});
  }
  bool is_right = true;
  for (const std::size_t count : {1000U, 100000U}) {
    is_right = CompareCompound("mesh, about " + std::to_string(count) + " triangles", queries,
                               [&] { return kavo::benchmarks::MeshOf(balls, count); }) &&
               is_right;
  }
  for (const std::size_t count : {10000U, 100000U, 1000000U}) {
    const std::vector<Eigen::Vector3d> points = kavo::benchmarks::PointsOn(balls, count, random);
    const auto make = [&] {
      return kavo::PointCloudObstacle{std::make_shared<const kavo::PointCloud>(points, 0.005)};
    };
    is_right = CompareCompound("cloud, " + std::to_string(count) + " points", queries, make) && is_right;
  }
  const std::vector<kavo::Octree::Cell> cells =
      kavo::benchmarks::OctreeOf(kavo::benchmarks::PointsOn(balls, 3000000, random), 0.01).octree->cells();
  return CompareCompound("octree, " + std::to_string(cells.size()) + " leaves", queries,
                         [&] { return kavo::OctreeObstacle{std::make_shared<const kavo::Octree>(cells)}; }) &&
         is_right;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }

  std::vector<Scene> scenes;
  scenes.push_back(Shelves(20, 500));
  scenes.push_back(Shelves(100, 500));
  scenes.push_back(Shelves(10000, 500));
  scenes.push_back(Bars(20, 500));
  scenes.push_back(Bars(100, 500));
  for (const Scene& scene : scenes) {
    benchmark::RegisterBenchmark(("world, " + scene.name).c_str(), [&scene](benchmark::State& state) {
      const kavo::WorldView view = scene.world.view();
      Run(state, scene, [&view](const Query& query) { return view.inCollision(query.center, query.radius); });
    });
    benchmark::RegisterBenchmark(("list, " + scene.name).c_str(), [&scene](benchmark::State& state) {
      Run(state, scene, [&scene](const Query& query) { return scene.inCollisionByList(query); });
    });
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  bool equal = CompareCompounds();
  equal = std::all_of(scenes.begin(), scenes.end(), Compare) && equal;
  for (const std::size_t num_obstacles : {100U, 10000U}) {
    if (!CompareEdits(num_obstacles)) {
      std::fprintf(stderr, "%zu obstacles: a world with edited ones answers differently\n", num_obstacles);
      equal = false;
    }
  }
  return equal ? 0 : 1;
}
