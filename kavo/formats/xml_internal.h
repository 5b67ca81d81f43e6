#pragma once

#include <tinyxml2.h>

#include <Eigen/Core>
#include <string>
#include <vector>

namespace kavo::formats {

//! An XML file. Asking an element for what it does not have ends in a `FileError` with its line.
class XmlFile {
 public:
  using Element = tinyxml2::XMLElement;

  //! \param root Name that the outermost element has to have.
  XmlFile(const std::string& text, const std::string& file, const char* root);

  const std::string& file() const { return file_; }
  const Element& root() const { return *document_.RootElement(); }

  //! The children of one name, in the order of the file.
  static std::vector<const Element*> children(const Element& element, const char* name);

  //! The text of an attribute; in the first form it has to be there and not empty.
  std::string attribute(const Element& element, const char* name) const;
  static std::string attribute(const Element& element, const char* name, const char* fallback);

  //! An attribute that is a list of finite numbers; of this many unless that is 0.
  std::vector<double> numbers(const Element& element, const char* name, std::size_t size = 0) const;
  double number(const Element& element, const char* name) const { return numbers(element, name, 1)[0]; }
  Eigen::Vector3d vector(const Element& element, const char* name) const;

  //! "found <found>, expected <expected>" at the line of the element.
  [[noreturn]] void fail(const Element& element, const std::string& found, const std::string& expected) const;

 private:
  std::string file_;
  tinyxml2::XMLDocument document_;
};

}  // namespace kavo::formats
