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
#include "kavo/util/log_message.h"
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

// Puts values into a tree as they come, children after their parent.
class TreeBuilder {
 public:
  using Kind = YamlTree::Kind;
  using Node = YamlTree::Node;

  explicit TreeBuilder(YamlTree& tree) : tree_(tree) {}

  //! \return The index of the new node.
  std::uint32_t add(Kind kind, int line) {
    if (tree_.nodes.size() == YamlValue::kMaxValues) {
      fail(line, "more than " + std::to_string(YamlValue::kMaxValues) + " values", "fewer");
    }
    const auto index = static_cast<std::uint32_t>(tree_.nodes.size());
    Node node;
    node.kind = kind;
    node.line = static_cast<std::uint32_t>(line);
    tree_.nodes.push_back(node);
    if (!open_.empty()) {
      Open& parent = open_.back();
      (parent.last_child == YamlTree::kNone ? tree_.nodes[parent.node].first
                                            : tree_.nodes[parent.last_child].next) = index;
      parent.last_child = index;
      ++tree_.nodes[parent.node].size;
    }
    return index;
  }

  std::uint32_t addScalar(int line, std::string_view value) {
    const std::uint32_t index = add(Kind::kScalar, line);
    tree_.nodes[index].first = static_cast<std::uint32_t>(tree_.text.size());
    tree_.nodes[index].size = static_cast<std::uint32_t>(value.size());
    tree_.text += value;
    return index;
  }

  // What a node says, once more.
  void addAlias(int line, std::uint32_t target) {
    if (std::any_of(open_.begin(), open_.end(), [&](const Open& open) { return open.node == target; })) {
      fail(line, "a value inside itself", "one that ends");
    }
    const std::uint32_t index = add(tree_.nodes[target].kind, line);
    // The children are shared.
    tree_.nodes[index] = tree_.nodes[target];
    tree_.nodes[index].next = YamlTree::kNone;
  }

  std::uint32_t open(Kind kind, int line) {
    const std::uint32_t index = add(kind, line);
    open_.push_back({index, YamlTree::kNone});
    return index;
  }

  void close() {
    const Node& node = tree_.nodes[open_.back().node];
    if (node.kind == Kind::kMap) {
      checkKeys(node);
    }
    open_.pop_back();
  }

  // The collection that is open, if any.
  const Node* current() const { return open_.empty() ? nullptr : &tree_.nodes[open_.back().node]; }

  [[noreturn]] void fail(int line, const std::string& found, const std::string& expected) const {
    throw FileError(tree_.file, line, "found " + found + ", expected " + expected);
  }

 private:
  // A sequence or a map whose end has not come, and the last of its children.
  struct Open {
    std::uint32_t node;
    std::uint32_t last_child;
  };

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

  YamlTree& tree_;
  std::vector<Open> open_;
  std::vector<std::pair<std::string_view, std::uint32_t>> keys_;
};

// Writes down what the parser of YAML comes across.
class YamlEvents : public YAML::EventHandler {
 public:
  explicit YamlEvents(YamlTree& tree) : builder_(tree) {}

  void OnDocumentStart(const YAML::Mark& mark) override {
    if (std::exchange(has_document_, true)) {
      builder_.fail(Line(mark), "a second document", "one");
    }
  }
  void OnDocumentEnd() override {}

  void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    keep(anchor, builder_.add(Kind::kNull, Line(mark)));
  }
  void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    builder_.addAlias(Line(mark), anchors_[anchor]);
  }
  void OnScalar(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                const std::string& value) override {
    keep(anchor, builder_.addScalar(Line(mark), value));
  }
  void OnSequenceStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value) override {
    keep(anchor, builder_.open(Kind::kSequence, Line(mark)));
  }
  void OnSequenceEnd() override { builder_.close(); }
  void OnMapStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value) override {
    keep(anchor, builder_.open(Kind::kMap, Line(mark)));
  }
  void OnMapEnd() override { builder_.close(); }

 private:
  using Kind = YamlTree::Kind;

  void keep(YAML::anchor_t anchor, std::uint32_t node) {
    if (anchor != 0) {
      anchors_.resize(std::max<std::size_t>(anchors_.size(), anchor + 1));
      anchors_[anchor] = node;
    }
  }

  TreeBuilder builder_;
  bool has_document_ = false;
  // The node of each anchor, by its number.
  std::vector<std::uint32_t> anchors_;
};

// Reads YAML that is JSON. The parser of YAML would keep all of it in memory, symbol by symbol, until the
// last bracket: it might be the key of a map. What is not plain JSON is left to that parser, strings with
// codes of characters among it.
class JsonReader {
 public:
  JsonReader(std::string_view text, YamlTree& tree) : rest_(text), builder_(tree) {}

  // Whether the text is JSON; if not, the tree is unfinished.
  bool read() {
    if (next() != '{' && next() != '[') {
      return false;
    }
    do {
      if (!readValue()) {
        return false;
      }
      // The ends of what the value was the last one of, up to a comma.
      while (builder_.current() != nullptr && next() == closing()) {
        if (!isComplete()) {
          return false;
        }
        builder_.close();
        rest_.remove_prefix(1);
      }
      if (builder_.current() != nullptr && is_behind_value_ && !take(isComplete() ? ',' : ':')) {
        return false;
      }
    } while (builder_.current() != nullptr);
    next();
    return rest_.empty();
  }

 private:
  using Kind = YamlTree::Kind;

  char closing() const { return builder_.current()->kind == Kind::kMap ? '}' : ']'; }
  // Whether no key waits for its value.
  bool isComplete() const {
    return builder_.current()->kind != Kind::kMap || builder_.current()->size % 2 == 0;
  }

  // The first character that is not blank; zero at the end.
  char next() {
    while (!rest_.empty() && (rest_[0] == ' ' || rest_[0] == '\n' || rest_[0] == '\r' || rest_[0] == '\t')) {
      line_ += rest_[0] == '\n' ? 1 : 0;
      rest_.remove_prefix(1);
    }
    return rest_.empty() ? '\0' : rest_[0];
  }

  bool take(char c) {
    if (next() != c) {
      return false;
    }
    rest_.remove_prefix(1);
    // Nothing may end behind a comma.
    return next() != '}' && next() != ']';
  }

  // A scalar, or the begin of a collection.
  bool readValue() {
    const bool is_key =
        builder_.current() != nullptr && builder_.current()->kind == Kind::kMap && isComplete();
    const char first = next();
    is_behind_value_ = true;
    if (first == '"') {
      return readString();
    }
    if (is_key) {
      return false;
    }
    if (first == '{' || first == '[') {
      builder_.open(first == '{' ? Kind::kMap : Kind::kSequence, line_);
      rest_.remove_prefix(1);
      // Its first value comes without a comma before it; an empty one is a value itself.
      is_behind_value_ = next() == closing();
      return true;
    }
    const std::string_view word = rest_.substr(0, rest_.find_first_of(" \t\r\n,:]}[{"));
    rest_.remove_prefix(word.size());
    if (word == "null") {
      builder_.add(Kind::kNull, line_);
      return true;
    }
    if (word != "true" && word != "false" && !util::ParseNumber(word)) {
      return false;
    }
    builder_.addScalar(line_, word);
    return true;
  }

  bool readString() {
    const std::size_t end = rest_.find_first_of("\"\\\n", 1);
    if (end == std::string_view::npos || rest_[end] != '"') {
      return false;
    }
    builder_.addScalar(line_, rest_.substr(1, end - 1));
    rest_.remove_prefix(end + 1);
    return true;
  }

  std::string_view rest_;
  TreeBuilder builder_;
  int line_ = 1;
  bool is_behind_value_ = true;
};

// Refuses a collection in brackets whose symbols the parser of YAML would take too much memory to keep.
void CheckCollections(std::string_view text, const std::string& file) {
  constexpr std::size_t kMaxSize = std::size_t{16} << 20;
  if (text.size() <= kMaxSize) {
    return;
  }
  // Where the outermost bracket that is open stands, and how many are.
  std::size_t begin = 0;
  std::size_t depth = 0;
  // What a value begins behind, and the quote that is open.
  char before = '\n';
  char quote = '\0';
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool begins_value =
        before == '\n' || before == '-' || before == ':' || before == ',' || before == '[' || before == '{';
    if (quote != '\0') {
      i += c == '\\' && quote == '"' ? 1 : 0;
      quote = c == quote ? '\0' : quote;
    } else if ((c == '"' || c == '\'') && begins_value) {
      quote = c;
    } else if ((c == '[' || c == '{') && begins_value) {
      begin = depth++ == 0 ? i : begin;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
    if (depth > 0 && i - begin > kMaxSize) {
      const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(begin), '\n');
      throw FileError(file, static_cast<int>(line),
                      "found a collection in brackets of more than " + std::to_string(kMaxSize >> 20) +
                          " MiB, expected JSON or a smaller one");
    }
    before = c == ' ' || c == '\t' || c == '\r' || (c == '\n' && depth > 0) ? before : c;
  }
}

YamlTree ReadTree(const std::string& text, const std::string& file) {
  YamlTree tree;
  tree.file = file;
  if (JsonReader(text, tree).read()) {
    return tree;
  }
  tree.nodes.clear();
  tree.text.clear();
  CheckCollections(text, file);
  YamlEvents events(tree);
  TextBuffer buffer(text);
  std::istream stream(&buffer);
  try {
    YAML::Parser parser(stream);
    while (parser.HandleNextDocument(events)) {
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

bool YamlValue::isScalar() const { return node().kind == YamlTree::Kind::kScalar; }

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

void YamlValue::warnOfOtherKeys(const std::set<std::string_view>& known, const std::string& what,
                                std::set<std::string>& said) const {
  constexpr std::size_t kMostSaid = 20;
  if (node().kind != YamlTree::Kind::kMap) {
    return;
  }
  std::uint32_t value = YamlTree::kNone;
  for (std::uint32_t i = node().first; i != YamlTree::kNone; i = tree_->nodes[value].next) {
    value = tree_->nodes[i].next;
    const std::optional<std::string_view> key = YamlValue(tree_, i).scalar();
    if (key && known.count(*key) == 0 && said.size() < kMostSaid &&
        said.insert(what + "/" + std::string(*key)).second) {
      KAVO_LOG(LogLevel::kWarning) << tree_->file << ":" << tree_->nodes[i].line << ": found key "
                                   << Quoted(*key) << " in " << what
                                   << ", which has no meaning there and is passed over.";
    }
  }
}

std::string YamlValue::text() const {
  const std::optional<std::string_view> text = scalar();
  // An alias may repeat a long one all over a file.
  constexpr std::size_t kMaxLength = 4096;
  if (!text || text->size() > kMaxLength) {
    fail("a text of at most " + std::to_string(kMaxLength) + " bytes");
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
