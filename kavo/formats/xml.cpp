#include <algorithm>
#include <cctype>
#include <cstddef>
#include <optional>
#include <sstream>

#include "kavo/formats/file_error.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/xml_internal.h"
#include "kavo/util/parse_number.h"

namespace kavo::formats {

namespace {

// "XML_ERROR_MISMATCHED_ELEMENT" as a reader would say it.
std::string FaultText(const char* error_name) {
  std::string text = error_name;
  text.erase(0, std::string("XML_ERROR_").size());
  for (char& c : text) {
    c = c == '_' ? ' ' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return text;
}

}  // namespace

XmlFile::XmlFile(const std::string& text, const std::string& file, const char* root) : file_(file) {
  if (document_.Parse(text.data(), text.size()) != tinyxml2::XML_SUCCESS) {
    throw FileError(file, document_.ErrorLineNum(),
                    "found a fault of the XML (" + FaultText(document_.ErrorName()) +
                        "), expected a well-formed <" + root + ">");
  }
  const Element* const element = document_.RootElement();
  if (element == nullptr) {
    throw FileError(file, 0, "found no element, expected <" + std::string(root) + ">");
  }
  if (element->Name() != std::string(root)) {
    fail(*element, "<" + std::string(element->Name()) + ">", "<" + std::string(root) + ">");
  }
}

std::vector<const XmlFile::Element*> XmlFile::children(const Element& element, const char* name) {
  std::vector<const Element*> children;
  for (const Element* child = element.FirstChildElement(name); child != nullptr;
       child = child->NextSiblingElement(name)) {
    children.push_back(child);
  }
  return children;
}

std::string XmlFile::attribute(const Element& element, const char* name) const {
  std::string text = attribute(element, name, "");
  if (text.empty()) {
    fail(element, "<" + std::string(element.Name()) + "> without `" + name + "`", "that attribute");
  }
  return text;
}

std::string XmlFile::attribute(const Element& element, const char* name, const char* fallback) {
  const char* const text = element.Attribute(name);
  return text == nullptr ? fallback : text;
}

std::vector<double> XmlFile::numbers(const Element& element, const char* name, std::size_t size) const {
  const std::string text = attribute(element, name);
  std::istringstream words(text);
  std::vector<double> numbers;
  bool good = true;
  for (std::string word; words >> word;) {
    const std::optional<double> number = util::ParseNumber(word);
    good = good && number.has_value();
    numbers.push_back(number.value_or(0.0));
  }
  if (!good || (size != 0 && numbers.size() != size)) {
    const std::string expected = size == 0   ? "finite numbers"
                                 : size == 1 ? "a finite number"
                                             : std::to_string(size) + " finite numbers";
    fail(element, std::string(name) + "=" + Quoted(text) + " in <" + element.Name() + ">", expected);
  }
  return numbers;
}

Eigen::Vector3d XmlFile::vector(const Element& element, const char* name) const {
  const std::vector<double> v = numbers(element, name, 3);
  return {v[0], v[1], v[2]};
}

void XmlFile::fail(const Element& element, const std::string& found, const std::string& expected) const {
  throw FileError(file_, element.GetLineNum(), "found " + found + ", expected " + expected);
}

}  // namespace kavo::formats
