#include "apps/kavo/bench_problems.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <optional>
#include <system_error>
#include <utility>

#include "apps/kavo/ask.h"
#include "apps/kavo/command.h"
#include "apps/kavo/text.h"
#include "kavo/formats/request.h"

namespace kavo::command {

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> Entries(const fs::path& directory) {
  std::error_code error;
  std::vector<fs::path> entries;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory, error)) {
    entries.push_back(entry.path());
  }
  if (error) {
    throw UnusableInput(directory.string() + ": " + error.message());
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

// The part of a scene file's name that its request file shares.
std::optional<std::string> NameOfScene(const fs::path& file) {
  const std::string stem = file.stem().string();
  if (file.extension() != ".yaml" || stem.rfind("scene", 0) != 0) {
    return std::nullopt;
  }
  return stem.substr(5);
}

void ReadFamily(const fs::path& directory, const std::string& family, Situations& situations,
                std::vector<Problem>& problems) {
  for (const fs::path& file : Entries(directory)) {
    if (const auto name = NameOfScene(file)) {
      const std::string request_file = (directory / ("request" + *name + ".yaml")).string();
      const formats::Request request = formats::ReadRequest(request_file);
      Situation situation = situations.Read({file.string()}, &request);
      Query query{situation.start, {{{WithoutTolerances(situations.GoalsOf(request, situation).front())}}}};
      problems.push_back({family, *name, file.string(), request_file, std::move(situation), std::move(query),
                          request.allowed_planning_time, request.num_planning_attempts});
    }
  }
}

bool HasScenes(const std::vector<fs::path>& entries) {
  return std::any_of(entries.begin(), entries.end(), [](const fs::path& file) { return NameOfScene(file); });
}

}  // namespace

std::vector<Problem> ReadProblems(const std::string& directory, const std::vector<std::string>& families,
                                  Situations& situations) {
  const std::vector<fs::path> entries = Entries(directory);
  std::vector<fs::path> folders;
  if (HasScenes(entries)) {
    folders.push_back(fs::canonical(directory));
  } else {
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(folders),
                 [](const fs::path& entry) { return fs::is_directory(entry) && HasScenes(Entries(entry)); });
  }
  std::vector<std::string> names;
  names.reserve(folders.size());
  for (const fs::path& folder : folders) {
    names.push_back(folder.filename().string());
  }
  if (names.empty()) {
    throw UnusableInput(directory + ": expected files scene<name>.yaml here or in folders below");
  }
  for (const std::string& family : families) {
    if (std::find(names.begin(), names.end(), family) == names.end()) {
      throw UnusableInput("--family " + family + ": expected one of " + Join(names, ", "));
    }
  }
  std::vector<Problem> problems;
  for (std::size_t i = 0; i < folders.size(); ++i) {
    if (families.empty() || std::find(families.begin(), families.end(), names[i]) != families.end()) {
      ReadFamily(folders[i], names[i], situations, problems);
    }
  }
  return problems;
}

}  // namespace kavo::command
