#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/mark.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <istream>
#include <streambuf>
#include <utility>

#include "kavo/formats/file_error.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/yaml_value_internal.h"
#include "kavo/util/parse_number.h"

namespace kavo::formats {

namespace {

int Line(const YAML::Mark& mark) { return mark.is_null() ? 0 : mark.line + 1; }

// A text as a stream, without a copy.
class TextBuffer : public std::streambuf {
 public:
  explicit TextBuffer(const std::string& text) {
    // What is only read is not changed.
    char* const begin = const_cast<char*>(text.data());  // NOLINT(cppcoreguidelines-pro-type-const-cast)
    setg(begin, begin, begin + text.size());
  }
};

// Writes down what the parser comes across.
class TreeBuilder : public YAML::EventHandler {
 public:
  explicit TreeBuilder(YamlTree& tree) : tree_(tree) {}

  void OnDocumentStart(const YAML::Mark& mark) override {
    if (!tree_.nodes.empty()) {
      fail(Line(mark), "a second document", "one");
    }
  }
  void OnDocumentEnd() override {}

  void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override { add(Kind::kNull, mark, anchor); }

  void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    const std::uint32_t target = anchors_[anchor];
    if (std::any_of(open_.begin(), open_.end(), [&](const Open& open) { return open.node == target; })) {
      fail(Line(mark), "a value inside itself", "one that ends");
    }
    const Node of_target = tree_.nodes[target];
    Node& alias = add(of_target.kind, mark, 0);
    // The children are shared.
    alias = of_target;
    alias.next = YamlTree::kNone;
  }

  void OnScalar(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                const std::string& value) override {
    Node& node = add(Kind::kScalar, mark, anchor);
    node.first = static_cast<std::uint32_t>(tree_.text.size());
    node.size = static_cast<std::uint32_t>(value.size());
    tree_.text += value;
  }

  void OnSequenceStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value) override {
    open(Kind::kSequence, mark, anchor);
  }
  void OnSequenceEnd() override { open_.pop_back(); }

  void OnMapStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value) override {
    open(Kind::kMap, mark, anchor);
  }
  void OnMapEnd() override {
    checkKeys(tree_.nodes[open_.back().node]);
    open_.pop_back();
  }

 private:
  using Kind = YamlTree::Kind;
  using Node = YamlTree::Node;

  // A sequence or a map whose end has not come, and the last of its children.
  struct Open {
    std::uint32_t node;
    std::uint32_t last_child;
  };

  Node& add(Kind kind, const YAML::Mark& mark, YAML::anchor_t anchor) {
    if (tree_.nodes.size() == YamlValue::kMaxValues) {
      fail(Line(mark), "more than " + std::to_string(YamlValue::kMaxValues) + " values", "fewer");
    }
    const auto index = static_cast<std::uint32_t>(tree_.nodes.size());
    Node node;
    node.kind = kind;
    node.line = static_cast<std::uint32_t>(Line(mark));
    tree_.nodes.push_back(node);
    if (anchor != 0) {
      anchors_.resize(std::max<std::size_t>(anchors_.size(), anchor + 1));
      anchors_[anchor] = index;
    }
    if (!open_.empty()) {
      Open& parent = open_.back();
      (parent.last_child == YamlTree::kNone ? tree_.nodes[parent.node].first
                                            : tree_.nodes[parent.last_child].next) = index;
      parent.last_child = index;
      ++tree_.nodes[parent.node].size;
    }
    return tree_.nodes.back();
  }

  void open(Kind kind, const YAML::Mark& mark, YAML::anchor_t anchor) {
    add(kind, mark, anchor);
    open_.push_back({static_cast<std::uint32_t>(tree_.nodes.size() - 1), YamlTree::kNone});
  }

  void checkKeys(const Node& map) {
    keys_.clear();
    for (std::uint32_t key = map.first; key != YamlTree::kNone;
         key = tree_.nodes[tree_.nodes[key].next].next) {
      const Node& node = tree_.nodes[key];
      if (node.kind == Kind::kScalar) {
        keys_.emplace_back(std::string_view(tree_.text).substr(node.first, node.size), node.line);
      }
    }
    std::sort(keys_.begin(), keys_.end());
    const auto doubled = std::adjacent_find(keys_.begin(), keys_.end(),
                                            [](const auto& a, const auto& b) { return a.first == b.first; });
    if (doubled != keys_.end()) {
      fail(static_cast<int>((doubled + 1)->second), "key " + Quoted(doubled->first) + " again",
           "each key once in a map");
    }
  }

  [[noreturn]] void fail(int line, const std::string& found, const std::string& expected) const {
    throw FileError(tree_.file, line, "found " + found + ", expected " + expected);
  }

  YamlTree& tree_;
  std::vector<Open> open_;
  // The node of each anchor, by its number.
  std::vector<std::uint32_t> anchors_;
  std::vector<std::pair<std::string_view, std::uint32_t>> keys_;
};

YamlTree ReadTree(const std::string& text, const std::string& file) {
  YamlTree tree;
  tree.file = file;
  TreeBuilder builder(tree);
  TextBuffer buffer(text);
  std::istream stream(&buffer);
  try {
    YAML::Parser parser(stream);
    while (parser.HandleNextDocument(builder)) {
    }
  } catch (const YAML::Exception& error) {
    throw FileError(file, Line(error.mark), "found what is no YAML: " + error.msg);
  }
  if (tree.nodes.empty()) {
    tree.nodes.emplace_back();
  }
  return tree;
}

}  // namespace

YamlValue::YamlValue(const std::string& text, const std::string& file)
    : YamlValue(std::make_shared<const YamlTree>(ReadTree(text, file)), 0) {}

std::optional<std::string_view> YamlValue::scalar() const {
  if (node().kind != YamlTree::Kind::kScalar) {
    return std::nullopt;
  }
  return std::string_view(tree_->text).substr(node().first, node().size);
}

std::optional<YamlValue> YamlValue::find(std::string_view key) const {
  if (node().kind != YamlTree::Kind::kMap) {
    fail("a map");
  }
  for (std::uint32_t i = node().first; i != YamlTree::kNone;) {
    const std::uint32_t value = tree_->nodes[i].next;
    if (YamlValue(tree_, i).scalar() == key) {
      return tree_->nodes[value].kind == YamlTree::Kind::kNull ? std::nullopt
                                                               : std::optional(YamlValue(tree_, value));
    }
    i = tree_->nodes[value].next;
  }
  return std::nullopt;
}

YamlValue YamlValue::get(std::string_view key) const {
  std::optional<YamlValue> value = find(key);
  if (!value) {
    fail("nothing under `" + std::string(key) + "`", "a value");
  }
  return *std::move(value);
}

bool YamlValue::isSequence() const { return node().kind == YamlTree::Kind::kSequence; }

std::vector<YamlValue> YamlValue::elements() const {
  if (!isSequence()) {
    fail("a sequence");
  }
  std::vector<YamlValue> elements;
  elements.reserve(node().size);
  for (std::uint32_t i = node().first; i != YamlTree::kNone; i = tree_->nodes[i].next) {
    elements.push_back(YamlValue(tree_, i));
  }
  return elements;
}

std::vector<YamlValue> YamlValue::elements(std::string_view key) const {
  const std::optional<YamlValue> sequence = find(key);
  return sequence ? sequence->elements() : std::vector<YamlValue>();
}

std::vector<std::pair<std::string, YamlValue>> YamlValue::entries() const {
  if (node().kind != YamlTree::Kind::kMap) {
    fail("a map");
  }
  std::vector<std::pair<std::string, YamlValue>> entries;
  entries.reserve(node().size / 2);
  for (std::uint32_t i = node().first; i != YamlTree::kNone;) {
    const std::uint32_t value = tree_->nodes[i].next;
    entries.emplace_back(YamlValue(tree_, i).text(), YamlValue(tree_, value));
    i = tree_->nodes[value].next;
  }
  return entries;
}

std::string YamlValue::text() const {
  const std::optional<std::string_view> text = scalar();
  if (!text) {
    fail("a text");
  }
  return std::string(*text);
}

double YamlValue::number() const {
  const std::optional<std::string_view> text = scalar();
  const std::optional<double> number = text ? util::ParseNumber(*text) : std::nullopt;
  if (!number) {
    fail("a finite number");
  }
  return *number;
}

bool YamlValue::flag() const {
  const std::string_view text = scalar().value_or("");
  const bool is_true = text == "true" || text == "True" || text == "TRUE" || text == "1";
  if (!is_true && text != "false" && text != "False" && text != "FALSE" && text != "0") {
    fail("true or false");
  }
  return is_true;
}

template <std::size_t size>
std::array<double, size> YamlValue::coordinates(const std::array<const char*, size>& names) const {
  std::array<double, size> coordinates{};
  if (node().kind == YamlTree::Kind::kMap) {
    for (std::size_t i = 0; i < size; ++i) {
      coordinates[i] = get(names[i]).number();
    }
    return coordinates;
  }
  if (!isSequence() || node().size != size) {
    fail(std::to_string(size) + " numbers");
  }
  std::uint32_t element = node().first;
  for (double& coordinate : coordinates) {
    coordinate = YamlValue(tree_, element).number();
    element = tree_->nodes[element].next;
  }
  return coordinates;
}

Eigen::Vector3d YamlValue::vector() const {
  const std::array<double, 3> v = coordinates<3>({"x", "y", "z"});
  return {v[0], v[1], v[2]};
}

Pose3 YamlValue::pose(std::string_view translation_key, std::string_view rotation_key) const {
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
  switch (node().kind) {
    case YamlTree::Kind::kNull:
      break;
    case YamlTree::Kind::kScalar:
      found = Quoted(*scalar());
      break;
    case YamlTree::Kind::kSequence:
      found = "a sequence of " + std::to_string(node().size) + (node().size == 1 ? " element" : " elements");
      break;
    case YamlTree::Kind::kMap:
      found = "a map";
      break;
  }
  fail(found, expected);
}

void YamlValue::fail(const std::string& found, const std::string& expected) const {
  throw FileError(tree_->file, line(), "found " + found + ", expected " + expected);
}

Unhonoured YamlValue::unhonoured(Unhonoured::Kind kind, std::string what) const {
  return {kind, std::move(what), tree_->file, line()};
}

}  // namespace kavo::formats
