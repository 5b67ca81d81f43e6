#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <string>
#include <vector>

namespace kavo::formats {

//! How many points a file may have.
inline constexpr std::size_t kMaxPoints = 20'000'000;

//! The points of a file in the PCD format (of the Point Cloud Library), in its order; they need not be
//! finite. Throws `FileError`.
std::vector<Eigen::Vector3d> ParsePcd(const std::string& bytes, const std::string& file);

}  // namespace kavo::formats
