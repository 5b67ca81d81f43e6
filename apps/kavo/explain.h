#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "apps/kavo/scope.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/environment/configuration_fault.h"
#include "kavo/motion_planning/interface/query_report.h"
#include "kavo/motion_planning/util/path_check.h"
#include "kavo/motion_planning/util/path_proof.h"
#include "kavo/world/world_view.h"

namespace kavo::command {

//! What is wrong with a configuration, as a clause: "joint4 is at 0.2, beyond its limits -3.07 and -0.07".
std::string Explain(const planning::ConfigurationFault& fault, const RobotDescription& robot);

//! What a search and the shortening of its path took: "120 extensions, 60 and 61 nodes, ...". Of a planner of
//! motions it counts these, of the others configurations.
std::string ExplainWork(const QueryReport& report);

//! What is nearest to the robot in a configuration that touches nothing, as a clause: "frame 'hand' is 1 um
//! from 'table' (its sphere 3 of ...)".
std::string ExplainNearest(const RobotDescription& robot, const WorldView& world_view,
                           const Eigen::VectorXd& q);

//! Why a query found no path: how the search ended and, in further lines, what it did. Ends with a line end.
std::string ExplainFailure(const QueryReport& report, const RobotDescription& robot);

//! What a check found, in lines.
//! \param scope What the verdict does not hold for.
//! \param num_segments Of the path.
//! \param step_size That it was checked at.
std::string Explain(const planning::PathCheck& check, const RobotDescription& robot, const Scope& scope,
                    std::size_t num_segments, double step_size);

//! What a proof found, likewise.
//! \param options That it was made with.
//! \param times Of a path in time, when the segments begin and end; places are told by them then.
std::string Explain(const planning::PathProof& proof, const RobotDescription& robot, const Scope& scope,
                    std::size_t num_segments, const planning::PathProofOptions& options,
                    const std::vector<double>& times = {});

}  // namespace kavo::command
