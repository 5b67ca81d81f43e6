#include "kavo/util/to_string.h"

#include "kavo/util/log_message.h"

namespace kavo::util {

std::string ToString(const Eigen::Ref<const Eigen::VectorXd>& vector) {
  TextStream text;
  text << "[";
  for (Eigen::Index i = 0; i < vector.size(); ++i) {
    text << (i == 0 ? "" : " ") << vector[i];
  }
  text << "]";
  return text.str();
}

}  // namespace kavo::util
