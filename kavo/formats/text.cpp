#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <fstream>

#include "kavo/formats/file_error.h"
#include "kavo/formats/text_internal.h"

namespace kavo::formats {

std::string ReadFile(const std::string& file, std::size_t max_size) {
  std::ifstream stream(file, std::ios::binary);
  std::string text;
  std::array<char, 1 << 16> block;
  // A directory can be opened, but not read.
  while (stream.read(block.data(), block.size()) || stream.gcount() > 0) {
    text.append(block.data(), static_cast<std::size_t>(stream.gcount()));
    if (text.size() > max_size) {
      throw FileError(file, 0,
                      "found more than " + std::to_string(max_size >> 20) + " MiB, expected a smaller file");
    }
  }
  if (!stream.eof() || stream.bad()) {
    throw FileError(file, 0, "cannot be read");
  }
  return text;
}

std::string ReadTextFile(const std::string& file, std::size_t max_size) {
  std::string text = ReadFile(file, max_size);
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
    text.erase(0, kByteOrderMark.size());
  }
  return text;
}

void WriteTextFile(const std::string& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary);
  stream << text;
  stream.close();
  if (!stream) {
    throw FileError(file, 0, "cannot be written");
  }
}

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlank = " \t\r";
  const std::size_t begin = text.find_first_not_of(kBlank);
  if (begin == std::string_view::npos) {
    return {};
  }
  return text.substr(begin, text.find_last_not_of(kBlank) - begin + 1);
}

std::string NumberText(double number) {
  std::array<char, 32> text;
  const auto [end, fault] = std::to_chars(text.data(), text.data() + text.size(), number);
  return std::string(text.data(), end);
}

std::string Quoted(std::string_view text) {
  constexpr std::size_t kMaxLength = 60;
  std::string quoted = "\"";
  for (const char c : text.substr(0, kMaxLength)) {
    // Bytes of characters beyond ASCII stay.
    const auto byte = static_cast<unsigned char>(c);
    quoted += byte < 0x20 || byte == 0x7F ? '?' : c;
  }
  quoted += text.size() > kMaxLength ? "...\"" : "\"";
  return quoted;
}

std::optional<std::string> QuaternionFault(const Eigen::Quaterniond& quaternion) {
  const double x = quaternion.x();
  const double y = quaternion.y();
  const double z = quaternion.z();
  const double w = quaternion.w();
  const double length = std::sqrt(x * x + y * y + z * z + w * w);
  if (std::fabs(length - 1.0) <= 1e-3) {
    return std::nullopt;
  }
  return "a quaternion of length " + NumberText(length);
}

}  // namespace kavo::formats
