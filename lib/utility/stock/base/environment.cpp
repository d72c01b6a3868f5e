// The lock of the process's environment: who takes it stands in environment.h.

#include "base/environment.h"

namespace stock {

constinit RecursiveLock environment_lock{Place::zone};

}  // namespace stock
