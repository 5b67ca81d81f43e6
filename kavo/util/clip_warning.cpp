#include "kavo/util/clip_warning.h"

#include "kavo/util/log_message.h"

namespace kavo::util {

void LogClippedWarning(double value, double clipped, double lower, double upper,
                       std::string_view description) {
  KAVO_LOG(LogLevel::kWarning) << description << ": [" << value << "] is outside of range [" << lower << ", "
                               << upper << "]. Using [" << clipped << "].";
}

}  // namespace kavo::util
