#include "kavo/formats/resource.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "kavo/formats/file_error.h"
#include "kavo/formats/text_internal.h"

namespace kavo::formats {

namespace {

namespace fs = std::filesystem;

bool IsFile(const fs::path& path) {
  std::error_code unused;
  return fs::exists(path, unused) && !fs::is_directory(path, unused);
}

bool IsFolder(const fs::path& path) {
  std::error_code unused;
  return fs::is_directory(path, unused);
}

// The folders of a variable of the environment, with colons between them.
std::vector<fs::path> FoldersOf(const char* variable) {
  std::vector<fs::path> folders;
  const char* const value = std::getenv(variable);
  const std::string text = value == nullptr ? "" : value;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find(':', begin), text.size());
    if (end > begin) {
      folders.emplace_back(text.substr(begin, end - begin));
    }
    begin = end + 1;
  }
  return folders;
}

// Absolute, without "." and "..", and without a separator at the end: then it has its last folder's name.
fs::path Normal(const fs::path& folder) {
  std::error_code fault;
  const fs::path absolute = fs::absolute(folder, fault);
  const fs::path normal = (fault ? folder : absolute).lexically_normal();
  return normal.has_filename() || !normal.has_relative_path() ? normal : normal.parent_path();
}

// The folders in a folder by name, without hidden ones and links.
std::vector<fs::path> FoldersIn(const fs::path& folder) {
  std::vector<fs::path> folders;
  std::error_code fault;
  for (fs::directory_iterator entry(folder, fault), end; !fault && entry != end; entry.increment(fault)) {
    std::error_code unused;
    if (entry->path().filename().string().front() != '.' && !entry->is_symlink(unused) &&
        entry->is_directory(unused)) {
      folders.push_back(entry->path());
    }
  }
  std::sort(folders.begin(), folders.end());
  return folders;
}

// Folders of a name below one, the nearest first.
std::vector<fs::path> FoldersBelow(const fs::path& folder, const std::string& name) {
  // As deep as people lay packages out, and no more than a look takes a moment for.
  constexpr int kMaxDepth = 5;
  constexpr std::size_t kMaxFolders = 20000;
  std::vector<fs::path> found;
  std::size_t num_folders = 0;
  std::vector<fs::path> level = {folder};
  for (int depth = 0; depth < kMaxDepth && !level.empty(); ++depth) {
    std::vector<fs::path> next;
    for (const fs::path& above : level) {
      for (fs::path& below : FoldersIn(above)) {
        if (++num_folders > kMaxFolders) {
          return found;
        }
        if (depth > 0 && below.filename() == name) {
          found.push_back(below);
        }
        next.push_back(std::move(below));
      }
    }
    level = std::move(next);
  }
  return found;
}

// Where something was looked for, for a message.
class Places {
 public:
  // Whether the file is there.
  bool has(const fs::path& folder, const fs::path& below) {
    const std::string text = folder.string();
    if (std::find(names_.begin(), names_.end(), text) == names_.end()) {
      names_.push_back(text);
    }
    return IsFile(folder / below);
  }

  std::string text() const {
    std::string text;
    for (const std::string& name : names_) {
      text += (text.empty() ? "" : ", ") + name;
    }
    return text;
  }

 private:
  std::vector<std::string> names_;
};

std::optional<fs::path> FindInPackage(const std::string& package, const fs::path& below, const fs::path& from,
                                      const PackageFolders& packages, Places& places) {
  const auto find_in = [&](const fs::path& folder) -> std::optional<fs::path> {
    return places.has(folder, below) ? std::optional(folder / below) : std::nullopt;
  };
  // A folder that has the package's name; else the one of that name in it, as in a repository that is named
  // after its package.
  const auto find_by_name = [&](const fs::path& folder) {
    auto found = folder.filename() == package ? find_in(folder) : std::nullopt;
    return found ? found : find_in(folder / package);
  };
  if (const auto given = packages.find(package); given != packages.end()) {
    return find_in(given->second);
  }
  for (const fs::path& prefix : FoldersOf("AMENT_PREFIX_PATH")) {
    if (auto found = find_in(prefix / "share" / package)) {
      return found;
    }
  }
  for (const fs::path& entry : FoldersOf("ROS_PACKAGE_PATH")) {
    const fs::path folder = Normal(entry);
    if (auto found = find_by_name(folder)) {
      return found;
    }
    for (const fs::path& nested : FoldersBelow(folder, package)) {
      if (auto found = find_in(nested)) {
        return found;
      }
    }
  }
  fs::path folder = Normal(from);
  while (true) {
    if (auto found = find_by_name(folder)) {
      return found;
    }
    if (folder == folder.parent_path()) {
      return std::nullopt;
    }
    folder = folder.parent_path();
  }
}

}  // namespace

std::string FindResource(const std::string& name, const std::string& by, int line,
                         const PackageFolders& packages) {
  const auto fail = [&](const std::string& found, const std::string& expected) {
    throw FileError(by, line, "found " + found + ", expected " + expected);
  };
  const fs::path from = fs::path(by).parent_path().empty() ? fs::path(".") : fs::path(by).parent_path();
  const std::size_t scheme_end = name.find("://");
  const std::string scheme = scheme_end == std::string::npos ? "" : name.substr(0, scheme_end);
  const std::string rest = scheme_end == std::string::npos ? name : name.substr(scheme_end + 3);
  if (scheme.empty() || scheme == "file") {
    const fs::path file = from / rest;
    if (rest.empty() || !IsFile(file)) {
      fail(Quoted(name) + ", for which there is no file " + file.string(), "the name of one that exists");
    }
    return file.string();
  }
  if (scheme != "package") {
    fail(Quoted(name), "package://, file:// or the path of a file");
  }
  const std::string package = rest.substr(0, rest.find('/'));
  const fs::path below =
      fs::path(rest.substr(std::min(package.size() + 1, rest.size()))).lexically_normal().relative_path();
  if (package.empty() || package == "." || package == "..") {
    fail(Quoted(name), "the name of a package behind package://");
  }
  if (below.empty() || *below.begin() == "..") {
    fail(Quoted(name), "a file in package " + Quoted(package));
  }
  Places places;
  const std::optional<fs::path> found = FindInPackage(package, below, from, packages, places);
  if (!found) {
    const auto given = packages.find(package);
    fail(Quoted(name) + ", which is not in " + places.text(),
         given != packages.end() && IsFolder(given->second)
             ? "that file in the folder of package " + Quoted(package)
             : "the folder of package " + Quoted(package) + " to be given (--package " + package +
                   "=DIR) or among these");
  }
  return found->string();
}

}  // namespace kavo::formats
