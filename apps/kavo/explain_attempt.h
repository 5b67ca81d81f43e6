#pragma once

#include <string>

#include "apps/kavo/plan_attempt.h"
#include "apps/kavo/situation.h"

namespace kavo::command {

//! A path that was found, what it cost and how it fared in the check, in lines.
//! \param trajectory What was made of it in time, in lines; may be empty.
//! \param says_verify Whether to point at other seeds where the path fails the check.
std::string ExplainPath(const Attempt& attempt, const Situation& situation, const std::string& trajectory,
                        bool says_verify);

//! Why there is no path, in lines.
//! \param is_robot_cut_out Whether the robot was cut out of what a sensor saw.
std::string ExplainNoPath(const Attempt& attempt, const Situation& situation, bool is_robot_cut_out);

}  // namespace kavo::command
