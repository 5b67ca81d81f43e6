#include "kavo/kinematics/interface/frame_sweep.h"

namespace kavo {

FrameSweep::~FrameSweep() = default;

}  // namespace kavo
