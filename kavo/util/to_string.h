#pragma once

#include <Eigen/Core>
#include <string>

#include "kavo/util/export.h"

namespace kavo::util {

//! "[1 -0.5 2e-07]": the entries in a stream's default floating-point format, separated by single spaces;
//! "[]" for an empty vector.
KAVO_EXPORT std::string ToString(const Eigen::Ref<const Eigen::VectorXd>& vector);

}  // namespace kavo::util
