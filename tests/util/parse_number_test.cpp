#include "kavo/util/parse_number.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kavo::util {
namespace {

TEST(ParseNumber, TakesWholeFiniteDecimalNumbers) {
  const std::vector<std::pair<std::string, double>> numbers = {
      {"0.1", 0.1},       {" \t-2 ", -2.0},
      {"+.5E1", 5.0},     {"1.", 1.0},
      {"1e-2", 0.01},     {"1e-310", 1e-310},
      {"4e-324", 5e-324}, {"1.7976931348623157e308", 1.7976931348623157e308}};
  for (const auto& [text, number] : numbers) {
    EXPECT_EQ(ParseNumber(text), number) << text;
  }
  for (const std::string text :
       {"",    " ",   ".",   "-",     "+",  "1e",  "1,5", "1 2",   "\n1",    "0x1",
        "++1", "+-1", "--1", "1e5e5", "1f", "inf", "nan", "1e309", "-1e309", "1e-400"}) {
    EXPECT_EQ(ParseNumber(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace kavo::util
