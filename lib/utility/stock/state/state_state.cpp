// The variables of the room state; state_state.h says what they are and what guards them.

#include "state/state_state.h"

namespace stock {

constinit StateFile The_state_file = {};
constinit thread_local volatile int Inside = 0;
constinit HaltRequest The_halt_request = {};

}  // namespace stock
