// The variables of this room: base_state.h and environment.h say what they hold.

#include "base/base_state.h"

#include "base/environment.h"

namespace stock {

constinit KnownLocks Known_locks;
constinit RecursiveLock environment_lock{Place::zone};

#ifdef STOCK_CHECK_LOCKS
constinit thread_local std::uint32_t Held_places = 0;
#endif

}  // namespace stock
