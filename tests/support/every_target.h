#pragma once

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cstdint>
#include <string>

namespace kavo::testing {

//! A test that runs with the wide vectors of each instruction set that this machine has.
class EveryTargetTest : public ::testing::TestWithParam<std::int64_t> {
 protected:
  void SetUp() override { hwy::SetSupportedTargetsForTest(GetParam()); }
  void TearDown() override { hwy::SetSupportedTargetsForTest(0); }
};

}  // namespace kavo::testing

#define KAVO_INSTANTIATE_FOR_EVERY_TARGET(fixture)                                                     \
  INSTANTIATE_TEST_SUITE_P(Targets, fixture, ::testing::ValuesIn(hwy::SupportedAndGeneratedTargets()), \
                           [](const auto& target) { return std::string(hwy::TargetName(target.param)); })
