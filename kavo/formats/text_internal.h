#pragma once

#include <Eigen/Geometry>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kavo::formats {

// The largest files, in bytes: what is made of them while they are read takes no more than about 1 GB.
inline constexpr std::size_t kMaxSceneSize = std::size_t{256} << 20;
inline constexpr std::size_t kMaxYamlSize = std::size_t{256} << 20;
inline constexpr std::size_t kMaxXmlSize = std::size_t{16} << 20;
inline constexpr std::size_t kMaxPathSize = std::size_t{32} << 20;
inline constexpr std::size_t kMaxCloudSize = std::size_t{512} << 20;
inline constexpr std::size_t kMaxOctreeSize = std::size_t{256} << 20;
inline constexpr std::size_t kMaxMeshSize = std::size_t{256} << 20;
inline constexpr std::size_t kMaxMeshTriangles = 2000000;

//! The bytes of a file. Throws `FileError` if it cannot be read (a directory cannot) and for one of more
//! bytes than the maximum, without reading on: it may have no end.
std::string ReadFile(const std::string& file, std::size_t max_size);

//! The same without a byte-order mark.
std::string ReadTextFile(const std::string& file, std::size_t max_size);

//! Replaces a file. Throws `FileError` if it cannot be written to the end.
void WriteTextFile(const std::string& file, const std::string& text);

//! The text without spaces, tabs and carriage returns at its ends.
std::string_view Trimmed(std::string_view text);

//! The shortest text that reads as the same bits.
std::string NumberText(double number);

//! The text in quotes for a message: what cannot be printed becomes "?", and what is long is cut.
std::string Quoted(std::string_view text);

//! What is wrong with a quaternion as a rotation, for a message: its length, when that is off one by more
//! than 1e-3.
std::optional<std::string> QuaternionFault(const Eigen::Quaterniond& quaternion);

}  // namespace kavo::formats
