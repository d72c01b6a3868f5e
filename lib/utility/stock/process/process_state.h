// The variables of this room, defined in process_state.cpp.

#pragma once

#include <cstdint>

#include <sys/stat.h>

#include "base/ordered_lock.h"
#include "stock/arr.h"
#include "stock/signal_desc.h"

namespace stock {

// What signal_bysig or signal_byname gave last. No lock guards it: both are meant for start-up
// and for the report of a fault.
struct SignalRecord {
    Signal signal;
    char name[SIGNAL_NAME_SIZE];
    char description[256];
};
extern SignalRecord Signal_by_number;
extern SignalRecord Signal_by_name;

// The user library. mutex guards all of it.
struct UserLibrary {
    RecursiveLock mutex{Place::methods};
    bool named;            // name is that of USER_LIBRARY
    char *name;            // freed when it is replaced
    void *handle;          // of the loader; null when none is loaded
    struct stat status;    // of the file, when it was loaded
    std::int64_t checked;  // when the file was last looked at, in whole seconds
    Arr *functions;        // found by name; a function that the library lacks has the address
                           // of this object. Freed when the library is loaded again
    Arr *kept_by_system;   // the paths of libraries that stayed in memory when closed
};
extern UserLibrary The_user_library;

}  // namespace stock
