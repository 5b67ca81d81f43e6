#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/world/shapes/sphere_cover.h"

namespace kavo::formats {

//! Covers that were made before, one small file for each in a folder. What a file is called follows from the
//! shapes, the options, and what makes covers: the same question never gets another answer than a new cover,
//! bit for bit. Files that are damaged count as missing; several programs may use one folder at a time; a
//! folder that cannot be made or written only means that nothing is kept.
class CoverCache {
 public:
  //! \param folder Empty for none.
  explicit CoverCache(std::string folder) : folder_(std::move(folder)) {}

  //! Boxes, cylinders, spheres and meshes; none for other shapes.
  std::optional<SphereCover> find(const std::vector<CoverPart>& parts, const CoverOptions& options) const;
  void keep(const std::vector<CoverPart>& parts, const CoverOptions& options, const SphereCover& cover) const;

 private:
  std::string folder_;
};

}  // namespace kavo::formats
