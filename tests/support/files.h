#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace kavo::testing {

inline std::string ReadFile(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    throw std::runtime_error("cannot read " + file.string());
  }
  return {std::istreambuf_iterator<char>(stream), {}};
}

//! A folder for the files of one test; goes with it.
class Folder {
 public:
  Folder() : path_(::testing::TempDir() + "kavo_XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
      throw std::runtime_error("no temporary folder at " + path_);
    }
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() { std::filesystem::remove_all(path_); }

  const std::string& path() const { return path_; }

  //! The path of a file in it.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  //! Writes a file, in a folder below if its name says so, and gives its path.
  std::string Write(const std::string& name, const std::string& text) const {
    const std::filesystem::path file = *this / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
    return file.string();
  }

 private:
  std::string path_;
};

}  // namespace kavo::testing
