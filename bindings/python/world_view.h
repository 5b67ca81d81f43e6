#pragma once

#include <mutex>
#include <utility>

#include "kavo/world/world_view.h"

namespace kavo::python {

//! A view that several threads of Python may ask: one at a time gets through.
struct View {
  explicit View(WorldView view_in) : view(std::move(view_in)) {}

  WorldView view;
  //! Nobody takes the GIL while holding it.
  std::mutex mutex;
};

}  // namespace kavo::python
