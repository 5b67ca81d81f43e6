#include "kavo/util/to_string.h"

#include <sstream>

namespace kavo::util {

std::string ToString(const Eigen::Ref<const Eigen::VectorXd>& vector) {
  std::ostringstream text;
  text << "[";
  for (Eigen::Index i = 0; i < vector.size(); ++i) {
    text << (i == 0 ? "" : " ") << vector[i];
  }
  text << "]";
  return text.str();
}

}  // namespace kavo::util
