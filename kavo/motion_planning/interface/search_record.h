#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kavo {

//! A tree that a search grew, or several with a root each.
struct SearchTree {
  //! Where it grew from: the start, or the goals.
  enum class Root { kStart, kGoal };

  //! Which side it is of.
  Root root = Root::kStart;
  //! Configurations, a root first.
  std::vector<Eigen::VectorXd> nodes;
  //! Of each node the index of the one that it grew from, which comes before it; none for a root.
  std::vector<std::optional<std::size_t>> parents;
};

//! What a search left behind: to look at, or to learn from.
struct SearchRecord {
  //! What searched, as in `QueryReport::planner`.
  std::string planner;
  //! Empty where the search ended before there was one, and of a line.
  std::vector<SearchTree> trees;
  //! The path as the search found it, not shortened yet; empty where none was found. A line as far as it
  //! goes.
  std::vector<Eigen::VectorXd> raw_path;
};

//! Is shown each search of a planner at its end, before the query has its answer. It must not call the
//! planner; an exception that it throws leaves the query.
using SearchObserver = std::function<void(const SearchRecord&)>;

}  // namespace kavo
