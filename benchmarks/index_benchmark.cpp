// The spatial index against Boost.Geometry's R*-tree, nanoflann's growing k-d tree and our own linear scan,
// on the same points in one run: insertion, exact nearest point, memory, and what the approximate query is
// worth. Distances are compared.
//
// kavo_index_benchmark [largest number of points]

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <boost/geometry.hpp>
#include <boost/geometry/index/rtree.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nanoflann.hpp>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/ratio.h"
#include "kavo/motion_planning/spatial_data_structures/r_star_tree.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/distance_metrics.h"
#include "kavo/motion_planning/tree/fast_tree.h"

namespace {

using namespace kavo::planning;

constexpr int kDimension = 7;
using Points = std::vector<Eigen::VectorXd>;

// Recommended in docs/trees.md.
RStarTreeConfig Config() {
  return {kDimension,
          64,
          128,
          0,
          8,
          EntrySplitterType::kStar,
          SelectionMetric::kMinimumCentroidDistance,
          SelectionMetric::kMinimumVolumeIncrease,
          SelectionMetric::kMinimumCentroidDistance,
          SelectionMetric::kMinimumCentroidDistance};
}

Eigen::VectorXd RandomConfiguration(std::mt19937& engine) {
  Eigen::VectorXd q(kDimension);
  for (double& entry : q) {
    entry = static_cast<double>(engine()) / 4294967295.0 * 6.0 - 3.0;
  }
  return q;
}

Points Uniform(std::size_t num_points) {
  std::mt19937 engine(1);
  Points points;
  while (points.size() < num_points) {
    points.push_back(RandomConfiguration(engine));
  }
  return points;
}

// Nodes of an RRT in free space: walks of up to twenty steps from the nearest node towards random
// configurations.
Points Branches(std::size_t num_points) {
  std::mt19937 engine(1);
  const auto tree = CreateFastTree(FastTreeConfig(Config()));
  tree->ClearAndSetRoot(Node(Eigen::VectorXd::Zero(kDimension)));
  Points points = {Eigen::VectorXd::Zero(kDimension)};
  while (points.size() < num_points) {
    const Eigen::VectorXd sample = RandomConfiguration(engine);
    Eigen::VectorXd q = tree->GetClosest(sample).node->Configuration();
    const double distance = L2Norm(q, sample);
    const double length = std::min(0.1, distance / 2.0);
    const Eigen::VectorXd step = (sample - q) * (length / distance);
    for (int i = 0; i < 20 && L2Norm(q, sample) > length && points.size() < num_points; ++i) {
      q += step;
      tree->Insert(Node(q));
      points.push_back(q);
    }
  }
  return points;
}

double Seconds(const std::chrono::steady_clock::time_point& begin) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

std::size_t MemoryInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

class KavoIndex {
 public:
  KavoIndex() : tree_(Config()) {}
  void Insert(const Points& points, unsigned index) {
    tree_.Insert({points[index].data(), points[index].data()}, index);
  }
  unsigned Closest(const Eigen::VectorXd& q) const { return tree_.NearestNeighbor(q.data()); }

 private:
  RStarTree<unsigned> tree_;
};

class BoostIndex {
 public:
  void Insert(const Points& points, unsigned index) { tree_.insert({Convert(points[index]), index}); }
  unsigned Closest(const Eigen::VectorXd& q) const {
    std::pair<Point, unsigned> closest;
    tree_.query(boost::geometry::index::nearest(Convert(q), 1), &closest);
    return closest.second;
  }

 private:
  using Point = boost::geometry::model::point<double, kDimension, boost::geometry::cs::cartesian>;

  template <std::size_t... kAxes>
  static Point Convert(const Eigen::VectorXd& q, std::index_sequence<kAxes...>) {
    Point point;
    (boost::geometry::set<kAxes>(point, q[kAxes]), ...);
    return point;
  }
  static Point Convert(const Eigen::VectorXd& q) {
    return Convert(q, std::make_index_sequence<kDimension>());
  }

  boost::geometry::index::rtree<std::pair<Point, unsigned>, boost::geometry::index::rstar<16>> tree_;
};

class NanoflannIndex {
 public:
  // Its points stay outside: the copy that the other indices hold within themselves.
  void Insert(const Points& points, unsigned index) {
    points_.insert(points_.end(), points[index].data(), points[index].data() + kDimension);
    tree_.addPoints(index, index);
  }
  unsigned Closest(const Eigen::VectorXd& q) const {
    std::size_t index = 0;
    double squared_distance = 0.0;
    nanoflann::KNNResultSet<double> result(1);
    result.init(&index, &squared_distance);
    tree_.findNeighbors(result, q.data(), nanoflann::SearchParams());
    return static_cast<unsigned>(index);
  }

  std::size_t kdtree_get_point_count() const { return points_.size() / kDimension; }
  double kdtree_get_pt(std::size_t index, std::size_t axis) const {
    return points_[index * kDimension + axis];
  }
  template <typename Box>
  bool kdtree_get_bbox(Box&) const {
    return false;
  }

 private:
  std::vector<double> points_;
  nanoflann::KDTreeSingleIndexDynamicAdaptor<nanoflann::L2_Simple_Adaptor<double, NanoflannIndex>,
                                             NanoflannIndex, kDimension>
      tree_{kDimension, *this};
};

class OurTree {
 public:
  explicit OurTree(std::unique_ptr<Tree> tree) : tree_(std::move(tree)) {}
  void Insert(const Points& points, unsigned index) { tree_->Insert(Node(points[index])); }
  ClosestNode Closest(const Eigen::VectorXd& q) const { return tree_->GetClosest(q); }
  const Tree& Get() const { return *tree_; }

 private:
  std::unique_ptr<Tree> tree_;
};

struct Figures {
  double insert_seconds;
  double query_seconds;
  double bytes;
  std::vector<double> distances;
};

double DistanceOf(unsigned index, const Points& points, const Eigen::VectorXd& q) {
  return L2Norm(points[index], q);
}
double DistanceOf(const ClosestNode& closest, const Points&, const Eigen::VectorXd&) {
  return closest.distance;
}

// Time per query: the best of five rounds.
template <typename Query>
double QuerySeconds(const Points& queries, const Query& query) {
  double best = 1e9;
  for (int round = 0; round < 5; ++round) {
    const auto begin = std::chrono::steady_clock::now();
    for (const Eigen::VectorXd& q : queries) {
      benchmark::DoNotOptimize(query(q));
    }
    best = std::min(best, Seconds(begin) / static_cast<double>(queries.size()));
  }
  return best;
}

template <typename Index>
Figures Measure(const std::string& name, Index& index, const Points& points, const Points& queries) {
  Figures figures{};
  const double num_points = static_cast<double>(points.size());
  const std::size_t memory = MemoryInUse();
  const auto begin = std::chrono::steady_clock::now();
  for (unsigned i = 0; i < points.size(); ++i) {
    index.Insert(points, i);
  }
  figures.insert_seconds = Seconds(begin) / num_points;
  figures.bytes = static_cast<double>(MemoryInUse() - memory) / num_points;
  figures.query_seconds = QuerySeconds(queries, [&](const Eigen::VectorXd& q) { return index.Closest(q); });
  for (const Eigen::VectorXd& q : queries) {
    figures.distances.push_back(DistanceOf(index.Closest(q), points, q));
  }
  std::printf("  %-12s insertion %8.2f us   query %10.2f us   memory %6.0f bytes a point\n", name.c_str(),
              figures.insert_seconds * 1e6, figures.query_seconds * 1e6, figures.bytes);
  return figures;
}

bool Compare(const std::string& kind, const Points& points) {
  std::printf("%s, %zu points\n", kind.c_str(), points.size());
  std::mt19937 engine(2);
  Points queries;
  for (std::size_t i = 0; i < std::clamp<std::size_t>(20000000 / points.size(), 50, 2000); ++i) {
    queries.push_back(RandomConfiguration(engine));
  }
  const auto kavo_index = std::make_unique<KavoIndex>();
  const Figures kavo = Measure("kavo index", *kavo_index, points, queries);
  auto boost_index = std::make_unique<BoostIndex>();
  const Figures boost = Measure("boost", *boost_index, points, queries);
  boost_index.reset();
  auto nanoflann_index = std::make_unique<NanoflannIndex>();
  const Figures nanoflann = Measure("nanoflann", *nanoflann_index, points, queries);
  nanoflann_index.reset();
  OurTree fast_tree(CreateFastTree(FastTreeConfig(Config())));
  const Figures fast = Measure("FastTree", fast_tree, points, queries);
  OurTree basic_tree(CreateBasicTree(kDimension, L2Norm, false));
  const Figures basic = Measure("BasicTree", basic_tree, points, queries);

  std::printf("  ratio to boost: insertion %.2f, query %.2f; query to nanoflann %.2f, to BasicTree %.2f\n",
              boost.insert_seconds / kavo.insert_seconds, boost.query_seconds / kavo.query_seconds,
              nanoflann.query_seconds / kavo.query_seconds, basic.query_seconds / fast.query_seconds);

  int num_exact = 0;
  double sum_of_ratios = 0.0;
  for (std::size_t i = 0; i < queries.size(); ++i) {
    const double distance = fast_tree.Get().GetApproxClosest(queries[i]).distance;
    num_exact += distance == fast.distances[i] ? 1 : 0;
    sum_of_ratios += distance / fast.distances[i];
  }
  const double num_queries = static_cast<double>(queries.size());
  std::printf(
      "  approximate query: %.2f us, exact answers %.0f %%, mean distance %.3f of the exact one\n",
      QuerySeconds(queries, [&](const Eigen::VectorXd& q) { return fast_tree.Get().GetApproxClosest(q); }) *
          1e6,
      100.0 * num_exact / num_queries, sum_of_ratios / num_queries);

  // Indices that compare squares may choose between points of one rounded distance otherwise, but not change
  // it.
  if (kavo.distances != basic.distances || fast.distances != basic.distances ||
      boost.distances != basic.distances || nanoflann.distances != basic.distances) {
    std::fprintf(stderr, "answers differ\n");
    return false;
  }
  return true;
}

// The number of nodes from which on the index answers faster than the scan.
void PrintCrossover(const std::string& kind, const Points& points) {
  std::mt19937 engine(3);
  Points queries;
  for (int i = 0; i < 1000; ++i) {
    queries.push_back(RandomConfiguration(engine));
  }
  OurTree fast(CreateFastTree(FastTreeConfig(Config())));
  OurTree basic(CreateBasicTree(kDimension, L2Norm, false));
  std::size_t crossover = 0;
  std::size_t next = 100;
  for (unsigned i = 0; i < points.size(); ++i) {
    fast.Insert(points, i);
    basic.Insert(points, i);
    if (i + 1 == next) {
      const double ratio = QuerySeconds(queries, [&](const Eigen::VectorXd& q) { return basic.Closest(q); }) /
                           QuerySeconds(queries, [&](const Eigen::VectorXd& q) { return fast.Closest(q); });
      if (ratio <= 1.0) {
        crossover = 0;
      } else if (crossover == 0) {
        crossover = next;
      }
      std::printf("  %7zu nodes: FastTree answers %.2f times as fast as BasicTree\n", next, ratio);
      next = next * 3 / 2;
    }
  }
  std::printf("crossover, %s: %s%zu nodes\n", kind.c_str(), crossover == 0 ? "above " : "about ",
              crossover == 0 ? points.size() : crossover);
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): what goes wrong ends a benchmark.
int main(int argc, char** argv) {
  const std::size_t given = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0;
  const std::size_t largest = given > 0 ? given : 1000000;
  bool equal = true;
  for (const auto& [kind, make] :
       {std::pair<const char*, Points (*)(std::size_t)>("uniform", &Uniform), {"branches", &Branches}}) {
    const Points points = make(largest);
    PrintCrossover(kind, Points(points.begin(), points.begin() + static_cast<std::ptrdiff_t>(
                                                                     std::min<std::size_t>(largest, 20000))));
    for (std::size_t size = 1000; size <= largest; size *= 10) {
      equal &= Compare(kind, Points(points.begin(), points.begin() + static_cast<std::ptrdiff_t>(size)));
    }
  }
  return equal ? 0 : 1;
}
