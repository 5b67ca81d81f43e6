#pragma once

#include <yaml-cpp/yaml.h>

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/math/pose3.h"

namespace kavo::formats {

//! A value in a YAML file. Being asked for what it is not ends in a `FileError` with its line.
class YamlValue {
 public:
  //! The root of a file.
  YamlValue(const std::string& text, const std::string& file);

  //! The value of a key of a map; none if the key is missing or empty.
  std::optional<YamlValue> find(const char* key) const;
  //! The same for a key that has to be there.
  YamlValue get(const char* key) const;

  //! The elements of a sequence; in the second form of that under a key, none if the key is missing or empty.
  std::vector<YamlValue> elements() const;
  std::vector<YamlValue> elements(const char* key) const;

  //! The keys and values of a map, in the order of the file.
  std::vector<std::pair<std::string, YamlValue>> entries() const;

  //! The text of a scalar.
  std::string text() const;
  //! A scalar that is a finite number.
  double number() const;

  //! [x, y, z] or {x: , y: , z: }.
  Eigen::Vector3d vector() const;
  //! A map with a vector and a quaternion ([x, y, z, w] or {x: , y: , z: , w: }) under these keys. Zero and
  //! the identity where one is missing.
  Pose3 pose(const char* translation_key, const char* rotation_key) const;

  //! "found <what this is>, expected <expected>", or the same with another finding, at the line of this
  //! value.
  [[noreturn]] void fail(const std::string& expected) const;
  [[noreturn]] void fail(const std::string& found, const std::string& expected) const;

 private:
  YamlValue(const YAML::Node& node, std::shared_ptr<const std::string> file);

  bool isEmpty() const;

  // The same coordinates, given in order or by name.
  template <std::size_t size>
  std::array<double, size> coordinates(const std::array<const char*, size>& names) const;

  YAML::Node node_;
  std::shared_ptr<const std::string> file_;
};

}  // namespace kavo::formats
