// Answers what times ask: reads the default formats from their parameter file.

#include "time/asks.h"

#include <atomic>
#include <cstdlib>
#include <string_view>

#include "base/alloc.h"
#include "base/fixed_text.h"
#include "pf/parsing.h"
#include "stock/elog.h"
#include "stock/pf.h"

namespace {

// The state of the process that the joins have: all formats ever read, the newest first. They
// are never freed, because a program may keep a pointer to one.
struct KeptFormat {
    KeptFormat *before;
    char text[1];  // and more behind it
};
constinit std::atomic<KeptFormat *> Kept_formats{nullptr};

// Keeps the text followed by `more` for the life of the process.
const char *keep(std::string_view text, std::string_view more = {})
{
    const std::size_t length = text.size() + more.size();
    auto *format =
        static_cast<KeptFormat *>(stock::allocate(sizeof(KeptFormat) + length, "time format"));
    text.copy(format->text, text.size());
    more.copy(format->text + text.size(), more.size());
    format->text[length] = '\0';
    format->before = Kept_formats;
    while (!Kept_formats.compare_exchange_weak(format->before, format)) {
        // Another thread was quicker: format->before is now what it kept.
    }
    return format->text;
}

// The settings in "time_formats.pf": its own keys, or when the file names a location those of
// the array of that name.
class FormatSettings {
public:
    FormatSettings() : readable_(stock::read_settings("time_formats", &pf_) == 0)
    {
        if (!readable_)
            return;
        const char *location =
            std::getenv("EUROPEAN_DATE") ? "european" : pfget_string(pf_, "location");
        // A copy: a format that refers to the location evaluates it again, which frees the text.
        if (location && *location)
            location_.reset(stock::copy_text(location, "location"));
    }
    ~FormatSettings() { pffree(pf_); }
    FormatSettings(const FormatSettings &) = delete;
    FormatSettings &operator=(const FormatSettings &) = delete;

    bool readable() const { return readable_; }

    bool boolean(const char *name) const
    {
        Address address;
        return pfget_boolean(pf_, address_of(name, address)) != 0;
    }

    // The text of a key. When it is missing the process ends with a message that names the
    // address of the key; without a location it says `told` instead.
    std::string_view text(const char *name, const char *told) const
    {
        Address address;
        const char *text = pfget_string(pf_, address_of(name, address));
        if (!text)
            elog_die(0, "Could not read '%s' from %s", location_ ? address.c_str() : told,
                     "time_formats.pf");
        return text;
    }

private:
    using Address = stock::FixedTextOf<1024>;

    // The address of a key, "location{name}" or just the name. `address` is its memory.
    const char *address_of(const char *name, Address &address) const
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
    const FormatSettings settings;
    if (!settings.readable())
        return false;
    const struct {
        const char *name, *told;
        const char *TimeFormats::*utc;
        const char *TimeFormats::*zone;
    } rows[] = {
        {"time", "time", &TimeFormats::time, &TimeFormats::ztime},
        {"ydtime", "ydtime", &TimeFormats::ydtime, &TimeFormats::zydtime},
        // Meant: the message about a missing uydtime names ydtime.
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
