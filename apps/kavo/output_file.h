#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/interrupt.h"

namespace kavo::command {

//! A file that an option names for a result. It is opened before the work, so that a name that cannot be
//! written is known at once, and gets its contents after it, all or nothing: they go to a temporary file
//! beside it, which then takes its name. Permissions stay; of a symbolic link the file it leads to is
//! replaced. Devices and pipes are written directly.
class OutputFile {
 public:
  //! Nothing is written for an option that was not given.
  //! \param option Its name, for errors.
  //! \param file What it was given; "-" is standard output. An empty name is an error.
  //! \param inputs Files that are read, by name behind what they are: a result is never written over one.
  //! Throws `UnusableInput`.
  OutputFile(std::string option, const std::optional<std::string>& file,
             const std::vector<std::pair<std::string, std::string>>& inputs);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  bool IsWanted() const { return file_.has_value(); }
  bool IsStandardOutput() const { return file_ == "-"; }
  bool IsFile() const { return file_ && !IsStandardOutput(); }
  //! Whether both would replace the same file.
  bool IsSameAs(const OutputFile& other) const;

  //! Writes the contents; not for standard output. What the file held before stays if that fails: throws
  //! `UnusableInput`.
  void Write(const std::string& text);

 private:
  std::string option_;
  std::optional<std::string> file_;
  // What the name leads to.
  std::string target_;
  // Of a regular file; otherwise the descriptor below is what is written to.
  std::unique_ptr<TemporaryFile> temporary_;
  int descriptor_ = -1;
};

//! Throws `UnusableInput` where `--html` cannot be done: without the page, and for standard output.
//! \param file What the option was given.
void CheckPageFile(const std::optional<std::string>& file);

}  // namespace kavo::command
