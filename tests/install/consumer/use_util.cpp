#include <iostream>

#include "kavo/util/fatal_error.h"
#include "kavo/util/log.h"
#include "kavo/util/log_message.h"
#include "kavo/util/random_generator.h"

// Records, the threshold, exceptions and template instantiations all cross the boundary of the library.
int main() {
  int num_records = 0;
  kavo::util::SetLogSink([&num_records](const kavo::util::LogRecord&) { ++num_records; });
  kavo::util::RandomGenerator<Eigen::Vector3d> generator(1);
  generator.SetRange(Eigen::Vector3d::Ones(), Eigen::Vector3d::Zero());
  kavo::util::log_level_threshold = static_cast<int>(kavo::LogLevel::kError);
  generator.SetRange(Eigen::Vector3d::Ones(), Eigen::Vector3d::Zero());
  generator.SetRange(Eigen::Vector3d::Ones(), Eigen::Vector3d::Ones());
  bool is_caught = false;
  try {
    KAVO_CHECK(num_records > 5, "consumer/use_util", 1) << "few records";
  } catch (const kavo::util::FatalError& error) {
    is_caught = error.message() == "few records";
  }
  const bool is_good = is_caught && num_records == 2 && generator.Sample() == Eigen::Vector3d::Ones();
  std::cout << (is_good ? "good" : "bad") << "\n";
  return is_good ? 0 : 1;
}
