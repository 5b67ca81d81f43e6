#include "kavo/formats/srdf_writer.h"

#include <tinyxml2.h>

#include "kavo/formats/text_internal.h"
#include "kavo/formats/xml_internal.h"

namespace kavo::formats {

namespace {

using Element = tinyxml2::XMLElement;

template <typename Condition>
void Remove(Element& robot, const char* name, const Condition& condition) {
  Element* next = nullptr;
  for (Element* child = robot.FirstChildElement(name); child != nullptr; child = next) {
    next = child->NextSiblingElement(name);
    if (condition(*child)) {
      robot.DeleteChild(child);
    }
  }
}

void AddSpheres(Element& robot, const std::string& link, const std::vector<math::Sphere>& spheres) {
  Element* const element = robot.InsertNewChildElement("link_sphere_approximation");
  element->SetAttribute("link", link.c_str());
  for (const math::Sphere& sphere : spheres) {
    Element* const child = element->InsertNewChildElement("sphere");
    const Eigen::Vector3d& center = sphere.center;
    child->SetAttribute(
        "center",
        (NumberText(center[0]) + " " + NumberText(center[1]) + " " + NumberText(center[2])).c_str());
    child->SetAttribute("radius", NumberText(sphere.radius).c_str());
  }
}

}  // namespace

std::string ToSrdf(const std::string& robot_name, const std::vector<Srdf::DisabledPair>& pairs,
                   const std::map<std::string, std::vector<math::Sphere>>& spheres,
                   const std::optional<std::string>& base, const std::string& base_file) {
  tinyxml2::XMLDocument document;
  if (base) {
    // Says what is wrong with it, and where.
    const XmlFile checked(*base, base_file, "robot");
    document.Parse(base->data(), base->size());
  } else {
    document.InsertEndChild(document.NewDeclaration());
    Element* const robot = document.NewElement("robot");
    robot->SetAttribute("name", robot_name.c_str());
    document.InsertEndChild(robot);
  }
  Element& robot = *document.RootElement();
  Remove(robot, "disable_collisions", [](const Element&) { return true; });
  Remove(robot, "link_sphere_approximation", [&](const Element& element) {
    const char* const link = element.Attribute("link");
    return link != nullptr && spheres.count(link) != 0;
  });
  for (const auto& [link, of_link] : spheres) {
    AddSpheres(robot, link, of_link);
  }
  for (const Srdf::DisabledPair& pair : pairs) {
    Element* const element = robot.InsertNewChildElement("disable_collisions");
    element->SetAttribute("link1", pair.link1.c_str());
    element->SetAttribute("link2", pair.link2.c_str());
    element->SetAttribute("reason", pair.reason.c_str());
  }
  tinyxml2::XMLPrinter printer;
  document.Print(&printer);
  return printer.CStr();
}

}  // namespace kavo::formats
