// Thousands of random queries on one planner while another thread changes the world all the time: each answer
// is proven again by other means, the memory in use has to stay flat, and no obstacle may be lost or held
// twice. Prints what it saw; ends with status 1 where any of this does not hold.
//
// kavo_soak [number of queries] [seed]

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "kavo/kinematics/interface/kinematics.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/motion_planning/interface/attached_object.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/util/configuration_inspection.h"
#include "kavo/motion_planning/util/line_motion.h"
#include "kavo/motion_planning/util/path_proof.h"
#include "kavo/util/log.h"
#include "kavo/world/world.h"
#include "tests/world/random_scene.h"

namespace kavo {
namespace {

using planning::InspectConfigurations;
using planning::SearchStatus;
using test::RandomScene;

constexpr char kHeldName[] = "held";

// Changes a world from a thread of its own, and keeps a ledger of what has to be in it.
class Editor {
 public:
  Editor(World world, std::uint32_t seed) : world_(std::move(world)), scene_(seed) {
    while (ledger_.size() < kMostObstacles) {
      add();
    }
    thread_ = std::thread([this] { run(); });
  }
  ~Editor() {
    is_over_ = true;
    thread_.join();
  }

  std::uint64_t numEdits() const { return num_edits_; }

  // How many entries of the ledger the world does not bear out, and the other way round.
  std::size_t numLost() {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::size_t num_lost = 0;
    std::size_t num_seen = 0;
    for (const World::Obstacle& obstacle : world_.describe()) {
      if (obstacle.name == kHeldName) {
        continue;
      }
      const auto entry = ledger_.find(obstacle.handle.id());
      num_seen += entry != ledger_.end() ? 1 : 0;
      num_lost += entry == ledger_.end() || !entry->second.matches(obstacle) ? 1 : 0;
    }
    return num_lost + (ledger_.size() - num_seen);
  }

 private:
  static constexpr std::size_t kMostObstacles = 24;

  struct Entry {
    Eigen::Vector3d place;
    double padding = 0.0;
    bool enabled = true;

    bool matches(const World::Obstacle& obstacle) const {
      return obstacle.pose.translation() == place && obstacle.padding == padding &&
             obstacle.is_enabled == enabled;
    }
  };

  // Within reach of the arm, but not where its base stands.
  Pose3 somewhere() {
    for (;;) {
      Pose3 pose = scene_.pose(0.9);
      if (pose.translation().head<2>().norm() > 0.45) {
        return pose;
      }
    }
  }

  void add() {
    const Pose3 pose = somewhere();
    const ObstacleHandle obstacle =
        world_.add(scene_.bounded(scene_.integer(0, RandomScene::kNumKinds - 1), 0.15), pose, "obstacle");
    ledger_[obstacle.id()] = {pose.translation()};
  }

  void edit() {
    const auto chosen = std::next(ledger_.begin(), scene_.integer(0, static_cast<int>(ledger_.size()) - 1));
    const ObstacleHandle obstacle(chosen->first);
    Entry& entry = chosen->second;
    switch (scene_.integer(0, 9)) {
      case 0:
        world_.remove(obstacle);
        ledger_.erase(chosen);
        add();
        break;
      case 1:
        entry.enabled = !entry.enabled;
        entry.enabled ? world_.enable(obstacle) : world_.disable(obstacle);
        break;
      case 2:
        entry.padding = scene_.uniform(0.0, 0.02);
        world_.setPadding(obstacle, entry.padding);
        break;
      default: {
        const Pose3 pose = somewhere();
        world_.move(obstacle, pose);
        entry.place = pose.translation();
      }
    }
    ++num_edits_;
  }

  void run() {
    while (!is_over_) {
      {
        const std::lock_guard<std::mutex> lock(mutex_);
        edit();
      }
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  }

  World world_;
  RandomScene scene_;
  std::mutex mutex_;
  std::map<std::uint64_t, Entry> ledger_;
  std::atomic<std::uint64_t> num_edits_{0};
  std::atomic<bool> is_over_{false};
  std::thread thread_;
};

// What became of all queries.
struct Counts {
  long found = 0;
  long refused = 0;
  long not_found = 0;
  long proven = 0;
  long only_sampled = 0;
  long carried = 0;
  long faults = 0;
};

class Soak {
 public:
  explicit Soak(std::uint32_t seed)
      : view_(world_.view()),
        planner_(CreateMotionPlanner(robot_, view_)),
        editor_(world_, seed + 1),
        scene_(seed),
        q_(robot_->defaultCSpaceConfiguration()) {
    planner_->setParam("max_iterations", 2000);
  }

  const Counts& counts() const { return counts_; }
  std::uint64_t numEdits() const { return editor_.numEdits(); }

  // Whether the world holds what it should; and either the world or the robot the object to carry.
  bool isWhole() {
    std::size_t num_held = AttachedBodies(*planner_->robot()).size();
    for (const World::Obstacle& obstacle : world_.describe()) {
      num_held += obstacle.name == kHeldName ? 1 : 0;
    }
    return editor_.numLost() == 0 && num_held == (has_object_ ? 1u : 0u);
  }

  // Of the whole program, with a planner that was built anew: trees keep the memory of their largest query.
  std::size_t bytesInUse() {
    planner_->setParam("seed", scene_.integer(1, 1000));
    planner_->planToCSpaceTarget(q_, q_, false);
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
  }

  void ask() {
    if (scene_.integer(0, 19) == 0) {
      carry();
    }
    // The view shows the same until the next query, whatever the editor does meanwhile.
    planner_->updateWorldView();
    if (scene_.integer(0, 3) == 0 || !isValid(q_)) {
      q_ = randomConfiguration();
    }
    const int kind = scene_.integer(0, 9);
    const Eigen::VectorXd target = randomConfiguration();
    if (kind < 4) {
      planner_->setParam("planner", "bi_rrt");
      take(planner_->planToCSpaceTarget(q_, target, false), &target, true);
    } else if (kind < 6) {
      planner_->setParam("planner", "rrt_connect");
      take(planner_->planToCSpaceTarget(q_, target, false), &target, false);
    } else if (kind < 8) {
      take(planner_->planToPose(q_, "tool", toolPose(target), false), nullptr, true);
    } else if (kind < 9) {
      take(planner_->planToTaskSpaceTarget(q_, toolPose(target).translation(), false), nullptr, false);
    } else {
      PoseGoal goal;
      goal.frame = "tool";
      const Pose3 here = toolPose(q_);
      goal.pose = Pose3(here.rotation(), here.translation() + scene_.point(0.1));
      const planning::LineMotion line = planner_->planLine(q_, goal, {});
      if (!line.path.empty() && line.end != planning::LineMotion::End::kInvalidStart && !isFree(line.path)) {
        fault("the beginning of a line that is not free");
      }
      MotionPlanner::Results results;
      results.path_found = line.end == planning::LineMotion::End::kComplete;
      results.path = line.path;
      take(results, nullptr, true);
    }
  }

 private:
  bool isValid(const Eigen::VectorXd& q) const {
    return InspectConfigurations(*planner_->robot(), view_, {q}).front().IsValid();
  }

  bool isFree(const std::vector<Eigen::VectorXd>& path) const {
    return planning::ProvePath(*planner_->robot(), view_, path).IsFree();
  }

  Eigen::VectorXd randomConfiguration() {
    const std::vector<kinematics::JointLimits> limits = ExtractJointLimits(robot_.get());
    Eigen::VectorXd q(static_cast<Eigen::Index>(limits.size()));
    for (std::size_t i = 0; i < limits.size(); ++i) {
      q[static_cast<Eigen::Index>(i)] = scene_.uniform(limits[i].min, limits[i].max);
    }
    return q;
  }

  Pose3 toolPose(const Eigen::VectorXd& q) const { return kinematics_->pose(q, kinematics_->frame("tool")); }

  // The robot takes an object up, or puts it down where it is.
  void carry() {
    if (!AttachedBodies(*planner_->robot()).empty()) {
      DetachIntoWorld(*planner_, world_, kHeldName, q_);
    } else {
      if (!has_object_) {
        world_.add(SphereObstacle{0.03}, toolPose(q_) * Pose3::FromTranslation({0.0, 0.0, 0.05}), kHeldName);
        has_object_ = true;
      }
      AttachFromWorld(*planner_, world_, kHeldName, "tool", q_, {"hand", "left_finger", "right_finger"});
    }
    ++counts_.carried;
  }

  void fault(const char* what) {
    ++counts_.faults;
    std::printf("fault: %s (query %ld, planner %s)\n", what,
                counts_.found + counts_.refused + counts_.not_found, planner_->queryReport().planner.c_str());
  }

  void take(const MotionPlanner::Results& results, const Eigen::VectorXd* target, bool is_proven) {
    const SearchStatus status = planner_->queryReport().status;
    if (!results.path_found) {
      const bool is_bad_start = status == SearchStatus::kInvalidStart;
      const bool is_bad_target = status == SearchStatus::kInvalidTarget;
      if ((is_bad_start && isValid(q_)) || (is_bad_target && target != nullptr && isValid(*target))) {
        fault("refused a configuration that is valid");
      }
      const bool is_refused = is_bad_start || is_bad_target || status == SearchStatus::kStartTooClose ||
                              status == SearchStatus::kTargetTooClose ||
                              status == SearchStatus::kUnreachableTarget;
      ++(is_refused ? counts_.refused : counts_.not_found);
      return;
    }
    ++counts_.found;
    if (results.path.empty() || results.path.front() != q_ ||
        (target != nullptr && results.path.back() != *target)) {
      fault("a path with other ends");
      return;
    }
    const bool is_free = isFree(results.path);
    ++(is_free ? counts_.proven : counts_.only_sampled);
    if (is_proven && !is_free) {
      fault("a path by motions that is not free");
    }
    q_ = results.path.back();
  }

  World world_;
  WorldView view_;
  std::shared_ptr<RobotDescription> robot_ = LoadFrankaRobotDescription();
  std::unique_ptr<Kinematics> kinematics_ = robot_->kinematics();
  std::unique_ptr<MotionPlanner> planner_;
  Editor editor_;
  RandomScene scene_;
  Eigen::VectorXd q_;
  bool has_object_ = false;
  Counts counts_;
};

int Run(long num_queries, std::uint32_t seed) {
  Soak soak(seed);
  const auto begin = std::chrono::steady_clock::now();
  // In use after each tenth of the queries, without what the largest of them has left behind.
  std::size_t in_use[10] = {};
  long num_losses = 0;
  for (long i = 0; i < num_queries; ++i) {
    soak.ask();
    if (i % 100 == 99 || i + 1 == num_queries) {
      num_losses += soak.isWhole() ? 0 : 1;
    }
    const long tenth = 10 * i / num_queries;
    if (10 * (i + 1) / num_queries != tenth) {
      in_use[tenth] = soak.bytesInUse();
    }
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  const Counts& counts = soak.counts();
  const long num_answers = counts.found + counts.refused + counts.not_found;
  std::printf(
      "%ld queries in %.1f s beside %llu edits of the world, %ld times took up or put down an object\n",
      num_queries, seconds, static_cast<unsigned long long>(soak.numEdits()), counts.carried);
  std::printf("%ld found, %ld refused for their ends, %ld not found\n", counts.found, counts.refused,
              counts.not_found);
  std::printf("%ld paths proven free again; %ld of planners that check samples alone touch in between\n",
              counts.proven, counts.only_sampled);
  std::printf("memory in use after each tenth, KiB:");
  for (const std::size_t bytes : in_use) {
    std::printf(" %zu", bytes / 1024);
  }
  // Obstacles come and go, of which a mesh takes some ten KiB. That is less than a hundred bytes lost by each
  // of ten thousand queries would be.
  constexpr std::size_t kMostObstacles = std::size_t{512} * 1024;
  const bool is_flat =
      *std::max_element(in_use + 5, in_use + 10) <= *std::max_element(in_use, in_use + 5) + kMostObstacles;
  std::printf("\nmemory %s, %ld losses, %ld faults, %ld answers missing\n", is_flat ? "flat" : "grows",
              num_losses, counts.faults, num_queries - num_answers);
  return is_flat && num_losses == 0 && counts.faults == 0 && num_answers == num_queries ? 0 : 1;
}

}  // namespace
}  // namespace kavo

int main(int argc, char** argv) {
  // Queries that are refused are warned about, each time.
  kavo::util::log_level_threshold = -1;
  const long num_queries = argc > 1 ? std::atol(argv[1]) : 10000;
  const long seed = argc > 2 ? std::atol(argv[2]) : 1;
  if (num_queries < 10 || seed < 1) {
    std::fprintf(stderr, "Usage: kavo_soak [number of queries, at least 10] [seed, at least 1]\n");
    return 2;
  }
  return kavo::Run(num_queries, static_cast<std::uint32_t>(seed));
}
