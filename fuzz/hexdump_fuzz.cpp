// Any bytes read as a hexadecimal dump, and any bytes dumped and read back.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "stock/hexdump.h"

namespace {

// Reads at most n bytes into a buffer of just that size; gives what was read.
std::vector<unsigned char> read_dump(const char *text, std::size_t size, int n)
{
    std::vector<unsigned char> bytes(static_cast<std::size_t>(n));
    FILE *stream = fmemopen(const_cast<char *>(text), size, "r");
    const int count = stream ? read_hexdump(stream, bytes.data(), n) : 0;
    if (stream)
        std::fclose(stream);
    if (count < 0 || count > n)
        std::abort();
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto *text = reinterpret_cast<const char *>(data);
    read_dump(text, size, size > 0 ? data[0] : 0);
    read_dump(text, size, static_cast<int>(size));

    char *dump = hexdump_string(size, data, static_cast<int>(size));
    const auto back = read_dump(dump, std::strlen(dump), static_cast<int>(size) + 20);
    if (!std::equal(back.begin(), back.end(), data, data + size))
        std::abort();
    std::free(dump);
    return 0;
}
