// The lock of the process's environment.
//
// setenv, putenv and tzset are not safe against each other in different threads, so
// every function of the library that changes the environment holds this lock.

#pragma once

#include "base/ordered_lock.h"

namespace stock {

// Held from switchTZ to restoreTZ and while the installation root is entered; a thread may
// take it again. Messages are not reported with it held: who must end the process calls
// give_up first.
extern RecursiveLock environment_lock;

}  // namespace stock
