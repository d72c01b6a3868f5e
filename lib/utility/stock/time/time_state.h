// The state of the process that times have, but for the default formats, which programs may
// read and set and stock/time.h therefore declares. All of it is defined in time_state.cpp.

#pragma once

#include <atomic>

#include "base/ordered_lock.h"
#include "time/asks.h"

namespace stock {

// The time zone that switchTZ put into the environment. Guarded by environment_lock.
struct ZoneSwitch {
    // True from switchTZ to restoreTZ. restoreTZ first reads it without the lock: a thread sees
    // a switch that it made itself in any case, and no other concerns it.
    std::atomic<bool> active{false};
    // What "TZ=..." was before the first switch, or null. The environment's, not owned.
    char *entry_before = nullptr;
    // The "TZ=..." that the environment has now, or null. Owned; freed when it is replaced.
    char *entry = nullptr;
};
extern ZoneSwitch Zone_switch;

// Held while the default formats are set, so that two threads do not mix theirs. They are
// read without it.
extern OrderedLock Formats_lock;

// Whether this thread reads the default formats at the moment: reading may report a
// message, and the message's time needs the formats.
extern constinit thread_local bool Reading_formats;

// The default formats until "time_formats.pf" is read, and when there is none.
inline constexpr TimeFormats kMonthFirstFormats = {
    .time = "%m/%d/%Y  %H:%M:%S.%s",
    .ydtime = "%m/%d/%Y  (%j) %H:%M:%S.%s",
    .uydtime = "%m/%d/%Y  (%j) %H:%M:%S.%u",
    .date = "%m/%d/%Y",
    .ztime = "%m/%d/%Y  %H:%M:%S.%s %z",
    .zydtime = "%m/%d/%Y  (%j) %H:%M:%S.%s %z",
    .uzydtime = "%m/%d/%Y  (%j) %H:%M:%S.%u %z",
    .zdate = "%m/%d/%Y %z",
    .month_first = 1,
};

// The same when EUROPEAN_DATE is set.
inline constexpr TimeFormats kDayFirstFormats = {
    .time = "%d/%m/%Y  %H:%M:%S.%s",
    .ydtime = "%d/%m/%Y  (%j) %H:%M:%S.%s",
    .uydtime = "%d/%m/%Y  (%j) %H:%M:%S.%u",
    .date = "%d/%m/%Y",
    .ztime = "%d/%m/%Y  %H:%M:%S.%s %z",
    .zydtime = "%d/%m/%Y  (%j) %H:%M:%S.%s %z",
    .uzydtime = "%d/%m/%Y  (%j) %H:%M:%S.%u %z",
    .zdate = "%d/%m/%Y %z",
    .month_first = 0,
};

}  // namespace stock
