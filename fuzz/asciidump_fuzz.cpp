// Any bytes read as escaped text, and any bytes dumped and read back.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "stock/asciidump.h"

namespace {

// Reads at most n bytes into a buffer of just that size; gives what was read.
std::vector<unsigned char> read_dump(FILE *stream, int n)
{
    std::vector<unsigned char> bytes(static_cast<std::size_t>(n));
    const int count = stream ? read_asciidump(stream, bytes.data(), n) : 0;
    if (stream)
        std::fclose(stream);
    if (count < 0 || count > n)
        std::abort();
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

FILE *stream_of(const void *text, std::size_t size)
{
    return fmemopen(const_cast<void *>(text), size, "r");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    read_dump(stream_of(data, size), size > 0 ? data[0] : 0);
    read_dump(stream_of(data, size), static_cast<int>(size));
    if (size == 0)
        return 0;

    char *dump = nullptr;
    std::size_t length = 0;
    FILE *out = open_memstream(&dump, &length);
    asciidump(out, reinterpret_cast<const char *>(data), static_cast<int>(size));
    std::fclose(out);
    const auto back = read_dump(stream_of(dump, length), static_cast<int>(size) + 20);
    if (!std::equal(back.begin(), back.end(), data, data + size))
        std::abort();
    std::free(dump);
    return 0;
}
