// Nearest-node queries of the linear-scan tree against a reference: following node pointers and calling the
// metric. Then time and memory of the scan and of the index as trees grow. Answers are compared.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "benchmarks/ratio.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/distance_metrics.h"
#include "kavo/motion_planning/tree/fast_tree.h"

namespace {

using namespace kavo::planning;

constexpr int kDimension = 7;

Eigen::VectorXd RandomConfiguration(std::mt19937& engine) {
  Eigen::VectorXd q(kDimension);
  for (double& entry : q) {
    entry = static_cast<double>(engine()) / 4294967295.0 * 6.0 - 3.0;
  }
  return q;
}

std::unique_ptr<Tree> Filled(std::unique_ptr<Tree> tree, std::size_t num_nodes) {
  std::mt19937 engine(1);
  auto parent = tree->ClearAndSetRoot(Node(RandomConfiguration(engine)));
  while (tree->NumNodes() < num_nodes) {
    parent = tree->Insert(Node(RandomConfiguration(engine), parent));
  }
  return tree;
}

std::unique_ptr<Tree> MakeTree(const DistanceMetric& metric, std::size_t num_nodes) {
  return Filled(CreateBasicTree(kDimension, metric, false), num_nodes);
}

// Configured as docs/trees.md advises.
std::unique_ptr<Tree> MakeFastTree(std::size_t num_nodes) {
  const RStarTreeConfig config(
      kDimension, 64, 128, 0, 8, EntrySplitterType::kStar, SelectionMetric::kMinimumCentroidDistance,
      SelectionMetric::kMinimumVolumeIncrease, SelectionMetric::kMinimumCentroidDistance,
      SelectionMetric::kMinimumCentroidDistance);
  return Filled(CreateFastTree(FastTreeConfig(config)), num_nodes);
}

ClosestNode ClosestByPointers(const Tree& tree, const DistanceMetric& metric, const Eigen::VectorXd& q) {
  ClosestNode closest{tree.Nodes().front(), metric(tree.Nodes().front()->Configuration(), q)};
  for (const auto& node : tree.Nodes()) {
    const double distance = metric(node->Configuration(), q);
    if (closest.distance > distance) {
      closest = {node, distance};
    }
  }
  return closest;
}

bool Compare(const std::string& name, const DistanceMetric& metric, std::size_t num_nodes) {
  const auto tree = MakeTree(metric, num_nodes);
  std::mt19937 engine(2);
  std::vector<Eigen::VectorXd> queries;
  queries.reserve(32);
  for (int i = 0; i < 32; ++i) {
    queries.push_back(RandomConfiguration(engine));
  }
  for (const Eigen::VectorXd& q : queries) {
    const ClosestNode ours = tree->GetClosest(q);
    const ClosestNode reference = ClosestByPointers(*tree, metric, q);
    if (ours.node != reference.node || ours.distance != reference.distance) {
      std::fprintf(stderr, "%s: answers differ\n", name.c_str());
      return false;
    }
  }
  const double ours = kavo::benchmarks::BestSeconds([&] {
    for (const Eigen::VectorXd& q : queries) {
      benchmark::DoNotOptimize(tree->GetClosest(q));
    }
  });
  const double reference = kavo::benchmarks::BestSeconds([&] {
    for (const Eigen::VectorXd& q : queries) {
      benchmark::DoNotOptimize(ClosestByPointers(*tree, metric, q));
    }
  });
  kavo::benchmarks::PrintRatio("GetClosest, " + name + ", " + std::to_string(num_nodes) + " nodes", ours,
                               reference, static_cast<double>(queries.size()));
  return true;
}

std::size_t MemoryInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// Both trees at one size: bytes for each node, all told, and the time of a query.
bool PrintGrowth(std::size_t num_nodes) {
  const std::size_t before = MemoryInUse();
  const auto basic = MakeTree(L2Norm, num_nodes);
  const std::size_t between = MemoryInUse();
  const auto fast = MakeFastTree(num_nodes);
  const std::size_t after = MemoryInUse();
  std::mt19937 engine(2);
  std::vector<Eigen::VectorXd> queries;
  queries.reserve(256);
  for (int i = 0; i < 256; ++i) {
    queries.push_back(RandomConfiguration(engine));
  }
  for (const Eigen::VectorXd& q : queries) {
    if (basic->GetClosest(q).distance != fast->GetClosest(q).distance) {
      std::fprintf(stderr, "%zu nodes: the two trees differ\n", num_nodes);
      return false;
    }
  }
  const auto nanoseconds = [&queries](const Tree& tree) {
    return kavo::benchmarks::BestSeconds([&] {
             for (const Eigen::VectorXd& q : queries) {
               benchmark::DoNotOptimize(tree.GetClosest(q));
             }
           }) /
           static_cast<double>(queries.size()) * 1e9;
  };
  const double basic_time = nanoseconds(*basic);
  const double fast_time = nanoseconds(*fast);
  const auto per_node = [num_nodes](std::size_t bytes) {
    return static_cast<double>(bytes) / static_cast<double>(num_nodes);
  };
  std::printf(
      "growth, %6zu nodes: BasicTree %9.0f ns, %4.0f bytes a node; FastTree %9.0f ns, %4.0f bytes; ratio "
      "%5.2f\n",
      num_nodes, basic_time, per_node(between - before), fast_time, per_node(after - between),
      basic_time / fast_time);
  return true;
}

void GetClosest(benchmark::State& state) {
  const auto tree = MakeTree(L2Norm, static_cast<std::size_t>(state.range(0)));
  std::mt19937 engine(2);
  const Eigen::VectorXd q = RandomConfiguration(engine);
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(tree->GetClosest(q));
  }
}
BENCHMARK(GetClosest)->RangeMultiplier(10)->Range(100, 100000);

void Insert(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(MakeTree(L2Norm, 10000));
  }
}
BENCHMARK(Insert)->Name("Insert, 10000 nodes")->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  bool equal = true;
  for (const std::size_t num_nodes : {100U, 1000U, 10000U, 100000U}) {
    equal &= Compare("Euclidean", L2Norm, num_nodes);
    equal &=
        Compare("weighted", WeightedSquaredL2Norm(Eigen::VectorXd::Constant(kDimension, 1.5)), num_nodes);
    equal &= PrintGrowth(num_nodes);
  }
  return equal ? 0 : 1;
}
