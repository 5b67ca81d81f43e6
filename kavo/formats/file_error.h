#pragma once

#include <stdexcept>
#include <string>

#include "kavo/util/export.h"

namespace kavo::formats {

//! A file that cannot be read or does not say what its format asks for.
//!
//! `what()` is for a reader: "arm.urdf:12: found ..., expected ...", without the line where it is not known.
class KAVO_EXPORT FileError : public std::runtime_error {
 public:
  //! \param file Name of the file as the caller gave it.
  //! \param line First line is 1; 0 when the fault has no line of its own.
  //! \param message What was found and what was expected.
  FileError(std::string file, int line, std::string message);
  FileError(const FileError&) = default;             //!< With the same parts.
  FileError& operator=(const FileError&) = default;  //!< With the same parts.
  ~FileError() override;

  //! Name of the file as the caller gave it.
  const std::string& file() const { return file_; }
  //! First line is 1; 0 where the fault has no line of its own.
  int line() const { return line_; }
  //! What was found and what was expected, without the place.
  const std::string& message() const { return message_; }

 private:
  std::string file_;
  int line_;
  std::string message_;
};

}  // namespace kavo::formats
