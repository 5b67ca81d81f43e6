#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "kavo/formats/file_error.h"
#include "kavo/formats/ply_internal.h"
#include "kavo/formats/text_internal.h"

namespace kavo::formats {

namespace {

// A type of number: how many bytes it takes, and whether it is one of floating point or has a sign.
struct Type {
  const char* name;
  std::size_t size;
  bool is_real;
  bool is_signed;
};

constexpr Type kTypes[] = {
    {"char", 1, false, true},    {"int8", 1, false, true},    {"uchar", 1, false, false},
    {"uint8", 1, false, false},  {"short", 2, false, true},   {"int16", 2, false, true},
    {"ushort", 2, false, false}, {"uint16", 2, false, false}, {"int", 4, false, true},
    {"int32", 4, false, true},   {"uint", 4, false, false},   {"uint32", 4, false, false},
    {"float", 4, true, true},    {"float32", 4, true, true},  {"double", 8, true, true},
    {"float64", 8, true, true},
};

struct Property {
  std::string name;
  Type type;
  // Of the length that comes before a list.
  std::optional<Type> length;
};

struct Element {
  std::string name;
  std::size_t count;
  std::vector<Property> properties;
};

enum class Form { kAscii, kLittleEndian, kBigEndian };

class PlyReader {
 public:
  PlyReader(const std::string& content, const std::string& file, std::size_t max_triangles)
      : content_(content), file_(file), max_triangles_(max_triangles) {}

  Surface read() {
    readHeader();
    for (const Element& element : elements_) {
      if (element.name == "vertex") {
        readVertices(element);
      } else {
        readOther(element);
      }
    }
    line_ = 0;
    for (const std::vector<std::uint32_t>& corners : faces_) {
      for (const std::uint32_t index : corners) {
        if (index >= surface_.vertices.size()) {
          fail("a face with vertex " + std::to_string(index) + " of " +
                   std::to_string(surface_.vertices.size()),
               "indices of vertices, from 0 on");
        }
      }
      surface_.addPolygon(corners);
    }
    return std::move(surface_);
  }

 private:
  [[noreturn]] void fail(const std::string& found, const std::string& expected) const {
    throw FileError(file_, line_, "found " + found + ", expected " + expected);
  }

  void readHeader() {
    std::optional<Form> form;
    std::vector<std::string_view> words = nextLine();
    if (words.size() != 1 || words[0] != "ply") {
      fail("no \"ply\" at the beginning", "a PLY file");
    }
    for (words = nextLine(); words.empty() || words[0] != "end_header"; words = nextLine()) {
      if (words.size() >= 2 && words[0] == "format") {
        form = words[1] == "ascii"                  ? std::optional(Form::kAscii)
               : words[1] == "binary_little_endian" ? std::optional(Form::kLittleEndian)
               : words[1] == "binary_big_endian"    ? std::optional(Form::kBigEndian)
                                                    : std::nullopt;
      } else if (words.size() == 3 && words[0] == "element") {
        elements_.push_back({std::string(words[1]), countOf(words[2]), {}});
      } else if (!elements_.empty() && words.size() == 3 && words[0] == "property") {
        elements_.back().properties.push_back({std::string(words[2]), typeOf(words[1]), {}});
      } else if (!elements_.empty() && words.size() == 5 && words[0] == "property" && words[1] == "list") {
        elements_.back().properties.push_back({std::string(words[4]), typeOf(words[3]), typeOf(words[2])});
      } else if (!words.empty() && (words[0] == "element" || words[0] == "property")) {
        fail("an " + Quoted(words[0]) + " that does not fit in the header", "its kind and its name");
      }
    }
    if (!form) {
      fail("a header without a known format", "ascii, binary_little_endian or binary_big_endian");
    }
    form_ = *form;
    line_ = form_ == Form::kAscii ? line_ + 1 : 0;
  }

  // The words of the next line of the header.
  std::vector<std::string_view> nextLine() {
    const std::size_t end = content_.find('\n', at_);
    if (end == std::string::npos) {
      fail("the end of the file in the header", "end_header");
    }
    ++line_;
    std::string_view line = std::string_view(content_).substr(at_, end - at_);
    at_ = end + 1;
    std::vector<std::string_view> words;
    while (!(line = Trimmed(line)).empty()) {
      const std::size_t length = std::min(line.find_first_of(" \t"), line.size());
      words.push_back(line.substr(0, length));
      line.remove_prefix(length);
    }
    return words;
  }

  std::size_t countOf(std::string_view word) const {
    std::size_t count = 0;
    const auto [end, fault] = std::from_chars(word.data(), word.data() + word.size(), count);
    if (fault != std::errc() || end != word.data() + word.size()) {
      fail(Quoted(word), "how many of the element there are");
    }
    return count;
  }

  Type typeOf(std::string_view word) const {
    for (const Type& type : kTypes) {
      if (word == type.name) {
        return type;
      }
    }
    fail(Quoted(word), "the type of a property, such as float or uchar");
  }

  double next(const Type& type) { return form_ == Form::kAscii ? nextWord() : nextBinary(type); }

  double nextWord() {
    constexpr std::string_view kBlank = " \t\r\n";
    while (at_ < content_.size() && kBlank.find(content_[at_]) != std::string_view::npos) {
      line_ += content_[at_++] == '\n' ? 1 : 0;
    }
    const std::size_t begin = at_;
    while (at_ < content_.size() && kBlank.find(content_[at_]) == std::string_view::npos) {
      ++at_;
    }
    std::string_view word = std::string_view(content_).substr(begin, at_ - begin);
    if (word.empty()) {
      failShort();
    }
    if (word.size() > 1 && word[0] == '+') {
      word.remove_prefix(1);
    }
    double number = 0.0;
    const auto [end, fault] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (end != word.data() + word.size() || fault == std::errc::invalid_argument) {
      fail(Quoted(word), "a number");
    }
    // What is too large or too small for a double is neither as good as another number.
    return fault == std::errc() ? number : std::numeric_limits<double>::quiet_NaN();
  }

  template <typename Number>
  static double numberOf(const unsigned char* bytes) {
    Number number;
    std::memcpy(&number, bytes, sizeof number);
    return static_cast<double>(number);
  }

  double nextBinary(const Type& type) {
    if (content_.size() - at_ < type.size) {
      failShort();
    }
    unsigned char bytes[8];
    for (std::size_t i = 0; i < type.size; ++i) {
      const std::size_t from = form_ == Form::kBigEndian ? type.size - 1 - i : i;
      bytes[i] = static_cast<unsigned char>(content_[at_ + from]);
    }
    at_ += type.size;
    switch (type.size) {
      case 1:
        return type.is_signed ? numberOf<std::int8_t>(bytes) : numberOf<std::uint8_t>(bytes);
      case 2:
        return type.is_signed ? numberOf<std::int16_t>(bytes) : numberOf<std::uint16_t>(bytes);
      case 4:
        return type.is_real     ? numberOf<float>(bytes)
               : type.is_signed ? numberOf<std::int32_t>(bytes)
                                : numberOf<std::uint32_t>(bytes);
      default:
        return numberOf<double>(bytes);
    }
  }

  [[noreturn]] void failShort() const {
    throw FileError(file_, 0, "found the end of the file, expected all elements that the header announces");
  }

  void readVertices(const Element& element) {
    // Of each property the coordinate that it is.
    std::vector<int> axes;
    int num_axes = 0;
    for (const Property& property : element.properties) {
      const bool is_axis =
          property.name.size() == 1 && !property.length && property.name[0] >= 'x' && property.name[0] <= 'z';
      axes.push_back(is_axis ? property.name[0] - 'x' : -1);
      num_axes += is_axis ? 1 : 0;
    }
    if (num_axes != 3) {
      fail("vertices without x, y and z", "these three once each");
    }
    for (std::size_t i = 0; i < element.count; ++i) {
      Eigen::Vector3d vertex = Eigen::Vector3d::Zero();
      for (std::size_t k = 0; k < axes.size(); ++k) {
        if (axes[k] >= 0) {
          vertex[axes[k]] = next(element.properties[k].type);
        } else {
          skip(element.properties[k]);
        }
      }
      surface_.vertices.push_back(vertex);
    }
  }

  // Faces, and elements that have no meaning here.
  void readOther(const Element& element) {
    // With nothing to read there is nothing to count.
    for (std::size_t i = 0; i < element.count && !element.properties.empty(); ++i) {
      for (const Property& property : element.properties) {
        if (element.name == "face" && property.length &&
            (property.name == "vertex_indices" || property.name == "vertex_index")) {
          readFace(property);
        } else {
          skip(property);
        }
      }
    }
  }

  void skip(const Property& property) {
    for (std::uint32_t left = property.length ? nextIndex(*property.length) : 1; left > 0; --left) {
      next(property.type);
    }
  }

  void readFace(const Property& property) {
    std::vector<std::uint32_t> corners;
    for (std::uint32_t left = nextIndex(*property.length); left > 0; --left) {
      corners.push_back(nextIndex(property.type));
    }
    num_triangles_ += corners.size() < 3 ? 0 : corners.size() - 2;
    if (num_triangles_ > max_triangles_) {
      fail("more than " + std::to_string(max_triangles_) + " triangles", "a coarser mesh");
    }
    faces_.push_back(std::move(corners));
  }

  std::uint32_t nextIndex(const Type& type) {
    const double number = next(type);
    if (!(number >= 0.0 && number <= 4294967295.0) || number != std::floor(number)) {
      fail("a list with " + NumberText(number), "whole numbers from 0 on");
    }
    return static_cast<std::uint32_t>(number);
  }

  const std::string& content_;
  const std::string& file_;
  std::size_t max_triangles_;
  std::size_t at_ = 0;
  int line_ = 0;
  Form form_ = Form::kAscii;
  std::vector<Element> elements_;
  // They may come before the vertices.
  std::vector<std::vector<std::uint32_t>> faces_;
  std::size_t num_triangles_ = 0;
  Surface surface_;
};

}  // namespace

Surface ParsePly(const std::string& content, const std::string& file, std::size_t max_triangles) {
  return PlyReader(content, file, max_triangles).read();
}

}  // namespace kavo::formats
