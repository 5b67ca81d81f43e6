#pragma once

#include <string>

#include "tests/support/files.h"

namespace kavo::testing {

//! An arm in the x-y plane: two links of 1 m, hinged at "shoulder" and "elbow", and a gripper that slides out
//! along the second one. Spheres of radius 0.1 are at the shoulder and at the end of each link.
inline const std::string kArmUrdf = ReadFile(KAVO_SOURCE_DIR "/tests/apps/data/arm.urdf");

inline const std::string kArmSrdf = ReadFile(KAVO_SOURCE_DIR "/tests/apps/data/arm.srdf");

//! A ball of radius 0.25 where the stretched arm ends when it points along x.
inline const std::string kPegScene = ReadFile(KAVO_SOURCE_DIR "/tests/apps/data/peg.yaml");

//! From one side of the peg to the other.
inline const std::string kPegRequest = ReadFile(KAVO_SOURCE_DIR "/tests/apps/data/request.yaml");

}  // namespace kavo::testing
