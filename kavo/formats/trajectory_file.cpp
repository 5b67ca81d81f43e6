#include "kavo/formats/trajectory_file.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "kavo/formats/csv_internal.h"
#include "kavo/formats/file_error.h"
#include "kavo/formats/json_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/yaml_value_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

namespace {

constexpr char kTime[] = "time";
// What a column of CSV is of: its name ends in this.
constexpr const char* kSuffixes[] = {"", "/velocity", "/acceleration"};

// Positions, velocities and accelerations, and their names in a message.
struct Quantity {
  const char* key;
  std::vector<Eigen::VectorXd> TrajectorySamples::*values;
};
constexpr Quantity kQuantities[] = {{"positions", &TrajectorySamples::positions},
                                    {"velocities", &TrajectorySamples::velocities},
                                    {"accelerations", &TrajectorySamples::accelerations}};

void Validate(const TrajectorySamples& samples) {
  const auto n = static_cast<Eigen::Index>(samples.joint_names.size());
  const auto fits = [&](const std::vector<Eigen::VectorXd>& values) {
    return values.size() == samples.times.size() &&
           std::all_of(values.begin(), values.end(),
                       [n](const Eigen::VectorXd& value) { return value.size() == n && value.allFinite(); });
  };
  KAVO_CHECK(fits(samples.positions) && (samples.velocities.empty() || fits(samples.velocities)) &&
                 (samples.accelerations.empty() || (fits(samples.accelerations) && fits(samples.velocities))),
             "formats/trajectory_file", 1)
      << "Each of " << samples.times.size() << " samples must have a finite value for each of " << n
      << " joints.";
  for (const double time : samples.times) {
    KAVO_CHECK(std::isfinite(time), "formats/trajectory_file", 2)
        << "A sample at [" << time << "] has no place in a file.";
  }
}

std::string ToCsv(const TrajectorySamples& samples) {
  CsvTable table;
  table.names = {kTime};
  const auto n = static_cast<Eigen::Index>(samples.joint_names.size());
  Eigen::Index num_columns = 1;
  for (std::size_t k = 0; k < std::size(kQuantities); ++k) {
    if (!(samples.*kQuantities[k].values).empty()) {
      for (const std::string& name : samples.joint_names) {
        table.names.push_back(name + kSuffixes[k]);
      }
      num_columns += n;
    }
  }
  for (std::size_t i = 0; i < samples.times.size(); ++i) {
    Eigen::VectorXd& row = table.rows.emplace_back(num_columns);
    row[0] = samples.times[i];
    Eigen::Index column = 1;
    for (const Quantity& quantity : kQuantities) {
      if (!(samples.*quantity.values).empty()) {
        row.segment(column, n) = (samples.*quantity.values)[i];
        column += n;
      }
    }
  }
  return CsvText(table);
}

std::string ToJson(const TrajectorySamples& samples) {
  nlohmann::ordered_json json = {{"joint_names", samples.joint_names},
                                 {"points", nlohmann::ordered_json::array()}};
  for (std::size_t i = 0; i < samples.times.size(); ++i) {
    nlohmann::ordered_json point = {{"time_from_start", samples.times[i]}};
    for (const Quantity& quantity : kQuantities) {
      if (!(samples.*quantity.values).empty()) {
        const Eigen::VectorXd& values = (samples.*quantity.values)[i];
        point[quantity.key] = std::vector<double>(values.begin(), values.end());
      }
    }
    json["points"].push_back(std::move(point));
  }
  return JsonText(json);
}

// Other readers take what has no point in its mantissa for an integer, or for no number at all.
std::string YamlNumber(double number) {
  std::string text = NumberText(number);
  const std::size_t end = std::min(text.find('e'), text.size());
  return text.find('.') < end ? text : text.insert(end, ".0");
}

std::string ToYaml(const TrajectorySamples& samples) {
  std::string text = "joint_names: [";
  for (const std::string& name : samples.joint_names) {
    text += (&name == &samples.joint_names.front() ? "" : ", ") + JsonString(name);
  }
  text += "]\npoints:\n";
  for (std::size_t i = 0; i < samples.times.size(); ++i) {
    const char* start = "- ";
    for (const Quantity& quantity : kQuantities) {
      if ((samples.*quantity.values).empty()) {
        continue;
      }
      text += start + std::string(quantity.key) + ": [";
      const Eigen::VectorXd& values = (samples.*quantity.values)[i];
      for (Eigen::Index k = 0; k < values.size(); ++k) {
        text += (k == 0 ? "" : ", ") + YamlNumber(values[k]);
      }
      text += "]\n";
      start = "  ";
    }
    const double time = samples.times[i];
    KAVO_CHECK(time >= 0.0 && time < 0x1p31 - 1.0, "formats/trajectory_file", 3)
        << "A sample at [" << time << "] has no place in a message.";
    constexpr std::int64_t kNanoseconds = 1'000'000'000;
    const double whole = std::floor(time);
    const std::int64_t nanoseconds =
        static_cast<std::int64_t>(whole) * kNanoseconds +
        static_cast<std::int64_t>(std::floor((time - whole) * static_cast<double>(kNanoseconds) + 0.5));
    text += "  time_from_start: {sec: " + std::to_string(nanoseconds / kNanoseconds) +
            ", nanosec: " + std::to_string(nanoseconds % kNanoseconds) + "}\n";
  }
  return text;
}

TrajectorySamples ParseTable(const std::string& text, const std::string& file) {
  const CsvTable table = ParseCsv(text, file);
  if (table.names.empty() || table.names.front() != kTime) {
    throw FileError(file, 0, "found no column `time`, expected it as the first one of a line of names");
  }
  std::map<std::string_view, Eigen::Index> columns;
  for (const std::string& name : table.names) {
    if (!columns.emplace(name, static_cast<Eigen::Index>(columns.size())).second) {
      throw FileError(file, 0, "found two columns " + Quoted(name) + ", expected one");
    }
  }
  // A column is of the joint that the beginning of its name is, if there is one; else of a joint of its own.
  const auto is_derivative = [&](std::string_view name) {
    return std::any_of(std::begin(kSuffixes) + 1, std::end(kSuffixes), [&](std::string_view suffix) {
      return name.size() > suffix.size() && name.substr(name.size() - suffix.size()) == suffix &&
             columns.count(name.substr(0, name.size() - suffix.size())) != 0;
    });
  };
  TrajectorySamples samples;
  std::copy_if(table.names.begin() + 1, table.names.end(), std::back_inserter(samples.joint_names),
               [&](const std::string& name) { return !is_derivative(name); });
  for (const Eigen::VectorXd& row : table.rows) {
    samples.times.push_back(row[0]);
  }
  for (std::size_t k = 0; k < std::size(kQuantities); ++k) {
    std::vector<Eigen::Index> of_joints;
    for (const std::string& joint : samples.joint_names) {
      if (const auto column = columns.find(joint + kSuffixes[k]); column != columns.end()) {
        of_joints.push_back(column->second);
      }
    }
    if (of_joints.empty()) {
      continue;
    }
    if (of_joints.size() != samples.joint_names.size()) {
      throw FileError(file, 0,
                      std::string("found ") + kQuantities[k].key + " of " + std::to_string(of_joints.size()) +
                          " of " + std::to_string(samples.joint_names.size()) +
                          " joints, expected those of all or of none");
    }
    for (const Eigen::VectorXd& row : table.rows) {
      (samples.*kQuantities[k].values).push_back(row(of_joints));
    }
  }
  return samples;
}

double ReadTime(const YamlValue& time) {
  if (time.isScalar()) {
    return time.number();
  }
  const bool is_old = time.find("secs").has_value();
  const double seconds = time.get(is_old ? "secs" : "sec").number();
  const auto nanoseconds = time.find(is_old ? "nsecs" : "nanosec");
  return seconds + (nanoseconds ? nanoseconds->number() / 1e9 : 0.0);
}

TrajectorySamples ParseMessage(const std::string& text, const std::string& file) {
  const YamlValue whole(text, file);
  const YamlValue root = whole.find("joint_trajectory").value_or(whole.find("trajectory").value_or(whole));
  TrajectorySamples samples;
  std::set<std::string> seen;
  for (const YamlValue& name : root.get("joint_names").elements()) {
    samples.joint_names.push_back(name.text());
    if (!seen.insert(name.text()).second) {
      name.fail("joint " + Quoted(name.text()) + " twice", "it once");
    }
  }
  for (const YamlValue& point : root.get("points").elements()) {
    samples.times.push_back(ReadTime(point.get("time_from_start")));
    for (const Quantity& quantity : kQuantities) {
      std::vector<Eigen::VectorXd>& all = samples.*quantity.values;
      const std::vector<YamlValue> values = point.elements(quantity.key);
      if (values.empty() && all.empty() && &quantity != kQuantities) {
        continue;
      }
      if (all.size() + 1 != samples.times.size() || values.size() != samples.joint_names.size()) {
        point.fail(std::to_string(values.size()) + " " + quantity.key,
                   all.size() + 1 != samples.times.size()
                       ? "none, as in the points before"
                       : "one for each of " + std::to_string(samples.joint_names.size()) + " joints");
      }
      Eigen::VectorXd& read = all.emplace_back(static_cast<Eigen::Index>(values.size()));
      for (std::size_t i = 0; i < values.size(); ++i) {
        read[static_cast<Eigen::Index>(i)] = values[i].number();
      }
    }
  }
  return samples;
}

}  // namespace

std::optional<TrajectoryForm> TrajectoryFormOf(const std::string& file) {
  const auto ends_in = [&](std::string_view ending) {
    return file.size() > ending.size() && file.substr(file.size() - ending.size()) == ending;
  };
  if (ends_in(".csv")) {
    return TrajectoryForm::kCsv;
  }
  if (ends_in(".json")) {
    return TrajectoryForm::kJson;
  }
  return ends_in(".yaml") || ends_in(".yml") ? std::optional(TrajectoryForm::kYaml) : std::nullopt;
}

std::string ToText(const TrajectorySamples& samples, TrajectoryForm form) {
  Validate(samples);
  switch (form) {
    case TrajectoryForm::kCsv:
      return ToCsv(samples);
    case TrajectoryForm::kJson:
      return ToJson(samples);
    case TrajectoryForm::kYaml:
      break;
  }
  return ToYaml(samples);
}

void WriteTrajectory(const TrajectorySamples& samples, const std::string& file, TrajectoryForm form) {
  WriteTextFile(file, ToText(samples, form));
}

TrajectorySamples ReadTrajectory(const std::string& file) {
  return ParseTrajectory(ReadTextFile(file, kMaxPathSize), file);
}

TrajectorySamples ParseTrajectory(const std::string& text, const std::string& file) {
  const std::size_t begin = std::min(text.find_first_not_of(" \t\r\n"), text.size());
  const bool is_table =
      text.compare(begin, std::string_view(kTime).size(), kTime) == 0 || text.find(':') == std::string::npos;
  TrajectorySamples samples = is_table ? ParseTable(text, file) : ParseMessage(text, file);
  if (samples.joint_names.empty() || samples.times.empty()) {
    throw FileError(file, 0,
                    "found " + std::to_string(samples.times.size()) + " samples of " +
                        std::to_string(samples.joint_names.size()) +
                        " joints, expected at least one of each");
  }
  if (samples.velocities.empty() && !samples.accelerations.empty()) {
    throw FileError(file, 0, "found accelerations without velocities, expected both or velocities alone");
  }
  return samples;
}

}  // namespace kavo::formats
