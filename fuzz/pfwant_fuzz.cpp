// Any text held to a table of declared parameters: nothing crashes, what is taken is within its
// bounds, and what is refused changes nothing.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "stock.h"

namespace {

struct Limit {
    double mm;
    double within;
    char *who;
};

int keep = 5;
int64_t total = 0, room = 0;
double level = 0, interval = 1, since = 0;
int verbose = 0, mode = 0;
char *state = nullptr;
Tbl *gauges = nullptr, *depths = nullptr;
Arr *names = nullptr, *limits = nullptr;

const Pfwant kLimitWants[] = {
    {"mm", PFWANT_DOUBLE(PFWANT_AT(Limit, mm)), PFWANT_REQUIRED, 0, 1000, nullptr},
    {"within", PFWANT_DURATION(PFWANT_AT(Limit, within)), "1 h", 0, 0, nullptr},
    {"who", PFWANT_TEXT(PFWANT_AT(Limit, who)), "nobody", 0, 0, nullptr},
    PFWANT_END,
};

const Pfwant kWants[] = {
    {"k", PFWANT_INT(&keep), "5", 1, 100, nullptr},
    {"t", PFWANT_INT64(&total), "0", 0, 0, nullptr},
    {"r", PFWANT_SIZE(&room), "64 KiB", 0, 0, nullptr},
    {"l", PFWANT_DOUBLE(&level), "1", -10, 10, nullptr},
    {"i", PFWANT_DURATION(&interval), "1 s", 0.1, 3600, nullptr},
    {"s", PFWANT_TIME(&since), "2008-02-01", 0, 0, nullptr},
    {"v", PFWANT_BOOLEAN(&verbose), "no", 0, 0, nullptr},
    {"m", PFWANT_WORD(&mode, "slow fast"), "slow", 0, 0, nullptr},
    {"x", PFWANT_TEXT(&state), "here", 0, 50, nullptr},
    {"g", PFWANT_LIST(&gauges, PFWANT_TEXT), "north", 0, 0, nullptr},
    {"d", PFWANT_LIST(&depths, PFWANT_DURATION), "", 0, 0, nullptr},
    {"n", PFWANT_TABLE(&names, PFWANT_SIZE), "", 0, 0, nullptr},
    {"a", PFWANT_RECORDS(&limits, kLimitWants, Limit), "", 0, 0, nullptr},
    {"*", PFWANT_ANY(), nullptr, 0, 0, nullptr},
    PFWANT_END,
};

// No command is run: an "&" stays only where a list or table begins.
std::string without_functions(std::string text)
{
    for (std::size_t at = text.find('&'); at != text.npos; at = text.find('&', at + 1))
        if (text.compare(at, 5, "&Tbl{") != 0 && text.compare(at, 5, "&Arr{") != 0)
            text[at] = '+';
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool silent = [] {
        elog_init(0, nullptr);
        setenv("ELOG_STACK", "", 1);
        for (int severity = ELOG_DEBUG; severity <= ELOG_COMPLAIN; ++severity)
            elog_set(ELOG_DELIVER_FIELD, severity, "/dev/null");
        return true;
    }();
    const std::string text =
        without_functions(std::string(reinterpret_cast<const char *>(data), size));
    Pf *pf = nullptr;
    pfcompile(text.c_str(), &pf);
    const int before = keep;
    const int status = pfwant(pf, kWants);
    const bool within = keep >= 1 && keep <= 100 && std::fabs(level) <= 10 && interval >= 0.1 &&
                        interval <= 3600 && room >= 0 && std::isfinite(since) &&
                        (!state || std::strlen(state) <= 50);
    if (!silent || !within || (status != 0 && (keep != before || elog_mark() == 0)))
        std::abort();
    const char *kept = state;
    if (status == 0 && (pfwant(pf, kWants) != 0 || state != kept))
        std::abort();
    pffree(pf);
    elog_clear();
    return 0;
}
