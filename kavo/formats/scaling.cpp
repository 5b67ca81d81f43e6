#include "kavo/formats/scaling_internal.h"

namespace kavo::formats {

std::optional<double> ReadScaling(const YamlValue& map, std::string_view key) {
  const std::optional<YamlValue> value = map.find(key);
  if (!value) {
    return {};
  }
  const double factor = value->number();
  if (factor < 0.0 || factor > 1.0) {
    value->fail("a factor from 0 to 1");
  }
  return factor > 0.0 ? std::optional(factor) : std::nullopt;
}

}  // namespace kavo::formats
