// Placing the frames of the Franka arm that carry collision spheres: one sweep, compared with walking the
// chain once for each frame; and sines and cosines compared with the system's.
//
// The lines that start with "ratio" come from one run, both ways in turns. The program ends with an error if
// the two ways differ in a bit.

#include <benchmark/benchmark.h>

#include <Eigen/Core>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>

#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/sin_cos_internal.h"

namespace {

using kavo::math::RigidTransform;

class Franka {
 public:
  Franka() {
    const std::unique_ptr<kavo::RobotDescription> description = kavo::LoadFrankaRobotDescription();
    kinematics_ = description->kinematics();
    const auto& internal = dynamic_cast<const kavo::RobotDescriptionInternal&>(*description);
    for (const std::string& name : internal.collision().frames) {
      frames_.push_back(kinematics_->frame(name));
    }
    sweep_ = kinematics_->frameSweep(frames_);
    walked_.resize(frames_.size());
    std::mt19937 engine(1);
    for (int i = 0; i < 1024; ++i) {
      Eigen::VectorXd q(7);
      for (double& coordinate : q) {
        coordinate = static_cast<double>(engine()) / 4294967296.0 * 6.0 - 3.0;
      }
      configurations_.push_back(q);
    }
  }

  const kavo::kinematics::Kinematics& model() const {
    return dynamic_cast<const kavo::KinematicsInternal&>(*kinematics_).model();
  }
  const std::vector<Eigen::VectorXd>& configurations() const { return configurations_; }
  const std::vector<kavo::Kinematics::FrameHandle>& frames() const { return frames_; }

  const std::vector<RigidTransform>& sweep(const Eigen::VectorXd& q) { return sweep_->compute(q); }

  const std::vector<RigidTransform>& walk(const Eigen::VectorXd& q) {
    for (std::size_t i = 0; i < frames_.size(); ++i) {
      walked_[i] = model().transform(q, frames_[i].index());
    }
    return walked_;
  }

 private:
  std::unique_ptr<kavo::Kinematics> kinematics_;
  std::vector<kavo::Kinematics::FrameHandle> frames_;
  std::unique_ptr<kavo::FrameSweep> sweep_;
  std::vector<RigidTransform> walked_;
  std::vector<Eigen::VectorXd> configurations_;
};

void Sweep(benchmark::State& state) {
  Franka franka;
  std::size_t i = 0;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(franka.sweep(franka.configurations()[i++ % 1024]).data());
  }
}
BENCHMARK(Sweep);

void WalkFrameByFrame(benchmark::State& state) {
  Franka franka;
  std::size_t i = 0;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(franka.walk(franka.configurations()[i++ % 1024]).data());
  }
}
BENCHMARK(WalkFrameByFrame);

void Jacobian(benchmark::State& state) {
  Franka franka;
  const int tool = franka.model().frame("tool");
  std::size_t i = 0;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(franka.model().positionJacobian(franka.configurations()[i++ % 1024], tool));
  }
}
BENCHMARK(Jacobian);

// The least time of several rounds, in seconds: what the machine's other users add is never negative.
template <typename First, typename Second>
double Ratio(const First& first, const Second& second) {
  const auto time = [](const auto& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  double first_time = HUGE_VAL;
  double second_time = HUGE_VAL;
  for (int round = 0; round < 50; ++round) {
    first_time = std::min(first_time, time(first));
    second_time = std::min(second_time, time(second));
  }
  return second_time / first_time;
}

bool CompareSweepWithWalk() {
  Franka franka;
  for (const Eigen::VectorXd& q : franka.configurations()) {
    const std::vector<RigidTransform>& swept = franka.sweep(q);
    const std::vector<RigidTransform>& walked = franka.walk(q);
    for (std::size_t i = 0; i < swept.size(); ++i) {
      if (swept[i].rotation != walked[i].rotation || swept[i].translation != walked[i].translation) {
        std::printf("error: sweep and walk differ\n");
        return false;
      }
    }
  }
  const double ratio = Ratio(
      [&] {
        for (const Eigen::VectorXd& q : franka.configurations()) {
          benchmark::DoNotOptimize(franka.sweep(q).data());
        }
      },
      [&] {
        for (const Eigen::VectorXd& q : franka.configurations()) {
          benchmark::DoNotOptimize(franka.walk(q).data());
        }
      });
  std::printf("ratio sweep over %zu frames, to one walk for each: %.2f times faster\n",
              franka.frames().size(), ratio);
  return true;
}

bool CompareSinCosWithSystem() {
  constexpr std::size_t kCount = 7;
  std::vector<double> x(kCount * 1024), sin(x.size()), cos(x.size()), system_sin(x.size()),
      system_cos(x.size());
  std::mt19937 engine(2);
  for (double& value : x) {
    value = static_cast<double>(engine()) / 4294967296.0 * 6.0 - 3.0;
  }
  const double ratio = Ratio(
      [&] {
        for (std::size_t i = 0; i < x.size(); i += kCount) {
          kavo::kinematics::internal::SinCos(&x[i], &sin[i], &cos[i], kCount);
        }
      },
      [&] {
        for (std::size_t i = 0; i < x.size(); ++i) {
          system_sin[i] = std::sin(x[i]);
          system_cos[i] = std::cos(x[i]);
        }
      });
  for (std::size_t i = 0; i < x.size(); ++i) {
    if (std::fabs(sin[i] - system_sin[i]) > 3e-16 || std::fabs(cos[i] - system_cos[i]) > 3e-16) {
      std::printf("error: sines or cosines differ by more than rounding\n");
      return false;
    }
  }
  std::printf("ratio sines and cosines, %zu at a time, to the system's: %.2f times faster\n", kCount, ratio);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  const bool same = CompareSweepWithWalk();
  return CompareSinCosWithSystem() && same ? 0 : 1;
}
