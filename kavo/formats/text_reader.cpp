#include <algorithm>
#include <charconv>
#include <cstddef>
#include <system_error>

#include "kavo/formats/file_error.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/text_reader_internal.h"

namespace kavo::formats {

std::string_view TextReader::readLine() {
  line_ = num_line_ends_ + 1;
  const std::size_t end = rest_.find('\n');
  const std::string_view line = Trimmed(rest_.substr(0, end));
  rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
  num_line_ends_ += end == std::string_view::npos ? 0 : 1;
  return line;
}

std::string_view TextReader::readWord() {
  constexpr std::string_view kBlank = " \t\r\n";
  const std::size_t begin = std::min(rest_.find_first_not_of(kBlank), rest_.size());
  num_line_ends_ += static_cast<int>(std::count(rest_.begin(), rest_.begin() + begin, '\n'));
  rest_.remove_prefix(begin);
  if (rest_.empty()) {
    return {};
  }
  line_ = num_line_ends_ + 1;
  const std::string_view word = rest_.substr(0, rest_.find_first_of(kBlank));
  rest_.remove_prefix(word.size());
  return word;
}

void TextReader::fail(const std::string& found, const std::string& expected) const {
  throw FileError(file_, line_, "found " + found + ", expected " + expected);
}

std::vector<std::string_view> Tokens(std::string_view text, std::string_view separators) {
  std::vector<std::string_view> tokens;
  for (std::size_t begin = text.find_first_not_of(separators); begin != std::string_view::npos;
       begin = text.find_first_not_of(separators)) {
    text.remove_prefix(begin);
    tokens.push_back(text.substr(0, text.find_first_of(separators)));
    text.remove_prefix(tokens.back().size());
  }
  return tokens;
}

std::optional<double> ParseMeasured(std::string_view word) {
  word.remove_prefix(word.size() > 1 && word[0] == '+' && word[1] != '-' ? 1 : 0);
  double number = 0.0;
  const char* const end = word.data() + word.size();
  const auto [stop, fault] = std::from_chars(word.data(), end, number);
  return fault == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

}  // namespace kavo::formats
