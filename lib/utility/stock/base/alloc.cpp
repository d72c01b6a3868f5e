// The allocation helpers that are not inline, and the text of the out-of-memory message.

#include "base/alloc.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/fixed_text.h"

namespace stock {

namespace {

const char *base_name(const char *path)
{
    const char *slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

}  // namespace

void out_of_memory(std::size_t bytes, const char *item, const char *function, int line,
                   const char *file)
{
    if (errno == 0)
        errno = ENOMEM;
    FixedTextOf<1024> text;  // nothing is allocated for the message
    text.addf("Out of memory in %s at line %d of '%s'\n\tCan't malloc %lu bytes for %s\n", function,
              line, base_name(file), static_cast<unsigned long>(bytes), item);
    report_out_of_memory(text.c_str());
}

void *allocate_zeroed(std::size_t bytes, const char *item, const char *function, int line,
                      const char *file)
{
    void *block = std::calloc(std::max<std::size_t>(bytes, 1), 1);
    if (!block)
        out_of_memory(bytes, item, function, line, file);
    return block;
}

void *reallocate(void *block, std::size_t bytes, const char *item, const char *function, int line,
                 const char *file)
{
    void *grown = std::realloc(block, std::max<std::size_t>(bytes, 1));
    if (!grown)
        out_of_memory(bytes, item, function, line, file);
    return grown;
}

char *copy_text(const char *text, const char *item, const char *function, int line,
                const char *file)
{
    const std::size_t bytes = std::strlen(text) + 1;
    void *copy = allocate(bytes, item, function, line, file);
    return static_cast<char *>(std::memcpy(copy, text, bytes));
}

}  // namespace stock
