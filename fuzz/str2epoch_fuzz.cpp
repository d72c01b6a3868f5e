// Any bytes read as a time: nothing crashes, and what is a time is printed.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "stock/str2epoch.h"
#include "stock/time.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    double epoch = 0;
    const int problems = _zstr2epoch(text.c_str(), &epoch, 0);
    if (problems > 0 || std::isnan(epoch))
        std::abort();
    std::free(epoch2str("%A %B %D %E %G %g %I %j %O %s %u %T %Y", epoch));
    char buf[FMTTIME_SIZE];
    fmttime(buf, static_cast<int>(size % 10), nullptr, epoch);
    return 0;
}
