#pragma once

#include <cstddef>
#include <cstdint>

namespace kavo::formats {

//! The numbers that binary files are made of.
enum class NumberType : std::uint8_t {
  kInt8,
  kUint8,
  kInt16,
  kUint16,
  kInt32,
  kUint32,
  kInt64,
  kUint64,
  kFloat32,
  kFloat64,
};

//! How many bytes a number of this type takes.
std::size_t SizeOf(NumberType type);

//! The number that begins at these bytes, the least one first; aligned or not.
double LoadNumber(const char* bytes, NumberType type);

}  // namespace kavo::formats
