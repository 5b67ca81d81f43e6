#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "kavo/util/export.h"

namespace kavo::formats {

//! Which links and objects may touch each other: the allowed collision matrix of a scene.
struct AllowedCollisions {
  //! Line of the file.
  int line = 0;
  //! By name, the row and column of an entry.
  std::map<std::string, std::size_t> entries;
  //! Row by row, whether the two may touch.
  std::vector<std::vector<bool>> values;
  //! For pairs without an entry: whether one may touch anything.
  std::map<std::string, bool> defaults;

  //! Whether two may touch: their entry; else the default of one of them or, where both have one, both; else
  //! they may not.
  KAVO_EXPORT bool allows(const std::string& a, const std::string& b) const;
};

}  // namespace kavo::formats
