#include "kavo/util/parse_number.h"

#include <charconv>
#include <cmath>
#include <system_error>
#ifndef __cpp_lib_to_chars
#include <locale.h>
#include <stdlib.h>

#include <cerrno>
#include <string>
#endif

namespace kavo::util {

namespace {

#ifdef __cpp_lib_to_chars

std::optional<double> ParsePlain(std::string_view text) {
  double number = 0.0;
  const char* const end = text.data() + text.size();
  const auto [stop, fault] = std::from_chars(text.data(), end, number);
  return fault == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

#else

// For standard libraries that have no from_chars of floating point yet.
std::optional<double> ParsePlain(std::string_view text) {
  // C reads more than that does: a second sign, blanks, hexadecimal digits.
  if (text.empty() || text[0] == '+' || text.find_first_not_of("+-.0123456789Ee") != std::string_view::npos) {
    return std::nullopt;
  }
  static const locale_t kClassic = newlocale(LC_ALL_MASK, "C", nullptr);
  const std::string terminated(text);
  char* stop = nullptr;
  errno = 0;
  const double number = strtod_l(terminated.c_str(), &stop, kClassic);
  // Small numbers are in range as long as something of them is left.
  const bool is_in_range = errno != ERANGE || number != 0.0;
  return is_in_range && stop == terminated.c_str() + text.size() ? std::optional(number) : std::nullopt;
}

#endif

}  // namespace

std::optional<double> ParseNumber(std::string_view text) {
  constexpr std::string_view kBlank = " \t";
  const std::size_t begin = text.find_first_not_of(kBlank);
  if (begin == std::string_view::npos) {
    return std::nullopt;
  }
  text = text.substr(begin, text.find_last_not_of(kBlank) + 1 - begin);
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') {
    text.remove_prefix(1);
  }
  const std::optional<double> number = ParsePlain(text);
  return number && std::isfinite(*number) ? number : std::nullopt;
}

}  // namespace kavo::util
