#include "kavo/formats/result_file.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <utility>

#include "kavo/formats/csv_internal.h"
#include "kavo/formats/file_error.h"
#include "kavo/formats/result_json_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

namespace {

using Json = ResultJson;

PathFile ParseJsonPath(const std::string& text, const std::string& file,
                       const std::optional<std::size_t>& run) {
  Json root;
  try {
    root = Json::parse(text);
  } catch (const Json::parse_error& error) {
    const std::size_t end = std::min(error.byte, text.size());
    const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), '\n');
    throw FileError(file, static_cast<int>(line), std::string("found what is no JSON: ") + error.what());
  } catch (const Json::exception& error) {
    throw FileError(file, 0, std::string("found what is no JSON: ") + error.what());
  }
  const auto expect = [&file](bool holds, const std::string& found, const char* expected) {
    if (!holds) {
      throw FileError(file, 0, "found " + found + ", expected " + expected);
    }
  };
  // By reference: to copy what is nested deeply takes as deep a stack.
  const Json none;
  const auto value_of = [&none](const Json& object, const char* key) -> const Json& {
    const auto found = object.find(key);
    return found == object.end() ? none : *found;
  };
  // Files of others may have a key of this name too.
  if (const Json& format = value_of(root, "format"); format == kPlanFormat || format == kBenchFormat) {
    const Json& version = value_of(root, "format_version");
    expect(version.is_number_unsigned() && version <= kFormatVersion, "format_version " + version.dump(),
           ("at most " + std::to_string(kFormatVersion) + ": a newer Kavo wrote this").c_str());
  }
  const Json& runs = value_of(root, "runs");
  if (run) {
    expect(runs.is_array() && *run < runs.size() && runs[*run].is_object(),
           std::to_string(runs.size()) + " `runs`", ("one with the number " + std::to_string(*run)).c_str());
  } else {
    expect(runs.is_null(), std::to_string(runs.size()) + " `runs`", "one path; say which run is meant");
  }
  PathFile path;
  const Json& configurations = value_of(run ? runs[*run] : root, "path");
  expect(configurations.is_array() && !configurations.empty(), "no configuration under `path`",
         "at least one");
  const std::size_t num_coords = configurations[0].size();
  for (std::size_t i = 0; i < configurations.size(); ++i) {
    const Json& values = configurations[i];
    const std::string where = "configuration " + std::to_string(i) + " of `path`";
    expect(values.is_array() && !values.empty() && values.size() == num_coords,
           std::string(values.type_name()) + " of size " + std::to_string(values.size()) + " as " + where,
           "an array of numbers, as long as the others");
    Eigen::VectorXd& q = path.configurations.emplace_back(static_cast<Eigen::Index>(num_coords));
    for (std::size_t j = 0; j < num_coords; ++j) {
      expect(values[j].is_number(), std::string(values[j].type_name()) + " in " + where, "a number");
      q[static_cast<Eigen::Index>(j)] = values[j].get<double>();
    }
  }
  const Json& held_joints = value_of(run ? runs[*run] : root, "held_joints");
  expect(held_joints.is_object() || held_joints.is_null(), held_joints.type_name(),
         "an object as `held_joints`");
  for (const auto& [name, value] : held_joints.items()) {
    expect(value.is_number(), std::string(value.type_name()) + " in `held_joints`", "a number");
    path.held_joints[name] = value.get<double>();
  }
  const Json& names = value_of(root, "joint_names");
  if (names.empty()) {
    return path;
  }
  expect(names.is_array() && names.size() == num_coords,
         std::string(names.type_name()) + " of size " + std::to_string(names.size()) + " as `joint_names`",
         "one name for each coordinate");
  for (const Json& name : names) {
    expect(name.is_string(), std::string(name.type_name()) + " in `joint_names`", "a string");
    path.joint_names.push_back(name.get<std::string>());
  }
  return path;
}

}  // namespace

std::string ToCsv(const std::vector<std::string>& joint_names,
                  const std::vector<Eigen::VectorXd>& configurations) {
  for (const Eigen::VectorXd& q : configurations) {
    KAVO_CHECK(static_cast<std::size_t>(q.size()) == joint_names.size(), "formats/result_file", 140)
        << "A configuration must have one value for each joint name: expected " << joint_names.size()
        << ", got " << q.size() << ".";
  }
  return CsvText({joint_names, configurations});
}

void WriteJson(const PlanRecord& record, const std::string& file) { WriteTextFile(file, ToJson(record)); }

void WriteCsv(const std::vector<std::string>& joint_names, const std::vector<Eigen::VectorXd>& configurations,
              const std::string& file) {
  WriteTextFile(file, ToCsv(joint_names, configurations));
}

PathFile ReadPath(const std::string& file, const std::optional<std::size_t>& run) {
  return ParsePath(ReadTextFile(file, kMaxPathSize), file, run);
}

PathFile ParsePath(const std::string& text, const std::string& file, const std::optional<std::size_t>& run) {
  const std::size_t begin = text.find_first_not_of(" \t\r\n");
  if (run || (begin != std::string::npos && text[begin] == '{')) {
    return ParseJsonPath(text, file, run);
  }
  CsvTable table = ParseCsv(text, file);
  if (table.rows.empty()) {
    throw FileError(file, 0, "found no configuration, expected at least one");
  }
  return {std::move(table.names), std::move(table.rows), {}};
}

}  // namespace kavo::formats
