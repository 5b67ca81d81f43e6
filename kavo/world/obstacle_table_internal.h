#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kavo/math/pose3.h"
#include "kavo/world/obstacle.h"

namespace kavo::internal {

//! An obstacle of a world.
struct ObstacleEntry {
  ObstacleShape shape;
  Pose3 pose;
  //! Null for an empty one. Shared with snapshots and other tables.
  std::shared_ptr<const std::string> name;
  bool enabled = true;
  double padding = 0.0;
};

//! Obstacles by their ids, which grow in the order of adding. Rows are in blocks that a table and what was
//! made by its `share()` have in common, each until one of the two edits it: so a table of thousands is kept
//! as it is now within microseconds, and one edit after that copies one block.
class ObstacleTable {
  using Rows = std::vector<std::pair<std::uint64_t, ObstacleEntry>>;

  static constexpr std::size_t kMostRows = 32;

  struct Block {
    // No row has a smaller id.
    std::uint64_t first;
    std::shared_ptr<Rows> rows;
    bool is_shared = false;

    Rows& own() {
      if (is_shared) {
        rows = std::make_shared<Rows>(*rows);
        is_shared = false;
      }
      return *rows;
    }
  };

  template <typename Blocks>
  static auto blockOf(Blocks& blocks, std::uint64_t id) {
    const auto next =
        std::upper_bound(blocks.begin(), blocks.end(), id,
                         [](std::uint64_t wanted, const Block& block) { return wanted < block.first; });
    return next == blocks.begin() ? blocks.end() : next - 1;
  }

  static Rows::iterator rowOf(Rows& rows, std::uint64_t id) {
    const auto row = std::lower_bound(
        rows.begin(), rows.end(), id,
        [](const Rows::value_type& candidate, std::uint64_t wanted) { return candidate.first < wanted; });
    return row != rows.end() && row->first == id ? row : rows.end();
  }

 public:
  //! A table of its own with the same rows.
  ObstacleTable share() {
    for (Block& block : blocks_) {
      block.is_shared = true;
    }
    return *this;
  }

  std::size_t size() const { return size_; }

  //! Null where there is none.
  const ObstacleEntry* find(std::uint64_t id) const {
    const auto block = blockOf(blocks_, id);
    if (block == blocks_.end()) {
      return nullptr;
    }
    const auto row = rowOf(*block->rows, id);
    return row != block->rows->end() ? &row->second : nullptr;
  }

  //! The same to be written to. If memory runs out, here and below, nothing has changed.
  ObstacleEntry* edit(std::uint64_t id) {
    return find(id) != nullptr ? &rowOf(blockOf(blocks_, id)->own(), id)->second : nullptr;
  }

  //! \param id Greater than all before.
  void append(std::uint64_t id, ObstacleEntry entry) {
    if (blocks_.empty() || blocks_.back().rows->size() >= kMostRows) {
      Block block{id, std::make_shared<Rows>()};
      block.rows->emplace_back(id, std::move(entry));
      blocks_.push_back(std::move(block));
    } else {
      blocks_.back().own().emplace_back(id, std::move(entry));
    }
    ++size_;
  }

  //! Takes out one that there is.
  void erase(std::uint64_t id) {
    const auto block = blockOf(blocks_, id);
    Rows& rows = block->own();
    rows.erase(rowOf(rows, id));
    if (rows.empty()) {
      blocks_.erase(block);
    }
    --size_;
  }

  //! Calls `take(id, entry)` for each in the order of adding.
  template <typename Take>
  void forEach(const Take& take) const {
    for (const Block& block : blocks_) {
      for (const auto& [id, entry] : *block.rows) {
        take(id, entry);
      }
    }
  }

 private:
  std::vector<Block> blocks_;
  std::size_t size_ = 0;
};

}  // namespace kavo::internal
