// Validity checks and a whole query of the Franka arm at the shelf, against a reference environment: every
// frame walks the chain from the base, and every sphere asks a list of obstacles by a virtual call each.
// Answers are compared.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>

#include "benchmarks/ratio.h"
#include "examples/shelf.h"
#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/math/bounding_sphere.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/rrt/rrt_connect.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/util/log.h"

namespace {

using namespace kavo::planning;

constexpr double kStep = 0.1;

class Obstacle {
 public:
  virtual ~Obstacle() = default;
  virtual bool touches(const Eigen::Vector3d& center, double radius) const = 0;
};

class BoxOfAxes : public Obstacle {
 public:
  BoxOfAxes(const Eigen::Vector3d& center, const Eigen::Vector3d& size)
      : center_(center), half_(size / 2.0) {}
  bool touches(const Eigen::Vector3d& center, double radius) const override {
    const Eigen::Vector3d outside = ((center - center_).cwiseAbs() - half_).cwiseMax(0.0);
    return outside.norm() <= radius;
  }

 private:
  Eigen::Vector3d center_;
  Eigen::Vector3d half_;
};

class Floor : public Obstacle {
 public:
  explicit Floor(double height) : height_(height) {}
  bool touches(const Eigen::Vector3d& center, double radius) const override {
    return center.z() - height_ <= radius;
  }

 private:
  double height_;
};

class ReferenceEnvironment : public Environment {
 public:
  explicit ReferenceEnvironment(const RobotEnvironmentConfig& config)
      : kinematics_(config.Kinematics()),
        limits_(config.JointLimits()),
        sampler_(CreateRobotEnvironment(config)) {
    for (const std::string& name : config.FrameNames()) {
      const auto spheres = config.CollisionSpheres(name);
      frames_.push_back({kinematics_->frame(name), spheres,
                         kavo::math::ComputeBoundingSphere(spheres, kavo::math::SebbMethod::kSmallest)});
    }
    std::sort(frames_.begin(), frames_.end(),
              [](const Frame& a, const Frame& b) { return a.handle.index() > b.handle.index(); });
    for (const kavo::examples::Board& board : kavo::examples::ShelfBoards()) {
      obstacles_.push_back(std::make_unique<BoxOfAxes>(board.center, board.size));
    }
    obstacles_.push_back(std::make_unique<Floor>(kavo::examples::kFloorHeight));
  }

  int CSpaceDimension() const override { return static_cast<int>(limits_.Dimension()); }
  const kavo::kinematics::ConfigurationLimits& CSpaceCoordLimits() const override { return limits_; }
  const DistanceMetric& CSpaceDistanceMetric() const override { return metric_; }
  std::optional<Eigen::VectorXd> SampleConfiguration() const override {
    return sampler_->SampleConfiguration();
  }

  bool IsValidConfiguration(const Eigen::VectorXd& q) const override {
    if ((q.array() < limits_.Min().array()).any() || (q.array() > limits_.Max().array()).any()) {
      return false;
    }
    for (const Frame& frame : frames_) {
      const kavo::Pose3 pose = kinematics_->pose(q, frame.handle);
      if (!touches(pose * frame.bounding_sphere.center, frame.bounding_sphere.radius)) {
        continue;
      }
      for (const kavo::math::Sphere& sphere : frame.spheres) {
        if (touches(pose * sphere.center, sphere.radius)) {
          return false;
        }
      }
    }
    return true;
  }

 private:
  struct Frame {
    kavo::Kinematics::FrameHandle handle;
    std::vector<kavo::math::Sphere> spheres;
    kavo::math::Sphere bounding_sphere;
  };

  bool touches(const Eigen::Vector3d& center, double radius) const {
    return std::any_of(obstacles_.begin(), obstacles_.end(),
                       [&](const auto& obstacle) { return obstacle->touches(center, radius); });
  }

  std::shared_ptr<kavo::Kinematics> kinematics_;
  kavo::kinematics::ConfigurationLimits limits_;
  DistanceMetric metric_ = L2Norm;
  std::shared_ptr<RobotEnvironment> sampler_;
  std::vector<Frame> frames_;
  std::vector<std::unique_ptr<Obstacle>> obstacles_;
};

RobotEnvironmentConfig Config() {
  return BuildFrankaRobotEnvironmentConfig(kavo::examples::MakeShelf().view(), Eigen::VectorXd::Ones(7), 100,
                                           1);
}

std::vector<Eigen::VectorXd> Query(const std::shared_ptr<Environment>& environment) {
  std::unique_ptr<Tree> start_tree = CreateBasicTree(7, L2Norm, false);
  std::unique_ptr<Tree> goal_tree = CreateBasicTree(7, L2Norm, false);
  const auto planner = CreateRRTConnect({kStep, 10000, 0.5}, environment, start_tree, goal_tree);
  const auto nodes = planner->TryToFindPath(kavo::examples::ShelfStart(), kavo::examples::ShelfGoal());
  return nodes ? ShortCircuitPath(ConvertToConfigurations(*nodes), environment, kStep, 20, 42948)
               : std::vector<Eigen::VectorXd>{};
}

// Times both environments on each configuration of the list, after comparing their answers.
bool CompareChecks(const char* name, const Environment& ours, const Environment& reference,
                   const std::vector<Eigen::VectorXd>& configurations) {
  for (const Eigen::VectorXd& q : configurations) {
    if (ours.IsValidConfiguration(q) != reference.IsValidConfiguration(q)) {
      std::fprintf(stderr, "%s: answers differ\n", name);
      return false;
    }
  }
  const auto seconds = [&configurations](const Environment& environment) {
    return kavo::benchmarks::BestSeconds([&] {
      for (const Eigen::VectorXd& q : configurations) {
        benchmark::DoNotOptimize(environment.IsValidConfiguration(q));
      }
    });
  };
  kavo::benchmarks::PrintRatio(name, seconds(ours), seconds(reference),
                               static_cast<double>(configurations.size()));
  return true;
}

// Queries to 200 random positions that the tool can reach, all from one start: how many are solved, how fast,
// and how near to the target the path ends. Every path's end is looked at through the kinematics.
void PrintPositionQueries(double zone_tolerance) {
  const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadFrankaRobotDescription();
  const auto environment = CreateRobotEnvironment(Config());
  const auto planner = kavo::CreateMotionPlanner(robot, kavo::examples::MakeShelf().view());
  planner->setParam("task_space_planning_params/x_target_zone_tolerance",
                    Eigen::Vector3d(Eigen::Vector3d::Constant(zone_tolerance)));
  constexpr std::size_t kNumQueries = 200;
  std::vector<double> milliseconds;
  std::vector<double> errors;
  std::size_t num_within = 0;
  while (milliseconds.size() < kNumQueries) {
    const Eigen::Vector3d target = environment->TaskSpacePosition(*environment->SampleConfiguration());
    const auto results = planner->planToTaskSpaceTarget(kavo::examples::ShelfStart(), target, false);
    const kavo::QueryReport report = planner->queryReport();
    milliseconds.push_back((report.search_seconds + report.shortening_seconds) * 1e3);
    if (results.path_found) {
      errors.push_back((environment->TaskSpacePosition(results.path.back()) - target).norm());
      num_within += errors.back() <= 1e-5 ? 1 : 0;
    }
  }
  std::sort(milliseconds.begin(), milliseconds.end());
  std::sort(errors.begin(), errors.end());
  const auto quantile = [](const std::vector<double>& sorted, double q) {
    return sorted[static_cast<std::size_t>(q * static_cast<double>(sorted.size() - 1))];
  };
  std::printf("positions, zone %.2f m: %zu of %zu found, %zu of them within 1e-5 m\n", zone_tolerance,
              errors.size(), kNumQueries, num_within);
  std::printf("  time  median %8.2f ms, 95th percentile %8.2f ms, longest %8.2f ms\n",
              quantile(milliseconds, 0.5), quantile(milliseconds, 0.95), milliseconds.back());
  std::printf("  error median %8.1e m, 95th percentile %8.1e m, largest %8.1e m\n", quantile(errors, 0.5),
              quantile(errors, 0.95), errors.back());
}

void FreeCheck(benchmark::State& state) {
  const auto environment = CreateRobotEnvironment(Config());
  const Eigen::VectorXd q = kavo::examples::ShelfGoal();
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(environment->IsValidConfiguration(q));
  }
}
BENCHMARK(FreeCheck)->Name("free check, hand in the shelf");

void DemoQuery(benchmark::State& state) {
  const auto config = Config();
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(Query(CreateRobotEnvironment(config)));
  }
}
BENCHMARK(DemoQuery)->Name("demo query, planner made anew")->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  const auto config = Config();
  const auto ours = CreateRobotEnvironment(config);
  const auto reference = std::make_shared<ReferenceEnvironment>(config);
  std::vector<Eigen::VectorXd> free_configurations;
  std::vector<Eigen::VectorXd> colliding_configurations;
  const auto& limits = ours->CSpaceCoordLimits();
  std::mt19937 engine(3);
  while (free_configurations.size() < 200 || colliding_configurations.size() < 200) {
    Eigen::VectorXd q(7);
    for (Eigen::Index i = 0; i < 7; ++i) {
      q[i] = limits.Min()[i] + static_cast<double>(engine()) / 4294967295.0 * limits.Range()[i];
    }
    auto& list = ours->IsValidConfiguration(q) ? free_configurations : colliding_configurations;
    if (list.size() < 200) {
      list.push_back(q);
    }
  }
  bool equal =
      CompareChecks("free check, hand in the shelf", *ours, *reference, {kavo::examples::ShelfGoal()});
  equal &= CompareChecks("free check, 200 random configurations", *ours, *reference, free_configurations);
  equal &= CompareChecks("colliding check, 200 random configurations", *ours, *reference,
                         colliding_configurations);

  if (Query(CreateRobotEnvironment(config)) != Query(std::make_shared<ReferenceEnvironment>(config))) {
    std::fprintf(stderr, "demo query: paths differ\n");
    equal = false;
  }
  kavo::benchmarks::PrintRatio(
      "demo query with shortening",
      kavo::benchmarks::BestSeconds([&] { benchmark::DoNotOptimize(Query(CreateRobotEnvironment(config))); }),
      kavo::benchmarks::BestSeconds(
          [&] { benchmark::DoNotOptimize(Query(std::make_shared<ReferenceEnvironment>(config))); }));
  // The notices about accelerator trees and unfinished refinements would drown the figures.
  kavo::util::log_level_threshold = 0;
  for (const double zone_tolerance : {0.01, 0.03, 0.05}) {
    PrintPositionQueries(zone_tolerance);
  }
  return equal ? 0 : 1;
}
