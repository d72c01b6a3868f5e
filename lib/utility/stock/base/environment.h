// The lock of the process's environment.
//
// setenv, putenv and tzset in different threads disturb each other, so every function of the
// library that changes the environment holds this lock.

#pragma once

#include "base/ordered_lock.h"

namespace stock {

// A thread holds it from switchTZ to restoreTZ, and while it enters the installation root. It
// may take it again. It reports no messages meanwhile; a function that must end the process
// calls give_up first.
extern RecursiveLock environment_lock;

}  // namespace stock
