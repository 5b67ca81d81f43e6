#include "kavo/util/parse_number.h"

#include <charconv>
#include <cmath>
#include <system_error>

namespace kavo::util {

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
  double number = 0.0;
  const char* const end = text.data() + text.size();
  const auto [stop, fault] = std::from_chars(text.data(), end, number);
  if (fault != std::errc() || stop != end || !std::isfinite(number)) {
    return std::nullopt;
  }
  return number;
}

}  // namespace kavo::util
