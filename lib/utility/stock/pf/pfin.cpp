// Parsing: one text at a time, from a descriptor, a stream or memory.
//
// Each entry point chooses the window over its text, its name in messages, and
// how it says that the text ended too early; the rest is one function.

#include "stock/pf.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "base/alloc.h"
#include "pf/pf_state.h"
#include "pf/scan.h"
#include "stock/elog.h"
#include "stock/strings.h"

namespace {

using stock::Buffer;
using stock::Kept_buffers;
using stock::Scanner;
using stock::Window;

// Takes a kept buffer away, so that no other parse uses it meanwhile.
Buffer taken(Buffer &kept)
{
    const std::scoped_lock lock(stock::Pf_lock);
    return std::exchange(kept, {});
}

// Keeps the larger of two buffers for the next parse and frees the other.
void keep(Buffer &kept, Buffer buffer)
{
    {
        const std::scoped_lock lock(stock::Pf_lock);
        if (kept.size < buffer.size)
            std::swap(kept, buffer);
    }
    std::free(buffer.bytes);
}

int refuse(int error, const char *filename)
{
    errno = error;
    elog_log(1, "read failed in pf input routine for file %s", filename);
    return -2;
}

// The node that takes the text: the caller's, or a new one. Null when the caller's
// is no table.
Pf *target_of(Pf **pf)
{
    if (!*pf)
        *pf = pfnew(PFARR);
    Pf *top = *pf;
    if (top->type != PFFILE && top->type != PFARR)
        return nullptr;
    if (!top->value.arr)
        top->value.arr = newarr(nullptr);
    top->value.arr->replace = 1;  // what it would keep is freed when a key comes again
    top->type = PFARR;
    return top;
}

// Parses the window that `open` makes over a buffer. When the text ends inside a
// container, `unterminated` is told the scanner and how many containers are open.
template <class Open, class Unterminated>
int parse(Pf **pf, const char *filename, Open open, Unterminated unterminated)
{
    const stock::CountedParse counted;
    Pf *top = pf ? target_of(pf) : nullptr;
    if (!top)
        return refuse(EINVAL, filename);

    Window window = open(taken(Kept_buffers.window));
    Scanner scanner(window, top, filename, taken(Kept_buffers.value));
    int result = stock::PF_lex(scanner);
    top->type = PFFILE;
    if (window.error())
        result = refuse(window.error(), filename);
    const int depth = scanner.Lex_level + scanner.unfinished;
    if (depth > 0)
        unterminated(scanner, depth);

    keep(Kept_buffers.window, window.release());
    keep(Kept_buffers.value, {scanner.String_buf, scanner.StringSz});
    return result || depth > 0 ? -2 : 0;
}

void unterminated_string(const Scanner &scanner, int depth, const char *text)
{
    const stock::Owned<char> head(strhead(text, 5, "  --> "));
    elog_log(0,
             "*stack* Unterminated arrays or tables at last line #%d, depth = %d in input string "
             "\n%s\n",
             scanner.Lex_lineno, depth, head.get());
}

}  // namespace

int pfinfd(int fd, Pf **pf)
{
    const char *path = std::exchange(Pffilename, nullptr);
    if (!path)
        path = "*pf filename unknown*";
    return parse(
        pf, path, [fd](Buffer buffer) { return Window(stock::reader_of(fd), buffer); },
        [path](const Scanner &scanner, int depth) {
            elog_log(0,
                     "*stack* Unterminated arrays or tables in parameter file %s at last line #%d: "
                     "depth = %d",
                     path, scanner.Lex_lineno, depth);
        });
}

int pfin(FILE *stream, Pf **pf)
{
    constexpr const char *kName = "*unknown pfin file*";
    if (!stream)
        return refuse(EINVAL, kName);
    return parse(
        pf, kName, [stream](Buffer buffer) { return Window(stock::reader_of(stream), buffer); },
        [](const Scanner &scanner, int depth) {
            elog_log(0,
                     "*stack* Unterminated arrays or tables in input FILE at last line #%d: "
                     "depth = %d",
                     scanner.Lex_lineno, depth);
        });
}

namespace {

constexpr const char *kInternal = "*internal buffer*";

}  // namespace

int pfcompile(const char *text, Pf **pf)
{
    if (!text)
        return refuse(EINVAL, kInternal);
    return parse(
        pf, kInternal,
        [text](Buffer buffer) {
            keep(Kept_buffers.window, buffer);
            return Window(text);
        },
        [text](const Scanner &scanner, int depth) { unterminated_string(scanner, depth, text); });
}

int pfcompile_counted(const char *text, long count, Pf **pf)
{
    if (!text)
        return refuse(EINVAL, kInternal);
    const auto bytes = static_cast<std::size_t>(std::max(count, 0L));
    return parse(
        pf, kInternal, [=](Buffer buffer) { return Window(stock::reader_of(text, bytes), buffer); },
        [=](const Scanner &scanner, int depth) {
            const std::size_t length = strnlen(text, bytes);
            const stock::Owned<char> ended(
                static_cast<char *>(stock::allocate(length + 1, "text", "pfcompile_counted")));
            std::memcpy(ended.get(), text, length);
            ended.get()[length] = 0;
            unterminated_string(scanner, depth, ended.get());
        });
}
