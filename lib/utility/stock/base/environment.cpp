// The lock of the process's environment; environment.h says which functions hold it.

#include "base/environment.h"

namespace stock {

constinit RecursiveLock environment_lock{Place::zone};

}  // namespace stock
