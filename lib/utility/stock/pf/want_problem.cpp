// Problems of declared parameters: where a value stands, and which key may have been meant.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/descriptor.h"
#include "base/fixed_text.h"
#include "base/guards.h"
#include "base/limits.h"
#include "base/uninterrupted.h"
#include "log/reasons.h"
#include "pf/want.h"
#include "stock/elog.h"

namespace stock::want {

namespace {

constexpr int kMostTold = 20;   // problems of one reading
constexpr int kSpareOnLog = 5;  // messages that others may still log

bool find_place(const char *name, const char *address, char *path, int *line)
{
    // What it logs of a value that is not there is of no interest.
    Reasons reasons;
    const bool found = pfwhere(name, address, path, line) == 0;
    const Owned<char> taken = reasons.take();
    return found;
}

// The number of the last line of a file; 1 of one that is empty or cannot be read.
int last_line(const char *path)
{
    const KeepErrno keep;
    const Fd fd(beyond_standard(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)));
    char chunk[4096];
    char last = '\n';
    int lines = 0;
    ssize_t got = 0;
    while (fd.get() >= 0 &&
           (got = uninterrupted([&] { return read(fd.get(), chunk, sizeof chunk); })) > 0) {
        lines += static_cast<int>(std::count(chunk, chunk + got, '\n'));
        last = chunk[got - 1];
    }
    return std::max(lines + (last != '\n'), 1);
}

// The key under which a table has a child; null when it is in a list.
const char *key_of(const Pf *child)
{
    const Pf *parent = child->parent;
    if (parent->type != PFARR && parent->type != PFFILE)
        return nullptr;
    const char *key = nullptr;
    Tbl *keys = keysarr(parent->value.arr);
    for (int64_t i = 0; i < keys->count && !key; ++i) {
        const auto *name = static_cast<const char *>(gettbl(keys, i));
        if (getarr(parent->value.arr, name) == child)
            key = name;
    }
    freetbl(keys, nullptr);
    return key;
}

// Adds the address of a node in its tree.
void add_address_of(GrowingText &out, const Pf *node)
{
    if (!node->parent)
        return;
    add_address_of(out, node->parent);
    if (const char *key = key_of(node)) {
        GrowingText whole(0, "address", "pfwant");
        add_address(whole, out.view(), key);
        out.add(whole.view().substr(out.size()));
        return;
    }
    const Tbl *list = node->parent->value.tbl;
    for (int64_t i = 0; node->parent->type == PFTBL && i < list->count; ++i)
        if (gettbl(list, i) == node) {
            FixedTextOf<32> index;
            index.add('[');
            index.number(i);
            index.add(']');
            out.add(index.view());
        }
}

// ---- What may have been meant ----

constexpr std::size_t kMostSimilar = 63;  // bytes of a name that is compared

// How many letters must be put in, left out, changed or swapped with their neighbours.
int distance(std::string_view a, std::string_view b)
{
    using Row = std::array<int, kMostSimilar + 1>;
    std::array<Row, 3> rows{};
    if (a.size() > kMostSimilar || b.size() > kMostSimilar)
        return INT32_MAX;
    for (std::size_t j = 0; j <= b.size(); ++j)
        rows[0][j] = static_cast<int>(j);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        Row &row = rows[i % 3];
        const Row &above = rows[(i + 2) % 3];
        const Row &second = rows[(i + 1) % 3];
        row[0] = static_cast<int>(i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = lower(a[i - 1]) == lower(b[j - 1]);
            row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + !same});
            if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) &&
                lower(a[i - 2]) == lower(b[j - 1]))
                row[j] = std::min(row[j], second[j - 2] + 1);
        }
    }
    return rows[a.size() % 3][b.size()];
}

// The key of an address at the level of a table; empty when it does not lie there.
std::string_view key_in(std::string_view table, std::string_view address)
{
    if (!address.starts_with(table))
        return {};
    address.remove_prefix(table.size());
    if (table.empty())
        return address.substr(0, address.find_first_of("{["));
    if (!address.starts_with('{'))
        return {};
    address.remove_prefix(1);
    return address.substr(0, address.find('}'));
}

std::string_view last_key(std::string_view address)
{
    if (!address.ends_with('}'))
        return address;
    const std::size_t open = address.rfind('{');
    return address.substr(open + 1, address.size() - open - 2);
}

}  // namespace

void add_address(GrowingText &out, std::string_view table, std::string_view address)
{
    out.add(table);
    if (table.empty() || address.starts_with('[') || address.empty())
        return out.add(address);
    const std::size_t end = std::min(address.find_first_of("{["), address.size());
    out.add("{");
    out.add(address.substr(0, end));
    out.add("}");
    out.add(address.substr(end));
}

int room_on_log()
{
    int most = 0;
    elog_query(ELOG_MAXMSG_VALUE, 0, &most);
    return most < 1 ? INT32_MAX : most - elog_mark() - kSpareOnLog;
}

const char *similar(const Pfwant *wants, std::string_view table, std::string_view key)
{
    const char *best = nullptr;
    int least = std::max(static_cast<int>(key.size()) / 3, 1) + 1;
    for (const Pfwant *row = wants; row->address; ++row) {
        const std::string_view wanted = key_in(table, row->address);
        if (wanted.empty() || wanted == "*")
            continue;
        if (const int far = distance(key, wanted); far < least) {
            least = far;
            best = row->address;
        }
    }
    // Or the key itself, but elsewhere.
    for (const Pfwant *row = wants; row->address && !best; ++row)
        if (last_key(row->address) == key)
            best = row->address;
    return best;
}

Problems::Problems(Pf *table) : prefix_(0, "address", "pfwant")
{
    if (!table)
        return;
    const Pf *top = table;
    while (top->parent)
        top = top->parent;
    name_ = top->filename;
    add_address_of(prefix_, table);
}

void Problems::add_place(GrowingText &out, std::string_view address)
{
    GrowingText whole(0, "address", "pfwant");
    add_address(whole, prefix_.view(), address);
    Tbl *files = name_ ? pffiles(name_, 0) : nullptr;
    if (files && files->count > 0) {
        char path[kPathSize] = "";
        int line = 0;
        // What is missing is looked for where its table begins.
        bool found = false;
        GrowingText at(0, "address", "pfwant");
        at.add(whole.view());
        for (std::size_t end = at.size(); !found && end != std::string_view::npos && end > 0;
             end = whole.view().find_last_of("{[", end - 1)) {
            GrowingText part(0, "address", "pfwant");
            part.add(whole.view().substr(0, end));
            found = find_place(name_, part.c_str(), path, &line);
        }
        if (!found) {
            const auto *last = static_cast<const char *>(gettbl(files, files->count - 1));
            std::snprintf(path, sizeof path, "%s", last);
            line = last_line(path);
        }
        FixedTextOf<24> number;
        number.number(line);
        out.add(path);
        out.add(":");
        out.add(number.view());
        out.add(": ");
    }
    freetbl(files, std::free);
    add_shown(out, whole.view());
    out.add(": ");
}

void Problems::add(std::string_view address, std::string_view text)
{
    if (!is_told()) {
        ++count_;
        return;
    }
    GrowingText message(0, "message", "pfwant");
    add_place(message, address);
    message.add(text);
    add(message.view());
}

void Problems::add(std::string_view text)
{
    ++count_;
    if (!is_told())
        return;
    ++told_;
    elog_log(0, "%.*s", static_cast<int>(text.size()), text.data());
}

bool Problems::is_told() const
{
    return told_ < kMostTold && room_on_log() > 0;
}

void Problems::finish()
{
    if (count_ > told_ && told_ > 0)
        elog_log(0, "and %d problems more", count_ - told_);
}

}  // namespace stock::want
