// The time zone of the process: its environment variable TZ, switched and put back.
//
// The environment holds a pointer to the entry "TZ=...", so an entry is freed only after the
// next one has replaced it. Messages name these functions as those of str2epoch, whose
// header declares them.

#include "stock/str2epoch.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string_view>

#include "base/alloc.h"
#include "base/environment.h"
#include "stock/elog.h"
#include "time/time_state.h"

using stock::Zone_switch;

namespace {

constexpr std::size_t kMaxZoneBytes = 61;  // of a zone's name

// Puts an entry into the environment. With environment_lock held, which it gives up to report
// a failure: that ends the process.
void install(char *entry)
{
    if (putenv(entry) == 0)
        return;
    stock::environment_lock.give_up();
    elog_die(1, "*stack*Unexpected failure: %s in file %s, line %d\n", "switchTZ", "str2epoch",
             __LINE__);
}

// The entry for a zone, which the caller frees. With environment_lock held.
char *new_entry(const char *zone)
{
    constexpr std::string_view kName = "TZ=";
    const std::string_view value(zone, strnlen(zone, kMaxZoneBytes));
    const std::size_t size = kName.size() + value.size() + 1;
    auto *entry = static_cast<char *>(std::malloc(size));
    if (!entry) {
        stock::environment_lock.give_up();
        stock::out_of_memory(size, "time zone", "switchTZ", __LINE__, "str2epoch.cpp");
    }
    kName.copy(entry, kName.size());
    value.copy(entry + kName.size(), value.size());
    entry[size - 1] = '\0';
    return entry;
}

// Makes the platform read TZ again. errno is 0 afterwards when it found the zone.
void read_zone()
{
    errno = 0;
    tzset();
}

}  // namespace

void switchTZ(const char *zone)
{
    const std::lock_guard lock(stock::environment_lock);
    if (!Zone_switch.active)
        Zone_switch.entry_before = const_cast<char *>(mygetTZ());
    Zone_switch.active = true;
    if (zone && *zone) {
        char *entry = new_entry(zone);
        install(entry);
        std::free(Zone_switch.entry);
        Zone_switch.entry = entry;
    } else {
        unsetenv("TZ");
    }
    read_zone();
}

void restoreTZ(void)
{
    if (!Zone_switch.active)
        return;
    const std::lock_guard lock(stock::environment_lock);
    if (!Zone_switch.active)
        return;
    if (Zone_switch.entry_before)
        install(Zone_switch.entry_before);
    else
        unsetenv("TZ");
    read_zone();
    std::free(Zone_switch.entry);
    Zone_switch.entry = nullptr;
    Zone_switch.active = false;
}

const char *mygetTZ(void)
{
    const char *value = std::getenv("TZ");
    return value && *value ? value - std::strlen("TZ=") : nullptr;
}
