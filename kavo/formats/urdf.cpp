#include <console_bridge/console.h>
#include <urdf_model/link.h>
#include <urdf_model/model.h>
#include <urdf_parser/urdf_parser.h>

#include <cmath>
#include <cstddef>
#include <exception>
#include <limits>
#include <map>
#include <mutex>
#include <new>
#include <utility>

#include "kavo/formats/file_error.h"
#include "kavo/formats/rotation_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/urdf_internal.h"
#include "kavo/formats/xml_internal.h"
#include "kavo/util/parse_number.h"

namespace kavo::formats {

namespace {

using Element = XmlFile::Element;

// The memory of a kinematic model grows with the square of the length of a chain.
constexpr std::size_t kMaxJoints = 4096;

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// The links and joints of a file in its order, by name.
struct Outline {
  std::vector<const Element*> links;
  std::vector<const Element*> joints;
  std::map<std::string, std::size_t> link_indices;
  std::map<std::string, std::size_t> joint_indices;
  // The links that a joint connects.
  std::vector<std::size_t> parents;
  std::vector<std::size_t> children;
};

std::map<std::string, std::size_t> IndexNames(const XmlFile& xml,
                                              const std::vector<const Element*>& elements) {
  std::map<std::string, std::size_t> indices;
  for (const Element* element : elements) {
    const std::string name = xml.attribute(*element, "name");
    const auto [place, is_new] = indices.emplace(name, indices.size());
    if (!is_new) {
      xml.fail(*element,
               "a second " + std::string(element->Name()) + " " + Quoted(name) + " (the first is on line " +
                   std::to_string(elements[place->second]->GetLineNum()) + ")",
               "different names");
    }
  }
  return indices;
}

std::string JointText(const Element& joint) { return "joint " + Quoted(joint.Attribute("name")); }

// The link that a joint names in a child element of the given kind.
std::size_t NamedLink(const XmlFile& xml, const Outline& outline, const Element& joint, const char* kind) {
  const Element* const element = joint.FirstChildElement(kind);
  if (element == nullptr) {
    xml.fail(joint, JointText(joint) + " without <" + kind + ">", "the link that it connects");
  }
  const std::string name = xml.attribute(*element, "link");
  const auto link = outline.link_indices.find(name);
  if (link == outline.link_indices.end()) {
    xml.fail(*element, JointText(joint) + " with the " + kind + " " + Quoted(name), "a link of this file");
  }
  return link->second;
}

void CheckLimits(const XmlFile& xml, const Element& joint, const std::string& type) {
  // The bounds of a continuous joint mean nothing.
  if (type == "continuous") {
    return;
  }
  const Element* const limit = joint.FirstChildElement("limit");
  if (limit == nullptr) {
    xml.fail(joint, type + " " + JointText(joint) + " without limits", "<limit lower=... upper=...>");
  }
  // One that is missing is zero.
  const auto bound = [&](const char* name) {
    return limit->Attribute(name) != nullptr ? xml.number(*limit, name) : 0.0;
  };
  const double lower = bound("lower");
  const double upper = bound("upper");
  if (lower > upper) {
    xml.fail(*limit,
             "the lower limit " + NumberText(lower) + " above the upper limit " + NumberText(upper) + " in " +
                 JointText(joint),
             "lower <= upper");
  }
}

void CheckJoint(const XmlFile& xml, const Outline& outline, const Element& joint) {
  const std::string type = xml.attribute(joint, "type");
  if (type == "fixed") {
    return;
  }
  if (type != "revolute" && type != "continuous" && type != "prismatic") {
    xml.fail(joint, JointText(joint) + " of the type " + Quoted(type),
             R"("revolute", "continuous", "prismatic" or "fixed")");
  }
  if (const Element* const axis = joint.FirstChildElement("axis"); axis != nullptr) {
    const Eigen::Vector3d v = xml.vector(*axis, "xyz");
    if (v[0] == 0.0 && v[1] == 0.0 && v[2] == 0.0) {
      xml.fail(*axis, "the axis 0 0 0 in " + JointText(joint), "a direction");
    }
  }
  CheckLimits(xml, joint, type);
  if (const Element* const mimic = joint.FirstChildElement("mimic"); mimic != nullptr) {
    const std::string followed = xml.attribute(*mimic, "joint");
    if (outline.joint_indices.count(followed) == 0) {
      xml.fail(*mimic, JointText(joint) + " that mimics " + Quoted(followed), "a joint of this file");
    }
    for (const char* name : {"multiplier", "offset"}) {
      if (mimic->Attribute(name) != nullptr) {
        xml.number(*mimic, name);
      }
    }
  }
}

// Refuses macros: another program expands them.
void CheckExpanded(const XmlFile& xml) {
  for (const tinyxml2::XMLNode* node = &xml.root(); node != nullptr;) {
    const Element* const element = node->ToElement();
    if (element != nullptr && std::string(element->Name()).rfind("xacro:", 0) == 0) {
      xml.fail(*element, "<" + std::string(element->Name()) + ">",
               "a URDF in which xacro has been expanded: xacro " + xml.file() + " > robot.urdf");
    }
    // The next one in the order of the file.
    const tinyxml2::XMLNode* next = node->FirstChild();
    for (; next == nullptr && node != &xml.root(); node = node->Parent()) {
      next = node->NextSibling();
    }
    node = next;
  }
}

// The links and joints with everything that can be said about them one by one.
Outline ReadOutline(const XmlFile& xml) {
  Outline outline;
  outline.links = XmlFile::children(xml.root(), "link");
  outline.joints = XmlFile::children(xml.root(), "joint");
  if (outline.links.empty()) {
    xml.fail(xml.root(), "a robot without links", "at least one");
  }
  if (outline.joints.size() > kMaxJoints) {
    xml.fail(xml.root(), std::to_string(outline.joints.size()) + " joints",
             "at most " + std::to_string(kMaxJoints));
  }
  outline.link_indices = IndexNames(xml, outline.links);
  outline.joint_indices = IndexNames(xml, outline.joints);
  for (const Element* joint : outline.joints) {
    outline.parents.push_back(NamedLink(xml, outline, *joint, "parent"));
    outline.children.push_back(NamedLink(xml, outline, *joint, "child"));
    CheckJoint(xml, outline, *joint);
    ReadOrigin(xml, *joint);
  }
  for (const Element* link : outline.links) {
    for (const Element* collision : XmlFile::children(*link, "collision")) {
      ReadOrigin(xml, *collision);
    }
  }
  return outline;
}

// For each link the joint that carries it; `kNone` for the root.
std::vector<std::size_t> FindCarriers(const XmlFile& xml, const Outline& outline) {
  std::vector<std::size_t> carriers(outline.links.size(), kNone);
  for (std::size_t joint = 0; joint < outline.joints.size(); ++joint) {
    std::size_t& carrier = carriers[outline.children[joint]];
    if (carrier != kNone) {
      xml.fail(*outline.joints[joint],
               "link " + Quoted(outline.links[outline.children[joint]]->Attribute("name")) +
                   " as the child of " + JointText(*outline.joints[carrier]) + " and of " +
                   JointText(*outline.joints[joint]),
               "one joint that carries it");
    }
    carrier = joint;
  }
  return carriers;
}

// The joints in kinematic order. Checks that they and the links form a tree.
std::vector<std::size_t> SortJoints(const XmlFile& xml, const Outline& outline, std::size_t* root) {
  const std::vector<std::size_t> carriers = FindCarriers(xml, outline);
  *root = kNone;
  for (std::size_t link = 0; link < outline.links.size(); ++link) {
    if (carriers[link] != kNone) {
      continue;
    }
    if (*root != kNone) {
      xml.fail(*outline.links[link],
               "two links that no joint carries, " + Quoted(outline.links[*root]->Attribute("name")) +
                   " and " + Quoted(outline.links[link]->Attribute("name")),
               "one root link");
    }
    *root = link;
  }
  // Joints that are placed next, the first one on top.
  std::vector<std::vector<std::size_t>> attached(outline.links.size());
  for (std::size_t joint = outline.joints.size(); joint-- > 0;) {
    attached[outline.parents[joint]].push_back(joint);
  }
  std::vector<std::size_t> order;
  std::vector<bool> is_placed(outline.joints.size(), false);
  std::vector<std::size_t> next;
  if (*root != kNone) {
    next = attached[*root];
  }
  while (!next.empty()) {
    const std::size_t joint = next.back();
    next.pop_back();
    order.push_back(joint);
    is_placed[joint] = true;
    const std::vector<std::size_t>& further = attached[outline.children[joint]];
    next.insert(next.end(), further.begin(), further.end());
  }
  for (std::size_t joint = 0; joint < outline.joints.size(); ++joint) {
    if (!is_placed[joint]) {
      xml.fail(*outline.joints[joint], JointText(*outline.joints[joint]) + " in a cycle or behind one",
               "a tree");
    }
  }
  return order;
}

// The shapes that urdfdom knows, with their numbers: it names no line where it refuses one.
void CheckShape(const XmlFile& xml, const Element& collision) {
  const Element* const geometry = collision.FirstChildElement("geometry");
  const Element* const shape = geometry == nullptr ? nullptr : geometry->FirstChildElement();
  const char* const expected = "a sphere, box, cylinder or mesh";
  if (shape == nullptr) {
    xml.fail(collision, "a collision element without a shape", expected);
  }
  const std::string kind = shape->Name();
  if (kind == "sphere") {
    xml.number(*shape, "radius");
  } else if (kind == "box") {
    xml.vector(*shape, "size");
  } else if (kind == "cylinder") {
    xml.number(*shape, "radius");
    xml.number(*shape, "length");
  } else if (kind == "mesh") {
    xml.attribute(*shape, "filename");
  } else {
    xml.fail(*shape, "shape " + Quoted(shape->Name()), expected);
  }
}

// What urdfdom is to look at: the elements that matter here, so that a file is not refused for a fault in
// something else, such as a material, nor for limits of effort and velocity that are missing.
std::string Extract(const XmlFile& xml, const Outline& outline) {
  tinyxml2::XMLDocument document;
  Element* const robot = document.NewElement("robot");
  document.InsertEndChild(robot);
  robot->SetAttribute("name", xml.attribute(xml.root(), "name").c_str());
  if (const char* const version = xml.root().Attribute("version"); version != nullptr) {
    robot->SetAttribute("version", version);
  }
  const auto copy = [&](const Element& from, std::initializer_list<const char*> kinds) {
    Element* const to = robot->InsertNewChildElement(from.Name());
    for (const char* attribute : {"name", "type"}) {
      if (from.Attribute(attribute) != nullptr) {
        to->SetAttribute(attribute, from.Attribute(attribute));
      }
    }
    for (const char* kind : kinds) {
      for (const Element* child : XmlFile::children(from, kind)) {
        to->InsertEndChild(child->DeepClone(&document));
      }
    }
    return to;
  };
  for (const Element* link : outline.links) {
    copy(*link, {"collision"});
  }
  for (const Element* joint : outline.joints) {
    Element* const copied = copy(*joint, {"parent", "child", "axis", "limit", "mimic"});
    Element* const limit = copied->FirstChildElement("limit");
    if (limit != nullptr && joint->Attribute("type", "continuous") != nullptr) {
      copied->DeleteChild(limit);
    } else if (limit != nullptr) {
      limit->SetAttribute("effort", 0);
      limit->SetAttribute("velocity", 0);
    }
  }
  tinyxml2::XMLPrinter printer;
  document.Print(&printer);
  return printer.CStr();
}

// Collects what urdfdom writes to the console, which is one for the whole process.
class Console : public console_bridge::OutputHandler {
 public:
  Console() : lock_(Mutex()), former_(console_bridge::getOutputHandler()) {
    console_bridge::useOutputHandler(this);
  }
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;
  ~Console() override { console_bridge::useOutputHandler(former_); }

  void log(const std::string& text, console_bridge::LogLevel level, const char*, int) override {
    if (level >= console_bridge::CONSOLE_BRIDGE_LOG_ERROR) {
      text_ += (text_.empty() ? "" : "; ") + text;
    }
  }

  const std::string& text() const { return text_; }

 private:
  static std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
  }

  std::lock_guard<std::mutex> lock_;
  console_bridge::OutputHandler* former_;
  std::string text_;
};

// What urdfdom makes of the text, or its objection.
urdf::ModelInterfaceSharedPtr TryModel(const std::string& text, std::string* fault) {
  Console console;
  urdf::ModelInterfaceSharedPtr model;
  fault->clear();
  try {
    model = urdf::parseURDF(text);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    *fault = error.what();
  }
  // Some faults make it leave out a collision element and go on.
  if (!console.text().empty()) {
    *fault = console.text() + (fault->empty() ? "" : "; " + *fault);
  }
  return fault->empty() ? model : nullptr;
}

urdf::ModelInterfaceSharedPtr ParseModel(const std::string& text, const std::string& file) {
  std::string fault;
  urdf::ModelInterfaceSharedPtr model = TryModel(text, &fault);
  if (!model) {
    // Where memory was short for a moment, its streams find fault with good numbers.
    model = TryModel(text, &fault);
  }
  if (!model) {
    throw FileError(file, 0, "found what urdfdom refuses (" + fault + "), expected a robot");
  }
  return model;
}

// urdfdom has another XML parser, to which special characters in names may mean something else.
[[noreturn]] void FailReading(const XmlFile& xml, const Element& element) {
  xml.fail(element,
           std::string(element.Name()) + " " + Quoted(element.Attribute("name")) +
               ", which urdfdom reads otherwise",
           "names in plain text");
}

Urdf::Collision ReadCollision(const XmlFile& xml, const Element& element, const urdf::Geometry& geometry) {
  Urdf::Collision collision;
  collision.line = element.GetLineNum();
  collision.pose = ReadOrigin(xml, element);
  bool is_good = true;
  const auto check = [&](double length) { is_good = is_good && std::isfinite(length) && length > 0.0; };
  if (const auto* const sphere = dynamic_cast<const urdf::Sphere*>(&geometry)) {
    collision.kind = Urdf::Collision::Kind::kSphere;
    collision.radius = sphere->radius;
    check(sphere->radius);
  } else if (const auto* const box = dynamic_cast<const urdf::Box*>(&geometry)) {
    collision.kind = Urdf::Collision::Kind::kBox;
    collision.size = {box->dim.x, box->dim.y, box->dim.z};
    check(box->dim.x);
    check(box->dim.y);
    check(box->dim.z);
  } else if (const auto* const cylinder = dynamic_cast<const urdf::Cylinder*>(&geometry)) {
    collision.kind = Urdf::Collision::Kind::kCylinder;
    collision.radius = cylinder->radius;
    collision.length = cylinder->length;
    check(cylinder->radius);
    check(cylinder->length);
  } else if (const auto* const mesh = dynamic_cast<const urdf::Mesh*>(&geometry)) {
    collision.mesh = mesh->filename;
    collision.scale = {mesh->scale.x, mesh->scale.y, mesh->scale.z};
    for (const double factor : {mesh->scale.x, mesh->scale.y, mesh->scale.z}) {
      if (!std::isfinite(factor) || factor == 0.0) {
        xml.fail(element, "a mesh scaled by " + NumberText(factor), "factors that are finite and not zero");
      }
    }
  }
  if (!is_good) {
    xml.fail(element, "a collision solid with a size that is not positive", "positive lengths");
  }
  return collision;
}

Urdf::Link ReadLink(const XmlFile& xml, const Element& element, const urdf::ModelInterface& model) {
  Urdf::Link link;
  link.name = element.Attribute("name");
  const std::vector<const Element*> collisions = XmlFile::children(element, "collision");
  const urdf::LinkConstSharedPtr read = model.getLink(link.name);
  if (!read || read->collision_array.size() != collisions.size()) {
    FailReading(xml, element);
  }
  for (std::size_t i = 0; i < collisions.size(); ++i) {
    if (!read->collision_array[i]->geometry) {
      xml.fail(*collisions[i], "a collision element without a solid",
               "a sphere, a box, a cylinder or a mesh");
    }
    link.collisions.push_back(ReadCollision(xml, *collisions[i], *read->collision_array[i]->geometry));
  }
  return link;
}

Urdf::Joint ReadJoint(const XmlFile& xml, const Element& element, const urdf::ModelInterface& model) {
  Urdf::Joint joint;
  joint.name = element.Attribute("name");
  joint.line = element.GetLineNum();
  joint.origin = ReadOrigin(xml, element);
  const urdf::JointConstSharedPtr read = model.getJoint(joint.name);
  if (!read) {
    FailReading(xml, element);
  }
  switch (read->type) {
    case urdf::Joint::REVOLUTE:
      joint.type = JointType::kRevolute;
      break;
    case urdf::Joint::CONTINUOUS:
      joint.type = JointType::kContinuous;
      break;
    case urdf::Joint::PRISMATIC:
      joint.type = JointType::kPrismatic;
      break;
    default:
      return joint;
  }
  joint.axis = {read->axis.x, read->axis.y, read->axis.z};
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  joint.limits = joint.type == JointType::kContinuous
                     ? kinematics::JointLimits{-kInfinity, kInfinity}
                     : kinematics::JointLimits{read->limits->lower, read->limits->upper};
  // Zero stands for a value that nobody knew.
  if (const Element* const limit = element.FirstChildElement("limit"); limit != nullptr) {
    const auto velocity = util::ParseNumber(XmlFile::attribute(*limit, "velocity", ""));
    joint.velocity = velocity.value_or(0.0) > 0.0 ? *velocity : kInfinity;
  }
  return joint;
}

// Resolves whom each joint follows; joints are sorted, the outline is in the order of the file.
void ReadMimics(const XmlFile& xml, const Outline& outline, const std::vector<std::size_t>& order,
                const urdf::ModelInterface& model, Urdf& urdf) {
  for (std::size_t i = 0; i < urdf.joints.size(); ++i) {
    Urdf::Joint& joint = urdf.joints[i];
    const urdf::JointMimicSharedPtr mimic = model.getJoint(joint.name)->mimic;
    if (!mimic || joint.type == JointType::kFixed) {
      continue;
    }
    const auto followed = urdf.joint_indices.find(mimic->joint_name);
    if (followed == urdf.joint_indices.end()) {
      FailReading(xml, *outline.joints[order[i]]);
    }
    joint.mimic = {followed->second, mimic->multiplier, mimic->offset};
  }
  for (std::size_t i = 0; i < urdf.joints.size(); ++i) {
    std::size_t steps = 0;
    for (std::size_t at = i; urdf.joints[at].mimic; at = urdf.joints[at].mimic->joint) {
      if (++steps > urdf.joints.size()) {
        xml.fail(*outline.joints[order[i]],
                 JointText(*outline.joints[order[i]]) + " that mimics itself in the end",
                 "a joint that moves at the end");
      }
    }
  }
}

}  // namespace

Pose3 ReadOrigin(const XmlFile& xml, const XmlFile::Element& element) {
  const XmlFile::Element* const origin = element.FirstChildElement("origin");
  if (origin == nullptr) {
    return Pose3::Identity();
  }
  const auto vector = [&](const char* name) {
    return origin->Attribute(name) == nullptr ? Eigen::Vector3d(Eigen::Vector3d::Zero())
                                              : xml.vector(*origin, name);
  };
  return {RotationFromRpy(vector("rpy")), vector("xyz")};
}

Urdf ParseUrdf(const std::string& text, const std::string& file) {
  const XmlFile xml(text, file, "robot");
  CheckExpanded(xml);
  Urdf urdf;
  urdf.file = file;
  urdf.name = xml.attribute(xml.root(), "name");
  const Outline outline = ReadOutline(xml);
  std::size_t root = kNone;
  const std::vector<std::size_t> order = SortJoints(xml, outline, &root);
  for (const Element* link : outline.links) {
    for (const Element* collision : XmlFile::children(*link, "collision")) {
      CheckShape(xml, *collision);
    }
  }
  const urdf::ModelInterfaceSharedPtr model = ParseModel(Extract(xml, outline), file);

  // Of the sorted links by their place in the file.
  std::vector<std::size_t> sorted(outline.links.size(), 0);
  urdf.links.push_back(ReadLink(xml, *outline.links[root], *model));
  for (const std::size_t joint : order) {
    urdf.joints.push_back(ReadJoint(xml, *outline.joints[joint], *model));
    urdf.joints.back().parent = sorted[outline.parents[joint]];
    sorted[outline.children[joint]] = urdf.links.size();
    urdf.links.push_back(ReadLink(xml, *outline.links[outline.children[joint]], *model));
  }
  for (std::size_t i = 0; i < urdf.links.size(); ++i) {
    urdf.link_indices.emplace(urdf.links[i].name, i);
  }
  for (std::size_t i = 0; i < urdf.joints.size(); ++i) {
    urdf.joint_indices.emplace(urdf.joints[i].name, i);
  }
  ReadMimics(xml, outline, order, *model, urdf);
  return urdf;
}

}  // namespace kavo::formats
