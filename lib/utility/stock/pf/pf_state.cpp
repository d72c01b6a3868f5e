// The state of the process that the parameter files have, in one place: pf_state.h says
// what each object holds and which lock guards it.

#include "pf/pf_state.h"

namespace stock {

constinit OrderedLock Pf_lock{Place::parse};
constinit std::atomic<int> Pf_busy{0};
constinit KeptBuffers Kept_buffers;

}  // namespace stock
