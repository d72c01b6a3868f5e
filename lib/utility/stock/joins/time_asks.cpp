// The parameter file of the default formats.

#include "time/asks.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include "base/alloc.h"
#include "base/fixed_text.h"
#include "base/ordered_lock.h"
#include "stock/elog.h"
#include "stock/pf.h"

namespace {

const char *const kFile = "time_formats.pf";

// Formats that were read once stay: a program may hold on to them.
struct Kept {
    Kept *before;
    char text[1];
};
Kept *kept = nullptr;
constinit stock::OrderedLock kept_lock{stock::Place::formats};

const char *keep(std::string_view text, std::string_view more = {})
{
    const std::size_t length = text.size() + more.size();
    auto *item = static_cast<Kept *>(stock::allocate(sizeof(Kept) + length, "time format"));
    text.copy(item->text, text.size());
    more.copy(item->text + text.size(), more.size());
    item->text[length] = '\0';
    const std::lock_guard lock(kept_lock);
    item->before = kept;
    kept = item;
    return item->text;
}

// The file's settings: its own keys, or those of the array that its location names.
class Settings {
public:
    Settings() : readable_(pfread("time_formats", &pf_) == 0)
    {
        if (!readable_)
            return;
        const char *location =
            std::getenv("EUROPEAN_DATE") ? "european" : pfget_string(pf_, "location");
        // A copy: a format that refers to it reads it again.
        if (location && *location)
            location_.reset(stock::copy_text(location, "location"));
    }
    ~Settings() { pffree(pf_); }
    Settings(const Settings &) = delete;
    Settings &operator=(const Settings &) = delete;

    bool readable() const { return readable_; }

    bool boolean(const char *name) const
    {
        stock::Line<1024> address;
        return pfget_boolean(pf_, address_of(name, address)) != 0;
    }

    // The text of a key. Without it the process ends with a message that names the key, or
    // without a location what it is `told` as.
    std::string_view text(const char *name, const char *told) const
    {
        stock::Line<1024> address;
        const char *text = pfget_string(pf_, address_of(name, address));
        if (!text)
            elog_die(0, "Could not read '%s' from %s", location_ ? address.c_str() : told, kFile);
        return text;
    }

private:
    const char *address_of(const char *name, stock::Line<1024> &address) const
    {
        if (!location_)
            return name;
        address.add(location_.get());
        address.add('{');
        address.add(name);
        address.add('}');
        return address.c_str();
    }

    Pf *pf_ = nullptr;
    bool readable_;
    stock::Owned<char> location_;  // null when the settings are the file's own
};

}  // namespace

bool stock::read_time_formats(TimeFormats &formats)
{
    const Settings settings;
    if (!settings.readable())
        return false;
    const struct {
        const char *name, *told;
        const char *TimeFormats::*utc;
        const char *TimeFormats::*zone;
    } rows[] = {
        {"time", "time", &TimeFormats::time, &TimeFormats::ztime},
        {"ydtime", "ydtime", &TimeFormats::ydtime, &TimeFormats::zydtime},
        // Meant: a missing uydtime is told as ydtime.
        {"uydtime", "ydtime", &TimeFormats::uydtime, &TimeFormats::uzydtime},
        {"date", "date", &TimeFormats::date, &TimeFormats::zdate},
    };
    for (const auto &row : rows) {
        const std::string_view text = settings.text(row.name, row.told);
        formats.*row.utc = keep(text);
        formats.*row.zone = keep(text, " %z");
    }
    formats.month_first = settings.boolean("month_first");
    return true;
}
