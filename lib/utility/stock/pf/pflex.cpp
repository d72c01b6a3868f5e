// Parameter text becomes a tree: the sink of the scanner that makes nodes.
//
// The scanner (pf/scan.h) knows the grammar. The sink stores each value under the last key
// or at the end of the innermost list, reports what is wrong, and stops at a syntax error.

#include "pf/pflex.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "arrays/node.h"
#include "base/alloc.h"
#include "pf/node.h"
#include "pf/scan.h"
#include "stock/elog.h"
#include "stock/strings.h"

namespace stock {

namespace {

// Out of memory is reported with this function's name.
constexpr char kFunction[] = "PF_lex";

char *copied(std::string_view text, const char *item)
{
    char *copy = static_cast<char *>(allocate(text.size() + 1, item, kFunction));
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = 0;
    return copy;
}

// Stores values in a table and what is in it. It owns nothing: the nodes belong to the table,
// and the buffer to the caller.
class TreeSink {
public:
    using Value = Pf *;

    TreeSink(Pf *table, const char *filename, Buffer &buffer)
        : container_(table), filename_(filename), buffer_(buffer)
    {
    }
    TreeSink(const TreeSink &) = delete;
    TreeSink &operator=(const TreeSink &) = delete;

    // How many lists, tables and literals the text has left open.
    int left_open() const { return open_ + unfinished_; }

    bool in_list() const { return container_->type == PFTBL; }
    int open_containers() const { return open_; }

    static void token() {}
    static void taken(const char *, const char *) {}
    void key(std::string_view key) { key_ = key; }

    // ---- Values ----

    static Pf *no_text() { return new_text("", kFunction); }
    static Pf *literal(std::string_view text, std::size_t) { return new_text(text, kFunction); }

    static Pf *plain_text(std::string_view text, std::size_t, bool may_hold_mark)
    {
        Pf *pf = new_text(text, kFunction);
        if (may_hold_mark)
            complain_of_mark(pf->value.s);
        return pf;
    }

    // A function that names a file keeps in its hook which file it stands in: a relative path
    // is seen from there.
    Pf *function(std::string_view text, bool names_file) const
    {
        Pf *pf = pfnew(PFFUNCTION);
        Pffunction *record = pf->value.pffunct;
        record->text = copied(text, "pf->value.pffunct->text");
        if (names_file) {
            record->hook = new_hook(std::free);
            record->hook->pvt = copied(filename_, "filename");
        }
        return pf;
    }

    void store(Pf *pf, int line)
    {
        pf->parent = container_;
        if (in_list())
            pushtbl(container_->value.tbl, pf);
        else if (Pf *old = set_in_table(pf))
            replace(old, line);
    }

    void undefine()
    {
        // poptbl would leave the freed node in its slot, for a later settbl to bring back.
        void *removed = in_list() ? deltbl(container_->value.tbl, container_->value.tbl->count - 1)
                                  : delarr(container_->value.arr, key_.data());
        pffree(static_cast<Pf *>(removed));
    }

    // ---- Containers ----

    void open(ContainerKind kind, int line)
    {
        Pf *pf = pfnew(kind == ContainerKind::list ? PFTBL : PFARR);
        store(pf, line);
        outer_[static_cast<std::size_t>(open_++)] = container_;
        container_ = pf;
    }

    void close() { container_ = outer_[static_cast<std::size_t>(--open_)]; }

    // ---- A value with escapes ----

    void start_gathering()
    {
        gathered_ = 0;
        make_room(1);
    }

    void gather(std::string_view text)
    {
        make_room(gathered_ + text.size());
        std::memcpy(buffer_.bytes + gathered_, text.data(), text.size());
        gathered_ += text.size();
    }

    std::string_view gathered() const { return {buffer_.bytes, gathered_}; }

    // ---- What is wrong ----

    static void newline_missing() {}
    static void end_mark() {}
    void unfinished_literal() { unfinished_ = true; }

    bool stray_brace(int line) const
    {
        elog_log(0, "*stack* invalid right brace at line #%d in pf file %s", line, filename_);
        return false;
    }

    bool too_deep(int line) const
    {
        elog_log(0, "*stack* too many Lex_levels of nesting at line #%d in pf file %s", line,
                 filename_);
        return false;
    }

private:
    static void complain_of_mark(const char *text)
    {
        const std::string_view mark = swallowed_mark(text);
        if (mark == kListMark)
            elog_complain(0, "value contains '&Tbl{'\n\t'%s'\n", text);
        // Meant: a swallowed "&Literal{" is called an '&Arr{' as well.
        else if (!mark.empty())
            elog_complain(0, "value contains '&Arr{'\n\t'%s'\n", text);
    }

    // Stores the value under the last key. Gives the value that the key had, or null.
    Pf *set_in_table(Pf *pf) const
    {
        const auto allocate_part = [](std::size_t bytes, const char *item) {
            return allocate(bytes, item, kFunction);
        };
        return static_cast<Pf *>(set_text(container_->value.arr, key_, pf, allocate_part));
    }

    void replace(Pf *old, int line) const
    {
        if (Pf_show_replacements)
            fprintf(stderr, "replacing key '%s' at line #%d of %s\n", key_.data(), line, filename_);
        pffree(old);
    }

    // Makes the buffer at least that large. Sizes are powers of two, so that a long value is
    // copied a bounded number of times.
    void make_room(std::size_t size)
    {
        if (size <= buffer_.size)
            return;
        buffer_.size = std::bit_ceil(std::max<std::size_t>(size, 128));
        buffer_.bytes = static_cast<char *>(
            reallocate(buffer_.bytes, buffer_.size, "String_buf", "fix_String_buf"));
    }

    Pf *container_;                                 // the innermost open one
    std::array<Pf *, kMaxOpenContainers> outer_{};  // those around it
    int open_ = 0;                                  // how many of them
    bool unfinished_ = false;                       // a literal reached the end of the text
    std::string_view key_ = "";                     // the last one; a zero byte stands behind it
    const char *filename_;
    Buffer &buffer_;
    std::size_t gathered_ = 0;  // bytes in buffer_
};

}  // namespace

Scanned scan_into_tree(Window &text, Pf *table, const char *filename, Buffer &buffer)
{
    TreeSink sink(table, filename, buffer);
    TextScanner scanner(text, sink);
    const bool complete = scanner.scan();
    return {!complete, scanner.line(), sink.left_open()};
}

}  // namespace stock
