#pragma once

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kavo/formats/unhonoured.h"
#include "kavo/math/pose3.h"

namespace kavo::formats {

//! What a YAML file says, in little memory: a scene may have millions of values.
struct YamlTree {
  enum class Kind : std::uint8_t { kNull, kScalar, kSequence, kMap };

  static constexpr std::uint32_t kNone = static_cast<std::uint32_t>(-1);

  //! The keys and values of a map are its children by turns.
  struct Node {
    Kind kind = Kind::kNull;
    std::uint32_t line = 0;
    //! Where its text begins, or its first child.
    std::uint32_t first = kNone;
    //! The length of its text, or the number of its children.
    std::uint32_t size = 0;
    //! The next child of the same parent.
    std::uint32_t next = kNone;
  };

  std::string file;
  //! The first one is the root.
  std::vector<Node> nodes;
  //! The texts of all scalars.
  std::string text;
};

//! A value in a YAML file. Being asked for what it is not ends in a `FileError` with its line.
class YamlValue {
 public:
  //! How many values a file may have.
  static constexpr std::size_t kMaxValues = 10'000'000;

  //! The root of a file. One that is no YAML, has several documents, a key twice in a map, a value inside
  //! itself or too many values is refused.
  YamlValue(const std::string& text, const std::string& file);

  //! The value of a key of a map; none if the key is missing or empty.
  std::optional<YamlValue> find(std::string_view key) const;
  //! The same for a key that has to be there.
  YamlValue get(std::string_view key) const;

  bool isSequence() const;
  bool isScalar() const;

  //! The elements of a sequence; in the second form of that under a key, none if the key is missing or empty.
  std::vector<YamlValue> elements() const;
  std::vector<YamlValue> elements(std::string_view key) const;

  //! The keys and values of a map, in the order of the file.
  std::vector<std::pair<std::string, YamlValue>> entries() const;

  //! Warns of the keys of a map that are none of these: most likely misspelt.
  //! \param what The map is, for the message.
  //! \param said Keys that were warned of before, each with what it stands in; of no more than a few.
  void warnOfOtherKeys(const std::set<std::string_view>& known, const std::string& what,
                       std::set<std::string>& said) const;

  //! The text of a scalar.
  std::string text() const;
  //! A scalar that is a finite number.
  double number() const;
  //! A scalar that is true or false, or 1 or 0.
  bool flag() const;

  //! [x, y, z] or {x: , y: , z: }.
  Eigen::Vector3d vector() const;
  //! A map with a vector and a quaternion ([x, y, z, w] or {x: , y: , z: , w: }) under these keys. Zero and
  //! the identity where one is missing.
  Pose3 pose(std::string_view translation_key, std::string_view rotation_key) const;

  //! "found <what this is>, expected <expected>", or the same with another finding, at the line of this
  //! value.
  [[noreturn]] void fail(const std::string& expected) const;
  [[noreturn]] void fail(const std::string& found, const std::string& expected) const;

  //! What is not honoured, at the line of this value.
  Unhonoured unhonoured(Unhonoured::Kind kind, std::string what) const;

  //! The name of the file for errors.
  const std::string& file() const { return tree_->file; }
  //! First line is 1.
  int line() const { return static_cast<int>(node().line); }

 private:
  YamlValue(std::shared_ptr<const YamlTree> tree, std::uint32_t index)
      : tree_(std::move(tree)), index_(index) {}

  const YamlTree::Node& node() const { return tree_->nodes[index_]; }
  std::optional<std::string_view> scalar() const;

  // The same coordinates, given in order or by name.
  template <std::size_t size>
  std::array<double, size> coordinates(const std::array<const char*, size>& names) const;

  std::shared_ptr<const YamlTree> tree_;
  std::uint32_t index_;
};

}  // namespace kavo::formats
