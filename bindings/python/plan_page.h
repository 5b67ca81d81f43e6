#pragma once

#include <memory>
#include <vector>

#include "bindings/python/bindings.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/query_report.h"
#include "kavo/motion_planning/interface/search_record.h"
#include "kavo/motion_planning/interface/stage.h"
#include "kavo/world/world.h"

namespace kavo::python {

//! What a planner plans with until something of it changes. Shared by all that it answers meanwhile.
struct Surroundings {
  Robot robot;
  //! As the planner saw it.
  World world;
  planning::MotionPlannerConfig config;
};

//! All that there is to say of a query and its answer. It goes along with the answer, out of sight, and costs
//! no more than to be kept: what there is to draw and to prove is done when it is asked for.
struct Account {
  std::shared_ptr<const Surroundings> surroundings;
  Eigen::VectorXd start;
  std::vector<Stage> stages;
  MotionPlanner::Results results;
  //! Of several stages, or of one line.
  std::vector<StagedResults::Part> parts;
  QueryReport report;
  //! Where they are kept.
  std::vector<SearchRecord> searches;
};

//! Gives a record of an answer its account.
py::object WithAccount(py::object record, Account account);

}  // namespace kavo::python
