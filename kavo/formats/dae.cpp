#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string_view>
#include <vector>

#include "kavo/formats/dae_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/xml_internal.h"

namespace kavo::formats {

namespace {

using Element = XmlFile::Element;

// Also of the numbers that are multiplied with each other below.
constexpr std::uint64_t kMaxCount = std::uint64_t{1} << 31;
constexpr std::size_t kMaxNodes = 100000;

bool IsOneOf(const Element& element, std::initializer_list<const char*> names) {
  return std::any_of(names.begin(), names.end(),
                     [&](const char* name) { return std::strcmp(element.Name(), name) == 0; });
}

// Whether a child of the root reaches assimp.
bool IsOfSurface(const Element& element) {
  return IsOneOf(element, {"asset", "library_geometries", "library_nodes", "library_visual_scenes", "scene"});
}

class DaeCheck {
 public:
  explicit DaeCheck(const XmlFile& xml) : xml_(xml) {}

  void run() {
    forAll([this](const Element& element) { note(element); });
    forAll([this](const Element& element) {
      if (IsOneOf(element, {"accessor"})) {
        checkAccessor(element);
      } else if (IsOneOf(element, {"lines", "linestrips", "triangles", "trifans", "tristrips", "polygons",
                                   "polylist"})) {
        checkPrimitives(element);
      } else if (IsOneOf(element, {"vertices"})) {
        checkInputs(element);
      } else if (IsOneOf(element, {"node"})) {
        numNodes(element);
      }
    });
  }

 private:
  template <typename Visit>
  void forAll(const Visit& visit) const {
    const Element* const root = &xml_.root();
    for (const Element* element = root->FirstChildElement(); element != nullptr;) {
      const Element* next = nullptr;
      if (element->Parent() != root || IsOfSurface(*element)) {
        visit(*element);
        next = element->FirstChildElement();
      }
      while (next == nullptr && element != root) {
        next = element->NextSiblingElement();
        element = element->Parent()->ToElement();
      }
      element = next;
    }
  }

  std::uint64_t number(const Element& element, const char* name, std::uint64_t fallback) const {
    const char* const text = element.Attribute(name);
    if (text == nullptr) {
      return fallback;
    }
    std::uint64_t number = 0;
    const char* const end = text + std::strlen(text);
    const auto [stop, fault] = std::from_chars(text, end, number);
    if (fault != std::errc() || stop != end || number > kMaxCount) {
      xml_.fail(element, std::string(name) + "=" + Quoted(text), "a whole number that is not too large");
    }
    return number;
  }

  // How many there are, whether all are whole numbers, and their sum.
  struct Words {
    std::uint64_t count = 0;
    bool are_whole = true;
    std::uint64_t sum = 0;
  };
  static Words wordsIn(const Element& element) {
    Words words;
    const char* const text = element.GetText();
    std::string_view left = text == nullptr ? "" : text;
    constexpr std::string_view kBlank = " \t\r\n";
    for (std::size_t at = left.find_first_not_of(kBlank); at != std::string_view::npos;
         at = left.find_first_not_of(kBlank, at)) {
      const std::size_t end = std::min(left.find_first_of(kBlank, at), left.size());
      std::uint64_t number = 0;
      const auto [stop, fault] = std::from_chars(left.data() + at, left.data() + end, number);
      words.are_whole = words.are_whole && fault == std::errc() && stop == left.data() + end;
      words.sum = std::min(kMaxCount, words.sum + std::min(number, kMaxCount));
      ++words.count;
      at = end;
    }
    return words;
  }

  // The element that "#id" means in one of the tables; null if it is not in this file.
  static const Element* find(const std::map<std::string, const Element*>& table, const char* url) {
    const auto found = table.find(url == nullptr || url[0] != '#' ? "" : url + 1);
    return found == table.end() ? nullptr : found->second;
  }

  void add(std::map<std::string, const Element*>& table, const Element& element) const {
    const char* const id = element.Attribute("id");
    if (id != nullptr && !table.emplace(id, &element).second) {
      xml_.fail(element, "<" + std::string(element.Name()) + "> " + Quoted(id) + " for the second time",
                "different ids");
    }
  }

  void note(const Element& element) {
    if (IsOneOf(element, {"float_array", "Name_array", "IDREF_array"})) {
      add(arrays_, element);
      if (number(element, "count", 0) > wordsIn(element).count) {
        xml_.fail(element, "an array of less than it counts", "as many as its `count`");
      }
    } else if (IsOneOf(element, {"source"})) {
      add(sources_, element);
    } else if (IsOneOf(element, {"node"})) {
      for (const char* name : {"id", "name", "sid"}) {
        if (const char* const value = element.Attribute(name); value != nullptr) {
          nodes_[value].push_back(&element);
        }
      }
    }
  }

  void checkAccessor(const Element& accessor) const {
    const Element* const array = find(arrays_, accessor.Attribute("source"));
    const std::uint64_t stride = number(accessor, "stride", 1);
    const std::uint64_t end = number(accessor, "offset", 0) + number(accessor, "count", 0) * stride;
    if (array == nullptr || end > number(*array, "count", 0) ||
        XmlFile::children(accessor, "param").size() > stride) {
      xml_.fail(accessor, "an accessor that reaches beyond its array", "one that its array holds all of");
    }
  }

  // How many numbers stand for one corner.
  std::uint64_t checkInputs(const Element& element) const {
    constexpr std::uint64_t kMaxInputs = 64;
    std::uint64_t num_offsets = 1;
    for (const Element* input : XmlFile::children(element, "input")) {
      num_offsets = std::max(num_offsets, number(*input, "offset", 0) + 1);
      const Element* const source = find(sources_, input->Attribute("source"));
      if (num_offsets > kMaxInputs || number(*input, "set", 0) > kMaxInputs ||
          (source != nullptr && source->FirstChildElement("float_array") == nullptr)) {
        xml_.fail(*input, "an input that cannot be", "one with numbers, and not more than 64 of them");
      }
    }
    return num_offsets;
  }

  void checkPrimitives(const Element& element) const {
    const std::uint64_t num_offsets = checkInputs(element);
    const std::uint64_t least = IsOneOf(element, {"trifans", "tristrips"}) ? 3
                                : IsOneOf(element, {"linestrips"})         ? 2
                                                                           : 0;
    std::uint64_t num_words = 0;
    for (const Element* p : XmlFile::children(element, "p")) {
      const auto [count, are_whole, sum] = wordsIn(*p);
      num_words += count;
      if (!are_whole || count < least * num_offsets || count % num_offsets != 0) {
        xml_.fail(*p, "a list of " + std::to_string(count) + " indices", "those of whole primitives");
      }
    }
    const std::uint64_t num_corners = num_words / num_offsets;
    for (const Element* sizes : XmlFile::children(element, "vcount")) {
      const Words words = wordsIn(*sizes);
      if (!words.are_whole || words.sum > num_corners) {
        xml_.fail(*sizes, "polygons of more corners than there are", "as many as there are");
      }
    }
    if (number(element, "count", 0) > num_corners) {
      xml_.fail(element, "more primitives than indices for them", "as many as its `count`");
    }
  }

  // How many nodes one becomes when those that it contains are put in their places.
  std::size_t numNodes(const Element& node) {
    constexpr std::size_t kOpen = 0;
    if (const auto [place, is_new] = num_nodes_.emplace(&node, kOpen); !is_new) {
      if (place->second == kOpen) {
        xml_.fail(node, "a node that contains itself", "a tree");
      }
      return place->second;
    }
    std::size_t count = 1;
    const auto add = [&](const Element& other) {
      count += numNodes(other);
      if (count > kMaxNodes) {
        xml_.fail(node, "more than " + std::to_string(kMaxNodes) + " nodes", "fewer");
      }
    };
    // As deep as the elements are, of which the XML allows few hundred, and as nodes name each other.
    if (++depth_ > kMaxDepth) {
      xml_.fail(node, "nodes in nodes too deep", "fewer levels");
    }
    for (const Element* child : XmlFile::children(node, "node")) {
      add(*child);
    }
    for (const Element* instance : XmlFile::children(node, "instance_node")) {
      const char* const url = instance->Attribute("url");
      const auto named = nodes_.find(url == nullptr ? "" : url + (url[0] == '#' ? 1 : 0));
      if (named != nodes_.end()) {
        for (const Element* other : named->second) {
          add(*other);
        }
      }
    }
    --depth_;
    num_nodes_[&node] = count;
    return count;
  }

  static constexpr int kMaxDepth = 1000;

  const XmlFile& xml_;
  std::map<std::string, const Element*> arrays_;
  std::map<std::string, const Element*> sources_;
  std::map<std::string, std::vector<const Element*>> nodes_;
  std::map<const Element*, std::size_t> num_nodes_;
  int depth_ = 0;
};

}  // namespace

std::string ExtractDae(const std::string& content, const std::string& file) {
  const XmlFile xml(content, file, "COLLADA");
  DaeCheck(xml).run();
  tinyxml2::XMLDocument document;
  Element* const root = document.NewElement("COLLADA");
  document.InsertEndChild(root);
  root->SetAttribute("version", "1.4.1");
  for (const Element* child = xml.root().FirstChildElement(); child != nullptr;
       child = child->NextSiblingElement()) {
    if (IsOfSurface(*child)) {
      root->InsertEndChild(child->DeepClone(&document));
    }
  }
  tinyxml2::XMLPrinter printer(nullptr, true);
  document.Print(&printer);
  return printer.CStr();
}

}  // namespace kavo::formats
