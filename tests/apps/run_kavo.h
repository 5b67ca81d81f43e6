#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kavo::testing {

//! What a run of the command left behind.
struct Outcome {
  int status = -1;
  std::string output;
  std::string errors;
};

//! Runs the built command as a process of its own.
//! \param input What it reads on standard input.
//! \param signal With one ("INT"), it is sent after two seconds.
Outcome RunKavo(const std::vector<std::string>& arguments, const std::string& input = {},
                const std::string& signal = {});

std::string ReadFile(const std::filesystem::path& file);

//! A folder for the files of one test; goes with it.
class Folder {
 public:
  Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder();

  //! The path of a file in it.
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }
  //! Writes a file, in a folder below if its name says so, and gives its path.
  std::string Write(const std::string& name, const std::string& text) const;

 private:
  std::filesystem::path path_;
};

}  // namespace kavo::testing
