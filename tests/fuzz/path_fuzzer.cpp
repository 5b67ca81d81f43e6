#include <string>
#include <vector>

#include "kavo/formats/result_file.h"
#include "tests/fuzz/fuzzer.h"

// What was read comes back the same after it was written in either form.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kavo::testing::FuzzReader(data, size, [](const std::string& text) {
    kavo::formats::PlanRecord record;
    const kavo::formats::PathFile path = kavo::formats::ParsePath(text, "input");
    record.path = path.configurations;
    record.joint_names = path.joint_names;
    record.joint_names.resize(static_cast<std::size_t>(record.path.at(0).size()));
    const std::string csv = kavo::formats::ToCsv(record.joint_names, record.path);
    const kavo::formats::PathFile from_csv = kavo::formats::ParsePath(csv, "csv");
    kavo::testing::Require(from_csv.joint_names == record.joint_names);
    kavo::testing::Require(from_csv.configurations == record.path);
    kavo::testing::Require(kavo::formats::ParsePath(kavo::formats::ToJson(record), "json").configurations ==
                           record.path);
  });
}
