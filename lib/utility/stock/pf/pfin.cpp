// Parsing: one text at a time, from a descriptor, a stream or memory.
//
// Each entry point chooses the window over its text, the name of the text in messages, and
// how it reports that the text ended too early; the rest is one function.

#include "stock/pf.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/alloc.h"
#include "pf/parsing.h"
#include "pf/pf_state.h"
#include "pf/pflex.h"
#include "stock/elog.h"
#include "stock/strings.h"

namespace {

using stock::Buffer;
using stock::Kept_buffers;
using stock::Scanned;
using stock::Window;

// The names of texts that have none, for messages.
constexpr const char *kUnknownFile = "*pf filename unknown*";
constexpr const char *kUnknownStream = "*unknown pfin file*";
constexpr const char *kInternal = "*internal buffer*";

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
    top->value.arr->replace = 1;  // set_text then keeps no old key
    top->type = PFARR;
    return top;
}

// Parses the window that `open_window` makes with a buffer. When the text leaves lists,
// tables or literals open, `report_open` is called with the result of the scan.
template <class OpenWindow, class ReportOpen>
int parse(Pf **pf, const char *filename, OpenWindow open_window, ReportOpen report_open)
{
    const stock::CountedParse counted;
    Pf *top = pf ? target_of(pf) : nullptr;
    if (!top)
        return refuse(EINVAL, filename);

    Window window = open_window(take_kept(Kept_buffers.window));
    Buffer value = take_kept(Kept_buffers.value);
    const Scanned scanned = scan_into_tree(window, top, filename, value);
    top->type = PFFILE;
    if (window.error()) {
        stock::Read_failed = true;
        refuse(window.error(), filename);
    }
    if (scanned.open > 0)
        report_open(scanned);

    keep(Kept_buffers.window, window.release());
    keep(Kept_buffers.value, value);
    return scanned.refused || window.error() || scanned.open > 0 ? -2 : 0;
}

// Reports what a text in memory leaves open, with the text's first five lines.
void report_open_string(const Scanned &scanned, const char *text)
{
    const stock::Owned<char> head(strhead(text, 5, "  --> "));
    elog_log(0,
             "*stack* Unterminated arrays or tables at last line #%d, depth = %d in input string "
             "\n%s\n",
             scanned.line, scanned.open, head.get());
}

}  // namespace

int pfinfd(int fd, Pf **pf)
{
    const char *path = std::exchange(Pffilename, nullptr);
    if (!path)
        path = kUnknownFile;
    return parse(
        pf, path, [fd](Buffer buffer) { return Window(stock::reader_of(fd), buffer); },
        [path](const Scanned &scanned) {
            elog_log(0,
                     "*stack* Unterminated arrays or tables in parameter file %s at last line #%d: "
                     "depth = %d",
                     path, scanned.line, scanned.open);
        });
}

int pfin(FILE *stream, Pf **pf)
{
    if (!stream)
        return refuse(EINVAL, kUnknownStream);
    return parse(
        pf, kUnknownStream,
        [stream](Buffer buffer) { return Window(stock::reader_of(stream), buffer); },
        [](const Scanned &scanned) {
            elog_log(0,
                     "*stack* Unterminated arrays or tables in input FILE at last line #%d: "
                     "depth = %d",
                     scanned.line, scanned.open);
        });
}

int pfcompile(const char *text, Pf **pf)
{
    if (!text)
        return refuse(EINVAL, kInternal);
    return parse(
        pf, kInternal,
        [text](Buffer buffer) {
            keep(Kept_buffers.window, buffer);  // the text is its own window
            return Window(text);
        },
        [text](const Scanned &scanned) { report_open_string(scanned, text); });
}

int pfcompile_counted(const char *text, long count, Pf **pf)
{
    if (!text)
        return refuse(EINVAL, kInternal);
    const auto bytes = static_cast<std::size_t>(std::max(count, 0L));
    return parse(
        pf, kInternal, [=](Buffer buffer) { return Window(stock::reader_of(text, bytes), buffer); },
        [=](const Scanned &scanned) {
            // strhead needs a text that ends with a zero byte.
            const std::size_t length = strnlen(text, bytes);
            const stock::Owned<char> ended(
                static_cast<char *>(stock::allocate(length + 1, "text", "pfcompile_counted")));
            std::memcpy(ended.get(), text, length);
            ended.get()[length] = 0;
            report_open_string(scanned, ended.get());
        });
}
