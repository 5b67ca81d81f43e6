#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kavo::internal {

//! Some of the obstacles of one snapshot: those that are of no account in a query.
class ObstacleSet {
 public:
  bool isEmpty() const { return solids_.empty() && half_spaces_.empty(); }

  //! Whether it holds a solid, or a half-space, by its index in the snapshot.
  bool hasSolid(std::uint32_t index) const { return Has(solids_, index); }
  bool hasHalfSpace(std::uint32_t index) const { return Has(half_spaces_, index); }

  void addSolid(std::uint32_t index) { Add(solids_, index); }
  void addHalfSpace(std::uint32_t index) { Add(half_spaces_, index); }

 private:
  // One bit each; what lies behind the last word is not in the set.
  using Words = std::vector<std::uint64_t>;

  static bool Has(const Words& words, std::uint32_t index) {
    return index / 64 < words.size() && ((words[index / 64] >> (index % 64)) & 1u) != 0;
  }

  static void Add(Words& words, std::uint32_t index) {
    if (index / 64 >= words.size()) {
      words.resize(index / 64 + 1);
    }
    words[index / 64] |= std::uint64_t{1} << (index % 64);
  }

  Words solids_;
  Words half_spaces_;
};

}  // namespace kavo::internal
