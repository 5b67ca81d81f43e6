#pragma once

#include <string>
#include <utility>
#include <vector>

#include "kavo/formats/result_file.h"

namespace kavo::command {

//! The version of this program.
std::string Version();

//! Files with the SHA-256 of what they hold, as `sha256sum` prints it; without a hash for what cannot be read
//! a second time, such as a pipe. Empty names are left out, and so is what is there twice.
//! \param files What each is to the query, and its name.
std::vector<formats::InputFile> HashFiles(const std::vector<std::pair<std::string, std::string>>& files);

}  // namespace kavo::command
