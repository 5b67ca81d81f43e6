#include "kavo/formats/allowed_collisions.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "kavo/formats/allowed_collisions_internal.h"
#include "kavo/formats/text_internal.h"

namespace kavo::formats {

bool AllowedCollisions::allows(const std::string& a, const std::string& b) const {
  const auto row = entries.find(a);
  const auto column = entries.find(b);
  if (row != entries.end() && column != entries.end()) {
    return values[row->second][column->second];
  }
  const auto of_a = defaults.find(a);
  const auto of_b = defaults.find(b);
  if (of_a == defaults.end() && of_b == defaults.end()) {
    return false;
  }
  return (of_a == defaults.end() || of_a->second) && (of_b == defaults.end() || of_b->second);
}

std::optional<AllowedCollisions> ReadAllowedCollisions(const YamlValue& matrix) {
  AllowedCollisions allowed;
  allowed.line = matrix.line();
  for (const YamlValue& name : matrix.elements("entry_names")) {
    if (!allowed.entries.emplace(name.text(), allowed.entries.size()).second) {
      name.fail("entry " + Quoted(name.text()) + " again", "different names");
    }
  }
  const std::vector<YamlValue> rows = matrix.elements("entry_values");
  const std::size_t size = allowed.entries.size();
  // The matrix grows with the square, though an alias may give its rows in few bytes.
  constexpr std::size_t kMaxEntries = 5000;
  if (size > kMaxEntries) {
    matrix.fail(std::to_string(size) + " entries", "at most " + std::to_string(kMaxEntries));
  }
  const auto check = [&](std::size_t found, const char* what, std::size_t expected) {
    if (found != expected) {
      matrix.fail(std::to_string(found) + what, std::to_string(expected) + ", one for each name");
    }
  };
  check(rows.size(), " rows of `entry_values`", size);
  for (const YamlValue& row : rows) {
    std::vector<bool> values;
    for (const YamlValue& value : row.isSequence() ? row.elements() : row.elements("enabled")) {
      values.push_back(value.flag());
    }
    check(values.size(), " columns of `entry_values`", size);
    allowed.values.push_back(values);
  }
  const std::vector<YamlValue> names = matrix.elements("default_entry_names");
  const std::vector<YamlValue> values = matrix.elements("default_entry_values");
  check(values.size(), " `default_entry_values`", names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    allowed.defaults[names[i].text()] = values[i].flag();
  }
  if (allowed.entries.empty() && allowed.defaults.empty()) {
    return std::nullopt;
  }
  return allowed;
}

}  // namespace kavo::formats
