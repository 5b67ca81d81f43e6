#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "kavo/formats/file_error.h"

namespace kavo::testing {

//! What a `FileError` that the call throws says; "no error" without one.
template <typename Call>
std::string FileErrorOf(Call&& call) {
  try {
    call();
  } catch (const formats::FileError& error) {
    return error.what();
  }
  return "no error";
}

//! What is in a file.
inline std::string ReadText(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

//! An empty directory for the files of one test, which is gone after it.
class TemporaryDirectory {
 public:
  TemporaryDirectory() : path_(::testing::TempDir() + "kavo_XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
      throw std::runtime_error("no temporary directory at " + path_);
    }
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }

  const std::string& path() const { return path_; }

  //! Writes a file; returns its path.
  std::string write(const std::string& name, const std::string& text) const {
    const std::string file = path_ + "/" + name;
    std::ofstream(file, std::ios::binary) << text;
    return file;
  }

 private:
  std::string path_;
};

}  // namespace kavo::testing
