#include <utility>

#include "kavo/formats/file_error.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/yaml_value_internal.h"

namespace kavo::formats {

namespace {

int Line(const YAML::Mark& mark) { return mark.is_null() ? 0 : mark.line + 1; }

}  // namespace

YamlValue::YamlValue(const std::string& text, const std::string& file)
    : file_(std::make_shared<const std::string>(file)) {
  try {
    node_.reset(YAML::Load(text));
  } catch (const YAML::Exception& error) {
    throw FileError(file, Line(error.mark), "found what is no YAML: " + error.msg);
  }
}

YamlValue::YamlValue(const YAML::Node& node, std::shared_ptr<const std::string> file)
    : node_(node), file_(std::move(file)) {}

bool YamlValue::isEmpty() const { return !node_.IsDefined() || node_.IsNull(); }

std::optional<YamlValue> YamlValue::find(const char* key) const {
  if (!node_.IsMap()) {
    fail("a map");
  }
  YamlValue value(node_[key], file_);
  if (value.isEmpty()) {
    return std::nullopt;
  }
  return value;
}

YamlValue YamlValue::get(const char* key) const {
  std::optional<YamlValue> value = find(key);
  if (!value) {
    fail("nothing under `" + std::string(key) + "`", "a value");
  }
  return *std::move(value);
}

std::vector<YamlValue> YamlValue::elements() const {
  if (!node_.IsSequence()) {
    fail("a sequence");
  }
  std::vector<YamlValue> elements;
  elements.reserve(node_.size());
  for (const YAML::Node& element : node_) {
    elements.push_back(YamlValue(element, file_));
  }
  return elements;
}

std::vector<YamlValue> YamlValue::elements(const char* key) const {
  const std::optional<YamlValue> sequence = find(key);
  return sequence ? sequence->elements() : std::vector<YamlValue>();
}

std::vector<std::pair<std::string, YamlValue>> YamlValue::entries() const {
  if (!node_.IsMap()) {
    fail("a map");
  }
  std::vector<std::pair<std::string, YamlValue>> entries;
  entries.reserve(node_.size());
  for (const auto& entry : node_) {
    entries.emplace_back(YamlValue(entry.first, file_).text(), YamlValue(entry.second, file_));
  }
  return entries;
}

std::string YamlValue::text() const {
  if (!node_.IsScalar()) {
    fail("a text");
  }
  return node_.Scalar();
}

double YamlValue::number() const {
  const std::optional<double> number = node_.IsScalar() ? ParseNumber(node_.Scalar()) : std::nullopt;
  if (!number) {
    fail("a finite number");
  }
  return *number;
}

template <std::size_t size>
std::array<double, size> YamlValue::coordinates(const std::array<const char*, size>& names) const {
  std::array<double, size> coordinates{};
  if (node_.IsMap()) {
    for (std::size_t i = 0; i < size; ++i) {
      coordinates[i] = get(names[i]).number();
    }
    return coordinates;
  }
  if (!node_.IsSequence() || node_.size() != size) {
    fail(std::to_string(size) + " numbers");
  }
  for (std::size_t i = 0; i < size; ++i) {
    coordinates[i] = YamlValue(node_[i], file_).number();
  }
  return coordinates;
}

Eigen::Vector3d YamlValue::vector() const {
  const std::array<double, 3> v = coordinates<3>({"x", "y", "z"});
  return {v[0], v[1], v[2]};
}

Pose3 YamlValue::pose(const char* translation_key, const char* rotation_key) const {
  const std::optional<YamlValue> translation = find(translation_key);
  const std::optional<YamlValue> rotation = find(rotation_key);
  Eigen::Quaterniond quaternion = Eigen::Quaterniond::Identity();
  if (rotation) {
    const std::array<double, 4> q = rotation->coordinates<4>({"x", "y", "z", "w"});
    quaternion = Eigen::Quaterniond(q[3], q[0], q[1], q[2]);
    if (const std::optional<std::string> fault = QuaternionFault(quaternion)) {
      rotation->fail(*fault, "unit length");
    }
  }
  return {quaternion, translation ? translation->vector() : Eigen::Vector3d::Zero()};
}

void YamlValue::fail(const std::string& expected) const {
  std::string found = "nothing";
  if (node_.IsScalar()) {
    found = Quoted(node_.Scalar());
  } else if (node_.IsSequence()) {
    const std::size_t size = node_.size();
    found = "a sequence of " + std::to_string(size) + (size == 1 ? " element" : " elements");
  } else if (node_.IsMap()) {
    found = "a map";
  }
  fail(found, expected);
}

void YamlValue::fail(const std::string& found, const std::string& expected) const {
  throw FileError(*file_, Line(node_.Mark()), "found " + found + ", expected " + expected);
}

}  // namespace kavo::formats
