#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "kavo/motion_planning/tree/node.h"

namespace kavo::planning::internal {

//! Makes nodes in blocks of many, so that a node costs no more allocation than its coordinates do.
//!
//! Nodes are shared as ever and may outlive the arena, also on other threads: a block lives until its last
//! node is gone.
class NodeArena {
 public:
  NodeArena() = default;
  NodeArena(const NodeArena&) = delete;
  NodeArena& operator=(const NodeArena&) = delete;
  ~NodeArena() { DropBlock(); }

  std::shared_ptr<Node> Make(Node&& node) {
    std::shared_ptr<Node> stored = std::allocate_shared<Node>(Allocator<Node>{this}, std::move(node));
    stored->is_in_tree_ = true;
    return stored;
  }

 private:
  static constexpr std::size_t kNodesInBlock = 64;

  struct Block {
    // Nodes in use, and the arena itself while it fills the block.
    std::atomic<std::size_t> num_owners{1};
  };

  // What stands before each node.
  struct alignas(std::max_align_t) Header {
    Block* block;
  };

  static void Release(Block* block) {
    if (block->num_owners.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      block->~Block();
      ::operator delete(block);
    }
  }

  void DropBlock() {
    if (block_ != nullptr) {
      Release(std::exchange(block_, nullptr));
    }
  }

  // All requests are of one size: a node with the counts of its shared pointers.
  void* Take(std::size_t size) {
    constexpr std::size_t kAlignment = alignof(std::max_align_t);
    const std::size_t stride = sizeof(Header) + (size + kAlignment - 1) / kAlignment * kAlignment;
    if (block_ == nullptr || num_taken_ == kNodesInBlock) {
      DropBlock();
      static_assert(sizeof(Block) <= sizeof(Header), "the first header would not be aligned");
      block_ = new (::operator new(sizeof(Header) + kNodesInBlock * stride)) Block();
      num_taken_ = 0;
    }
    char* const place = reinterpret_cast<char*>(block_) + sizeof(Header) + num_taken_ * stride;
    ++num_taken_;
    block_->num_owners.fetch_add(1, std::memory_order_relaxed);
    return new (place) Header{block_} + 1;
  }

  template <typename T>
  struct Allocator {
    using value_type = T;

    explicit Allocator(NodeArena* arena_in) : arena(arena_in) {}
    template <typename Other>
    Allocator(const Allocator<Other>& other) : arena(other.arena) {}  // NOLINT(google-explicit-constructor)

    T* allocate(std::size_t count) { return static_cast<T*>(arena->Take(count * sizeof(T))); }
    // The arena may be gone: the header tells whose the memory is.
    void deallocate(T* memory, std::size_t) noexcept {
      Release((reinterpret_cast<Header*>(memory) - 1)->block);
    }

    friend bool operator==(const Allocator& a, const Allocator& b) { return a.arena == b.arena; }
    friend bool operator!=(const Allocator& a, const Allocator& b) { return !(a == b); }

    NodeArena* arena;
  };

  Block* block_ = nullptr;
  std::size_t num_taken_ = 0;
};

}  // namespace kavo::planning::internal
