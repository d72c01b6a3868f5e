// Scans one text with the tool's sink, which keeps places, and with the library's, which makes a
// tree. Both must find the same values, and every place must lie inside the text.

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

// Aborts unless the tree holds what the entry holds at the end of the text.
void compare(const SourceEntry &entry, const Pf *pf)
{
    switch (pf->type) {
    case PFSTRING:
        return expect(entry.kind == SourceEntry::Kind::text && entry.text == pf->value.s);
    case PFFUNCTION:
        return expect(entry.kind == SourceEntry::Kind::function &&
                      entry.text == pf->value.pffunct->text);
    case PFTBL: {
        const auto list = elements(entry);
        expect(entry.kind == SourceEntry::Kind::list &&
               static_cast<long>(list.size()) == pfmaxtbl(pf));
        for (std::size_t i = 0; i < list.size(); ++i)
            compare(*list[i],
                    static_cast<Pf *>(gettbl(pf->value.tbl, static_cast<std::int64_t>(i))));
        return;
    }
    default: expect(entry.kind == SourceEntry::Kind::table);
    }
    for (const SourceEntry &child : entry.children) {
        const auto *value = static_cast<const Pf *>(getarr(pf->value.arr, child.key.c_str()));
        const SourceEntry *last = find_key(entry, child.key);
        expect((value != nullptr) == (last != nullptr));
        if (last == &child)
            compare(child, value);
    }
    Tbl *keys = pfkeys(pf);
    for (std::int64_t i = 0; i < keys->count; ++i)
        expect(find_key(entry, static_cast<const char *>(gettbl(keys, i))) != nullptr);
    freetbl(keys, nullptr);
}

void check_places(const SourceEntry &entry, std::size_t size)
{
    for (const SourceEntry &child : entry.children) {
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
    const SourceText source = scan_source(text, OnError::stop);
    expect(source.failed == refused);
    compare(source.top, pf);
    pffree(pf);
    check_places(source.top, size);
    check_places(scan_source(text, OnError::go_on).top, size);
    elog_clear();
    return 0;
}
