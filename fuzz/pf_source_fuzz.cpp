// Parameter text from anywhere through the tool's reader that keeps places: it accepts
// what the library accepts, every place lies in the text, and it ends.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "../tools/pf_source.h"
#include "stock.h"

namespace {

void expect(bool so)
{
    if (!so)
        std::abort();
}

void check_places(const Entry &entry, std::size_t size)
{
    for (const Entry &child : entry.children) {
        expect(child.begin <= child.value_begin && child.value_begin <= child.value_end);
        expect(child.value_end <= child.end && child.end <= size);
        check_places(child, size);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    elog2stderr();
    elog_set(ELOG_DELIVER_FIELD, 4, "/dev/null");
    const std::string text(reinterpret_cast<const char *>(data), size);
    Pf *pf = nullptr;
    const bool refused = pfcompile_counted(text.data(), static_cast<long>(size), &pf) != 0;
    pffree(pf);
    const Source source = scan_source(text, OnError::stop);
    expect(source.failed == refused);
    check_places(source.top, size);
    check_places(scan_source(text, OnError::go_on).top, size);
    elog_clear();
    return 0;
}
