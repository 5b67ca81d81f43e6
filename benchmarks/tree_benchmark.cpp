// Nearest-node queries of the linear-scan tree against the obvious way: following node pointers and calling
// the metric. Answers are compared, and the memory of a stored node is printed.

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

std::unique_ptr<Tree> MakeTree(const DistanceMetric& metric, std::size_t num_nodes) {
  std::mt19937 engine(1);
  auto tree = CreateBasicTree(kDimension, metric, false);
  auto parent = tree->ClearAndSetRoot(Node(RandomConfiguration(engine)));
  while (tree->NumNodes() < num_nodes) {
    parent = tree->Insert(Node(RandomConfiguration(engine), parent));
  }
  return tree;
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
  for (int i = 0; i < 32; ++i) {
    queries.push_back(RandomConfiguration(engine));
  }
  for (const Eigen::VectorXd& q : queries) {
    const ClosestNode ours = tree->GetClosest(q);
    const ClosestNode obvious = ClosestByPointers(*tree, metric, q);
    if (ours.node != obvious.node || ours.distance != obvious.distance) {
      std::fprintf(stderr, "%s: answers differ\n", name.c_str());
      return false;
    }
  }
  const double ours = kavo::benchmarks::BestSeconds([&] {
    for (const Eigen::VectorXd& q : queries) {
      benchmark::DoNotOptimize(tree->GetClosest(q));
    }
  });
  const double obvious = kavo::benchmarks::BestSeconds([&] {
    for (const Eigen::VectorXd& q : queries) {
      benchmark::DoNotOptimize(ClosestByPointers(*tree, metric, q));
    }
  });
  kavo::benchmarks::PrintRatio("GetClosest, " + name + ", " + std::to_string(num_nodes) + " nodes", ours,
                               obvious, static_cast<double>(queries.size()));
  return true;
}

void PrintMemory() {
  constexpr std::size_t kNumNodes = 100000;
  const auto in_use = [] {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
  };
  const std::size_t before = in_use();
  const auto tree = MakeTree(L2Norm, kNumNodes);
  std::printf("memory: %.0f bytes for each of %zu seven-dimensional nodes, all told\n",
              static_cast<double>(in_use() - before) / static_cast<double>(kNumNodes), kNumNodes);
}

void GetClosest(benchmark::State& state) {
  const auto tree = MakeTree(L2Norm, static_cast<std::size_t>(state.range(0)));
  std::mt19937 engine(2);
  const Eigen::VectorXd q = RandomConfiguration(engine);
  for (auto _ : state) {
    benchmark::DoNotOptimize(tree->GetClosest(q));
  }
}
BENCHMARK(GetClosest)->RangeMultiplier(10)->Range(100, 100000);

void Insert(benchmark::State& state) {
  for (auto _ : state) {
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
  PrintMemory();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  bool equal = true;
  for (const std::size_t num_nodes : {100, 1000, 10000, 100000}) {
    equal &= Compare("Euclidean", L2Norm, num_nodes);
    equal &=
        Compare("weighted", WeightedSquaredL2Norm(Eigen::VectorXd::Constant(kDimension, 1.5)), num_nodes);
  }
  return equal ? 0 : 1;
}
