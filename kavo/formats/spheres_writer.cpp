#include "kavo/formats/spheres_writer.h"

#include <nlohmann/json.hpp>

#include "kavo/formats/text_internal.h"

namespace kavo::formats {

std::string ToSpheresYaml(const std::map<std::string, std::vector<math::Sphere>>& spheres) {
  std::string text = "collision_spheres:" + std::string(spheres.empty() ? " {}\n" : "\n");
  for (const auto& [link, of_link] : spheres) {
    // What is a string in JSON is the same one in YAML.
    text += "  " + nlohmann::json(link).dump() + ":" + (of_link.empty() ? " []\n" : "\n");
    for (const math::Sphere& sphere : of_link) {
      text += "    - {center: [" + NumberText(sphere.center[0]) + ", " + NumberText(sphere.center[1]) + ", " +
              NumberText(sphere.center[2]) + "], radius: " + NumberText(sphere.radius) + "}\n";
    }
  }
  return text;
}

}  // namespace kavo::formats
