#include "kavo/formats/result_file.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string_view>

#include "kavo/formats/file_error.h"
#include "kavo/formats/text_internal.h"
#include "kavo/util/log_message.h"
#include "kavo/util/parse_number.h"

namespace kavo::formats {

namespace {

// Keeps the order in which keys are added.
using Json = nlohmann::ordered_json;

std::string Dump(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

// Indented, but with a list of plain values, such as a configuration, in one line.
void Print(const Json& value, const std::string& indent, std::string* text) {
  const bool is_flat =
      std::all_of(value.begin(), value.end(), [](const Json& element) { return element.is_primitive(); });
  if (!value.is_structured() || value.empty() || (value.is_array() && is_flat)) {
    *text += Dump(value);
    return;
  }
  const std::string inner = indent + "  ";
  char separator = value.is_array() ? '[' : '{';
  for (const auto& [key, element] : value.items()) {
    *text += separator + ("\n" + inner);
    if (value.is_object()) {
      *text += Dump(key) + ": ";
    }
    Print(element, inner, text);
    separator = ',';
  }
  *text += "\n" + indent + (value.is_array() ? ']' : '}');
}

template <typename Derived>
Json ToArray(const Eigen::DenseBase<Derived>& v) {
  Json array = Json::array();
  for (const double entry : v) {
    array.push_back(entry);
  }
  return array;
}

Json ToArray(const std::vector<Eigen::VectorXd>& path) {
  Json array = Json::array();
  for (const Eigen::VectorXd& q : path) {
    array.push_back(ToArray(q));
  }
  return array;
}

Json TargetToJson(const Eigen::VectorXd& target) { return ToArray(target); }
Json TargetToJson(const PlanRecord::PositionTarget& target) {
  return {{"frame", target.frame}, {"position", ToArray(target.position)}};
}

Json StatisticsToJson(const QueryReport& report) {
  Json json = {{"search", planning::ToString(report.status)},
               {"num_iterations", report.num_iterations},
               {"num_nodes", report.num_nodes},
               {"num_validity_checks", report.num_validity_checks},
               {"num_samples_drawn", report.num_samples_drawn},
               {"num_samples_rejected", report.num_samples_rejected},
               {"planner", report.planner},
               {"num_motions", report.num_motions},
               {"num_placements", report.num_placements},
               {"num_divisions", report.num_divisions},
               {"num_raw_waypoints", report.num_raw_waypoints},
               {"raw_length", report.raw_length},
               {"search_seconds", report.search_seconds},
               {"shortening_seconds", report.shortening_seconds},
               {"was_shortening_stopped", report.was_shortening_stopped},
               {"first_invalid_interpolated", nullptr}};
  if (report.first_invalid_interpolated) {
    json["first_invalid_interpolated"] = *report.first_invalid_interpolated;
  }
  return json;
}

Json NumberOrNull(const std::optional<double>& value) { return value ? Json(*value) : Json(); }

Json CheckToJson(const PlanRecord::Check& check) {
  return {{"passed", check.passed},
          {"verdict", check.verdict},
          {"ignored", check.ignored},
          {"uncovered_links", check.uncovered_links},
          {"cover_tolerance", NumberOrNull(check.cover_tolerance)},
          {"self_collision_pairs", check.num_self_collision_pairs},
          {"step", NumberOrNull(check.step)},
          {"num_configurations", check.num_configurations},
          {"fault", check.fault},
          {"clearance", NumberOrNull(check.clearance)},
          {"self_clearance", NumberOrNull(check.self_clearance)},
          {"tolerance", NumberOrNull(check.tolerance)}};
}

// One field of a line of CSV.
struct Field {
  std::string text;
  bool is_quoted = false;
  int line = 0;

  std::optional<double> number() const { return is_quoted ? std::nullopt : util::ParseNumber(text); }
};

std::string CsvName(const std::string& name) {
  if (name.find_first_of(",\"\r\n") == std::string::npos && name == Trimmed(name) && !name.empty() &&
      !util::ParseNumber(name)) {
    return name;
  }
  std::string quoted = "\"";
  for (const char c : name) {
    quoted += c == '"' ? "\"\"" : std::string(1, c);
  }
  return quoted + "\"";
}

class CsvReader {
 public:
  CsvReader(std::string_view text, const std::string& file) : rest_(text), file_(file) {}

  PathFile read() {
    PathFile path;
    std::vector<Field> fields = readRecord();
    const std::size_t num_fields = fields.size();
    if (std::none_of(fields.begin(), fields.end(),
                     [](const Field& field) { return field.number().has_value(); })) {
      for (Field& field : fields) {
        path.joint_names.push_back(std::move(field.text));
      }
      fields = readRecord();
    }
    for (; !fields.empty(); fields = readRecord()) {
      if (fields.size() != num_fields) {
        throw FileError(file_, fields.front().line,
                        "found " + std::to_string(fields.size()) + " values, expected " +
                            std::to_string(num_fields) + " as in the first line");
      }
      Eigen::VectorXd& q = path.configurations.emplace_back(static_cast<Eigen::Index>(num_fields));
      for (std::size_t i = 0; i < num_fields; ++i) {
        const std::optional<double> number = fields[i].number();
        if (!number) {
          throw FileError(file_, fields[i].line,
                          "found " + Quoted(fields[i].text) + ", expected a finite number");
        }
        q[static_cast<Eigen::Index>(i)] = *number;
      }
    }
    if (path.configurations.empty()) {
      throw FileError(file_, 0, "found no configuration, expected at least one");
    }
    return path;
  }

 private:
  // The fields of the next line that is not blank; none at the end of the text.
  std::vector<Field> readRecord() {
    while (!rest_.empty()) {
      std::vector<Field> fields = {readField()};
      while (skip(',')) {
        fields.push_back(readField());
      }
      skip('\n');
      ++line_;
      if (fields.size() > 1 || fields.front().is_quoted || !fields.front().text.empty()) {
        return fields;
      }
    }
    return {};
  }

  // Up to a comma or the end of the line. In quotes both are part of the field.
  Field readField() {
    Field field;
    field.line = line_;
    rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r"), rest_.size()));
    field.is_quoted = skip('"');
    if (field.is_quoted) {
      do {
        const std::size_t end = rest_.find('"');
        if (end == std::string_view::npos) {
          throw FileError(file_, field.line, "found a quote that does not end, expected another quote");
        }
        // Two quotes stand for one that does not end the field.
        field.text.append(rest_.substr(0, end + 1));
        rest_.remove_prefix(end + 1);
      } while (skip('"'));
      field.text.pop_back();
      line_ += static_cast<int>(std::count(field.text.begin(), field.text.end(), '\n'));
    }
    const std::size_t end = std::min(rest_.find_first_of(",\n"), rest_.size());
    const std::string_view plain = Trimmed(rest_.substr(0, end));
    rest_.remove_prefix(end);
    if (field.is_quoted && !plain.empty()) {
      throw FileError(file_, line_, "found " + Quoted(plain) + " after a quote, expected a comma");
    }
    field.text += plain;
    return field;
  }

  bool skip(char c) {
    if (rest_.empty() || rest_.front() != c) {
      return false;
    }
    rest_.remove_prefix(1);
    return true;
  }

  std::string_view rest_;
  std::string file_;
  int line_ = 1;
};

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

std::string ToJson(const PlanRecord& record) {
  Json files = Json::array();
  for (const InputFile& file : record.files) {
    files.push_back({{"role", file.role},
                     {"name", file.name},
                     {"sha256", file.sha256.empty() ? Json() : Json(file.sha256)}});
  }
  Json json = {{"version", record.version},
               {"files", files},
               {"robot", record.robot},
               {"joint_names", record.joint_names},
               {"held_joints", record.held_joints},
               {"start", ToArray(record.start)},
               {"target", std::visit([](const auto& target) { return TargetToJson(target); }, record.target)},
               {"settings", Json::object()},
               {"seed", record.seed},
               {"found", record.found},
               {"status", record.status},
               {"path", ToArray(record.path)},
               {"interpolated_path", ToArray(record.interpolated_path)},
               {"statistics", StatisticsToJson(record.statistics)},
               {"check", record.check ? CheckToJson(*record.check) : Json()}};
  for (const auto& [name, setting] : record.settings) {
    json["settings"][name] = std::visit([](const auto& value) { return Json(value); }, setting);
  }
  std::string text;
  Print(json, "", &text);
  return text + "\n";
}

std::string ToCsv(const std::vector<std::string>& joint_names,
                  const std::vector<Eigen::VectorXd>& configurations) {
  std::string text;
  for (const std::string& name : joint_names) {
    text += (&name == &joint_names.front() ? "" : ",") + CsvName(name);
  }
  text += '\n';
  for (const Eigen::VectorXd& q : configurations) {
    KAVO_CHECK(static_cast<std::size_t>(q.size()) == joint_names.size(), "formats/result_file", 140)
        << "A configuration must have one value for each joint name: expected " << joint_names.size()
        << ", got " << q.size() << ".";
    for (Eigen::Index i = 0; i < q.size(); ++i) {
      text += (i == 0 ? "" : ",") + NumberText(q[i]);
    }
    text += '\n';
  }
  return text;
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
  return run || (begin != std::string::npos && text[begin] == '{') ? ParseJsonPath(text, file, run)
                                                                   : CsvReader(text, file).read();
}

}  // namespace kavo::formats
