#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kavo/util/export.h"
#include "kavo/util/random_generator.h"

namespace kavo::internal {

//! Looks for few sets that hold all elements together. Elements have weights, which grow while they are not
//! held; the choice goes from one that holds all but some elements to another, a set out and a set in at a
//! time, by the weights (Gao, Weise and Li, "An efficient local search heuristic with row weighting for the
//! unicost set covering problem", 2015).
class KAVO_INTERNAL_EXPORT SetCover {
 public:
  //! \param sets Of each its elements, in any order, none twice.
  SetCover(std::size_t num_elements, const std::vector<std::vector<std::uint32_t>>& sets);

  //! Those that the search starts with.
  void choose(std::uint32_t set);

  //! Adds the set that holds most of what is left until nothing is that any set holds, and drops sets that
  //! nothing needs. To be called before the search.
  void complete();

  //! \param effort How many weights may be touched, about.
  //! \return The smallest choice found that holds all that `complete` did.
  std::vector<std::uint32_t> search(std::size_t effort);

 private:
  void add(std::uint32_t set);
  void drop(std::uint32_t set);
  void release(std::uint32_t element, std::int64_t sign);
  std::uint32_t cheapest(std::uint32_t except) const;
  std::uint32_t random(std::size_t count);

  // By set its elements and by element its sets: those of i stand from the i-th of the begins on.
  std::vector<std::uint32_t> elements_;
  std::vector<std::uint32_t> element_begins_;
  std::vector<std::uint32_t> sets_;
  std::vector<std::uint32_t> set_begins_;

  std::vector<std::uint32_t> weights_;
  // Of each set, the weight of what only it would hold or holds.
  std::vector<std::int64_t> gains_;
  // How many of the chosen sets hold an element.
  std::vector<std::uint32_t> counts_;
  std::vector<bool> is_chosen_;
  // Whether anything in reach of a set has changed since it was dropped.
  std::vector<std::uint8_t> may_return_;
  // When it was last added or dropped.
  std::vector<std::uint64_t> times_;
  std::uint64_t time_ = 0;
  std::vector<std::uint32_t> chosen_;
  std::vector<std::uint32_t> chosen_places_;
  std::vector<std::uint32_t> missing_;
  std::vector<std::uint32_t> missing_places_;
  std::size_t effort_ = 0;
  util::RandomGenerator<double> random_;
};

}  // namespace kavo::internal
