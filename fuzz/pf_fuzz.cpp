// Parameter text from anywhere: parsed from memory and from a stream, copied,
// written, and parsed again.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "stock.h"

namespace {

struct FreePf {
    void operator()(Pf *pf) const { pffree(pf); }
};
using PfPtr = std::unique_ptr<Pf, FreePf>;

void expect(bool so)
{
    if (!so)
        abort();
}

PfPtr parsed(const std::string &text, int *status)
{
    Pf *pf = nullptr;
    *status = pfcompile_counted(text.data(), static_cast<long>(text.size()), &pf);
    return PfPtr(pf);
}

PfPtr streamed(const std::string &text, int *status)
{
    FILE *stream = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    Pf *pf = nullptr;
    *status = pfin(stream, &pf);
    fclose(stream);
    return PfPtr(pf);
}

std::string flat(const Pf *pf)
{
    char *text = pf2string(pf);
    std::string copy = text;
    free(text);
    return copy;
}

// Whether all keys and values of a tree are of the kind that reads back: plain
// keys, and texts that do not look like something else.
bool reads_back(const Pf *pf);

int check_entry(void *key, void *child, void *argument)
{
    const char *text = static_cast<const char *>(key);
    const bool plain = *text && !strpbrk(text, " \t\n#\\}\"'") && strncmp(text, "__", 2);
    *static_cast<bool *>(argument) &= plain && reads_back(static_cast<Pf *>(child));
    return 0;
}

bool reads_back(const Pf *pf)
{
    bool all = true;
    switch (pf->type) {
    case PFSTRING: return pf->value.s[0] != '&';
    case PFTBL:
        for (int64_t i = 0; i < pf->value.tbl->count; ++i)
            all &= reads_back(static_cast<Pf *>(gettbl(pf->value.tbl, i)));
        return all;
    case PFFILE:
    case PFARR: applyarr(pf->value.arr, check_entry, &all); return all;
    default: return false;  // a function is followed by an empty line
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    elog2stderr();
    elog_set(ELOG_DELIVER_FIELD, 4, "/dev/null");
    const std::string text(reinterpret_cast<const char *>(data), size);
    int status = 0;
    const PfPtr tree = parsed(text, &status);
    int same = 0;
    const PfPtr other = streamed(text, &same);
    const std::string written = flat(tree.get());
    expect(status == same && written == flat(other.get()));

    if (reads_back(tree.get())) {
        const PfPtr again = parsed(written, &status);
        expect(status == 0 && flat(again.get()) == written);
        expect(flat(PfPtr(pfdup(tree.get())).get()) == written);
    }
    elog_clear();
    return 0;
}
