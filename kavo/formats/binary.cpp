#include <cstring>

#include "kavo/formats/binary_internal.h"

namespace kavo::formats {

namespace {

template <typename Unsigned>
Unsigned LoadBits(const char* bytes) {
  // Byte by byte, whatever the order of this machine is: compilers make one load of it.
  Unsigned bits = 0;
  for (std::size_t i = 0; i < sizeof(Unsigned); ++i) {
    const Unsigned byte = static_cast<unsigned char>(bytes[i]);
    bits = static_cast<Unsigned>(bits | static_cast<Unsigned>(byte << (8 * i)));
  }
  return bits;
}

// A number with the bits of an unsigned one of its size.
template <typename Number, typename Unsigned>
double Load(const char* bytes) {
  static_assert(sizeof(Number) == sizeof(Unsigned));
  const auto bits = LoadBits<Unsigned>(bytes);
  Number number;
  std::memcpy(&number, &bits, sizeof(number));
  return static_cast<double>(number);
}

}  // namespace

std::size_t SizeOf(NumberType type) {
  switch (type) {
    case NumberType::kInt8:
    case NumberType::kUint8:
      return 1;
    case NumberType::kInt16:
    case NumberType::kUint16:
      return 2;
    case NumberType::kInt32:
    case NumberType::kUint32:
    case NumberType::kFloat32:
      return 4;
    case NumberType::kInt64:
    case NumberType::kUint64:
    case NumberType::kFloat64:
      return 8;
  }
  return 0;
}

double LoadNumber(const char* bytes, NumberType type) {
  switch (type) {
    case NumberType::kInt8:
      return Load<std::int8_t, std::uint8_t>(bytes);
    case NumberType::kUint8:
      return Load<std::uint8_t, std::uint8_t>(bytes);
    case NumberType::kInt16:
      return Load<std::int16_t, std::uint16_t>(bytes);
    case NumberType::kUint16:
      return Load<std::uint16_t, std::uint16_t>(bytes);
    case NumberType::kInt32:
      return Load<std::int32_t, std::uint32_t>(bytes);
    case NumberType::kUint32:
      return Load<std::uint32_t, std::uint32_t>(bytes);
    case NumberType::kInt64:
      return Load<std::int64_t, std::uint64_t>(bytes);
    case NumberType::kUint64:
      return Load<std::uint64_t, std::uint64_t>(bytes);
    case NumberType::kFloat32:
      return Load<float, std::uint32_t>(bytes);
    case NumberType::kFloat64:
      return Load<double, std::uint64_t>(bytes);
  }
  return 0.0;
}

}  // namespace kavo::formats
