#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kavo::formats {

//! Goes through a file that is text, or whose head is.
class TextReader {
 public:
  //! \param text Must outlive this object.
  //! \param file The name for errors.
  TextReader(std::string_view text, std::string file) : rest_(text), file_(std::move(file)) {}

  bool isAtEnd() const { return rest_.empty(); }
  //! What has not been read.
  std::string_view rest() const { return rest_; }
  //! Of what was read last. First line is 1.
  int line() const { return line_; }
  const std::string& file() const { return file_; }

  //! The rest of the line, without blanks at its ends; empty at the end of the file.
  std::string_view readLine();

  //! The next word, in whichever line it stands; empty at the end of the file.
  std::string_view readWord();

  //! "found ..., expected ..." at the line of what was read last.
  [[noreturn]] void fail(const std::string& found, const std::string& expected) const;

 private:
  std::string_view rest_;
  std::string file_;
  int line_ = 0;
  int num_line_ends_ = 0;
};

//! The parts of a text between separators, of which several may stand together.
std::vector<std::string_view> Tokens(std::string_view text, std::string_view separators = " \t\r");

//! A number as programs write those that they measure: it need not be finite.
std::optional<double> ParseMeasured(std::string_view word);

}  // namespace kavo::formats
