#include "kavo/formats/srdf.h"

#include <algorithm>
#include <set>
#include <utility>

#include "kavo/formats/text_internal.h"
#include "kavo/formats/xml_internal.h"

namespace kavo::formats {

namespace {

using Element = XmlFile::Element;

std::vector<std::string> Names(const XmlFile& xml, const Element& element, const char* kind) {
  std::vector<std::string> names;
  for (const Element* child : XmlFile::children(element, kind)) {
    names.push_back(xml.attribute(*child, "name"));
  }
  return names;
}

Srdf::Group ReadGroup(const XmlFile& xml, const Element& element) {
  Srdf::Group group;
  group.name = xml.attribute(element, "name");
  group.line = element.GetLineNum();
  group.joints = Names(xml, element, "joint");
  group.links = Names(xml, element, "link");
  for (const Element* chain : XmlFile::children(element, "chain")) {
    group.chains.push_back({xml.attribute(*chain, "base_link"), xml.attribute(*chain, "tip_link")});
  }
  group.subgroups = Names(xml, element, "group");
  return group;
}

Srdf::GroupState ReadGroupState(const XmlFile& xml, const Element& element) {
  Srdf::GroupState state;
  state.name = xml.attribute(element, "name");
  state.group = xml.attribute(element, "group");
  state.line = element.GetLineNum();
  for (const Element* joint : XmlFile::children(element, "joint")) {
    const std::string name = xml.attribute(*joint, "name");
    const std::vector<double> values = xml.numbers(*joint, "value");
    if (values.size() == 1 && !state.joint_values.emplace(name, values[0]).second) {
      xml.fail(*joint, "joint " + Quoted(name) + " again", "each joint of a group state once");
    }
  }
  return state;
}

std::vector<math::Sphere> ReadSpheres(const XmlFile& xml, const Element& element) {
  std::vector<math::Sphere> spheres;
  for (const Element* child : XmlFile::children(element, "sphere")) {
    const math::Sphere sphere = {xml.vector(*child, "center"), xml.number(*child, "radius")};
    if (sphere.radius < 0.0) {
      xml.fail(*child, "radius=" + Quoted(xml.attribute(*child, "radius")), "a radius of at least 0");
    }
    if (sphere.radius > 0.0) {
      spheres.push_back(sphere);
    }
  }
  return spheres;
}

}  // namespace

const Srdf::VirtualJoint* Srdf::findVirtualJoint(const std::string& joint_name) const {
  const auto found =
      std::find_if(virtual_joints.begin(), virtual_joints.end(),
                   [&joint_name](const VirtualJoint& joint) { return joint.name == joint_name; });
  return found == virtual_joints.end() ? nullptr : &*found;
}

Srdf ParseSrdf(const std::string& text, const std::string& file) {
  const XmlFile xml(text, file, "robot");
  const Element& robot = xml.root();
  Srdf srdf;
  srdf.file = file;
  srdf.robot_name = xml.attribute(robot, "name");
  std::set<std::string> group_names;
  for (const Element* element : XmlFile::children(robot, "group")) {
    srdf.groups.push_back(ReadGroup(xml, *element));
    if (!group_names.insert(srdf.groups.back().name).second) {
      xml.fail(*element, "a second group " + Quoted(srdf.groups.back().name), "groups of different names");
    }
  }
  for (const Element* element : XmlFile::children(robot, "group_state")) {
    srdf.group_states.push_back(ReadGroupState(xml, *element));
  }
  for (const Element* element : XmlFile::children(robot, "end_effector")) {
    srdf.end_effectors.push_back({xml.attribute(*element, "name"), xml.attribute(*element, "parent_link"),
                                  xml.attribute(*element, "group"),
                                  XmlFile::attribute(*element, "parent_group", "")});
  }
  for (const Element* element : XmlFile::children(robot, "virtual_joint")) {
    srdf.virtual_joints.push_back(
        {xml.attribute(*element, "name"), XmlFile::attribute(*element, "parent_frame", "")});
  }
  for (const Element* element : XmlFile::children(robot, "disable_collisions")) {
    srdf.disabled_pairs.push_back({xml.attribute(*element, "link1"), xml.attribute(*element, "link2"),
                                   XmlFile::attribute(*element, "reason", ""), element->GetLineNum()});
  }
  for (const Element* element : XmlFile::children(robot, "link_sphere_approximation")) {
    srdf.link_spheres[xml.attribute(*element, "link")] = ReadSpheres(xml, *element);
  }
  return srdf;
}

Srdf ReadSrdf(const std::string& file) { return ParseSrdf(ReadTextFile(file, kMaxXmlSize), file); }

}  // namespace kavo::formats
