// Declared parameters, read from a tree as a whole or not at all.
//
// Every value of a table is first read into a place of its own. When there was no
// problem, the variables take these values and what they owned is freed; otherwise what
// was read is.

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/fixed_text.h"
#include "pf/node.h"
#include "pf/parsing.h"
#include "pf/want.h"
#include "stock/elog.h"
#include "text/references.h"

namespace stock::want {

namespace {

constexpr const char *kAlwaysKnown = "pf_revision_time";  // of pfrequire

bool is_table(const Pf *pf)
{
    return pf->type == PFFILE || pf->type == PFARR;
}

// A value as it was found, its function evaluated and its references expanded.
struct Found {
    int type;          // of the node; PFINVALID without one
    const char *text;  // of a PFSTRING, and of what failed; borrowed
    Pf *node;
};

Found found(Pf *node)
{
    if (!node || node->type == PFANY || node->type == PFUNDEF)
        return {PFINVALID, nullptr, nullptr};
    switch (node->type) {
    case PFSTRING: return {PFSTRING, pfexpand(node), node};
    case PFINVALID:
    case PFEXEC_ERROR: return {node->type, node->value.s, node};
    default: return {node->type, nullptr, node};
    }
}

// The same, and evaluates a function.
Found evaluated(Pf *node)
{
    return found(node && node->type == PFFUNCTION ? pfinterpret(node) : node);
}

// A child of a list or table, by an index or a key.
Found child(Pf *container, const char *key)
{
    void *value = nullptr;
    const int type = pfget(container, key, &value);
    if (type == PFSTRING)
        return {PFSTRING, static_cast<const char *>(value), nullptr};
    return found(static_cast<Pf *>(value));
}

// ---- Defaults ----

// The text of a default as it would stand in a file.
Pf *parsed_default(const Pfwant &row)
{
    GrowingText text(0, "default", "pfwant");
    text.add("value ");
    if (is_scalar(row.kind)) {
        const Owned<char> written(str2pf(row.fallback));
        text.add(written.get());
        text.add("\n");
    } else {
        text.add(row.kind == PFWANT_LIST ? "&Tbl{\n" : "&Arr{\n");
        text.add(row.fallback);
        text.add(*row.fallback ? "\n}\n" : "}\n");
    }
    Pf *tree = nullptr;
    pfcompile(text.c_str(), &tree);
    auto *value = static_cast<Pf *>(delarr(tree->value.arr, "value"));
    pffree(tree);
    return value;
}

// Puts the defaults of single values into a table for its scope, where it has no such key:
// the values of the file may refer to them, and they to each other.
class Defaults {
public:
    Defaults(const Pfwant *wants, Pf *table) : wants_(wants), table_(table)
    {
        for (const Pfwant *row = wants; row->address; ++row)
            if (stands_in(*row) && !getarr(table->value.arr, row->address))
                put(*row);
    }
    ~Defaults()
    {
        for (const Pfwant *row = wants_; row->address; ++row)
            if (stands_in(*row) && is_default(table_, row->address))
                pffree(static_cast<Pf *>(delarr(table_->value.arr, row->address)));
    }
    Defaults(const Defaults &) = delete;
    Defaults &operator=(const Defaults &) = delete;

    static bool is_default(const Pf *table, const char *key)
    {
        const auto *node = static_cast<const Pf *>(getarr(table->value.arr, key));
        return node && node->filename == kMark;
    }

private:
    static constexpr char kMark[] = "default";

    static bool stands_in(const Pfwant &row)
    {
        return row.fallback && is_scalar(row.kind) && !std::strpbrk(row.address, "{}[]");
    }

    void put(const Pfwant &row)
    {
        Pf *value = parsed_default(row);
        if (!value)
            return;
        value->parent = table_;
        value->filename = kMark;
        setarr(table_->value.arr, row.address, value);
        if (getarr(table_->value.arr, row.address) != value)
            out_of_memory(std::strlen(row.address) + 1, "key", "pfwant");
    }

    const Pfwant *wants_;
    Pf *table_;
};

// ---- Reading ----

class Reader {
public:
    explicit Reader(Pf *pf) : pf_(pf), problems_(pf) {}

    Problems &problems() { return problems_; }

    // Reads a row's value in a table into `to`. `prefix` is the address of the table.
    void row(const Pfwant &row, Pf *table, std::string_view prefix, void *to)
    {
        if (row.kind == PFWANT_ANY)
            return;
        GrowingText address(0, "address", "pfwant");
        add_address(address, prefix, row.address);
        Pf *node = nullptr;
        const int type = pfresolve(table, row.address, 0, &node);
        const Found value = found(node);
        if (type == kMisfit)
            return problem(address.view(), "is missing: what it should stand in is no table");
        const bool is_missing = value.type == PFINVALID && !value.text;
        if (!is_missing) {
            in_default_ = Defaults::is_default(table, row.address);
            read(row, value, address.view(), to);
            in_default_ = false;
            return;
        }
        if (row.fallback)
            return read_default(row, address.view(), to);
        GrowingText text(0, "problem", "pfwant");
        text.add("is missing (");
        text.add(kind_noun(row.kind));
        text.add(")");
        problem(address.view(), text.view());
    }

    // Tells of keys that nothing wants. `inner` is the address of the table as the rows
    // have it, `prefix` as messages do.
    void unknown_keys(const Pfwant *wants, Pf *table, std::string_view inner,
                      std::string_view prefix)
    {
        if (!table || !is_table(table))
            return;
        Tbl *keys = keysarr(table->value.arr);
        for (int64_t i = 0; i < keys->count; ++i) {
            const auto *key = static_cast<const char *>(gettbl(keys, i));
            GrowingText address(0, "address", "pfwant");
            GrowingText shown(0, "address", "pfwant");
            add_key(address, inner, key);
            add_key(shown, prefix, key);
            switch (wanted(wants, inner, address.view(), key)) {
            case Wanted::no: unknown_key(wants, inner, prefix, key); break;
            case Wanted::inside:
                unknown_keys(wants, static_cast<Pf *>(getarr(table->value.arr, key)),
                             address.view(), shown.view());
                break;
            case Wanted::yes: break;
            }
        }
        freetbl(keys, nullptr);
    }

private:
    static constexpr int kMisfit = -32;  // of pfresolve

    enum class Wanted { no, inside, yes };

    void problem(std::string_view address, std::string_view text)
    {
        if (!in_default_)
            return problems_.add(address, text);
        GrowingText message(0, "problem", "pfwant");
        message.add("the program's default of ");
        message.add(address);
        message.add(": ");
        message.add(text);
        problems_.add(message.view());
    }

    // ---- Values ----

    void read(const Pfwant &row, const Found &value, std::string_view address, void *to)
    {
        switch (row.kind) {
        case PFWANT_LIST: return list(row, value, address, to);
        case PFWANT_TABLE:
        case PFWANT_RECORDS: return entries(row, value, address, to);
        default: return scalar(scalar_of(row), value, address, to);
        }
    }

    void scalar(const Scalar &scalar, const Found &value, std::string_view address, void *to)
    {
        if (value.type != PFSTRING)
            return wrong_type(kind_noun(scalar.kind), value, address);
        const char *text = value.text ? value.text : "";
        if (scalar.kind == PFWANT_TEXT && is_of_windows(text)) {
            GrowingText message(0, "problem", "pfwant");
            message.add("'");
            add_shown(message, text);
            message.add("' ends in a carriage return");
            return problem(address, message.view());
        }
        const Reading reading = read_scalar(scalar, text, to);
        if (reading == Reading::fine)
            return;
        GrowingText message(0, "problem", "pfwant");
        add_wrong(message, scalar, text, reading);
        problem(address, message.view());
    }

    // Lines that end in "\r\n" leave a "\r" that nobody sees at the end of texts.
    static bool is_of_windows(std::string_view text)
    {
        return text.ends_with('\r') && text.find('\n') == text.npos;
    }

    void wrong_type(const char *noun, const Found &value, std::string_view address)
    {
        GrowingText message(0, "problem", "pfwant");
        if (value.type == PFTBL || value.type == PFARR || value.type == PFFILE) {
            message.add(value.type == PFTBL ? "is a list, not " : "is a table, not ");
            message.add(noun);
        } else if (value.type == PFEXEC_ERROR) {
            message.add("the command failed: '");
            add_shown(message, value.text ? value.text : "");
            message.add("'");
        } else if (value.type == PFSTRING || value.text) {
            message.add("'");
            add_shown(message, value.text ? value.text : "");
            message.add("' is not ");
            message.add(noun);
        } else {
            message.add("is missing (");
            message.add(noun);
            message.add(")");
        }
        problem(address, message.view());
    }

    void list(const Pfwant &row, const Found &value, std::string_view address, void *to)
    {
        if (value.type != PFTBL)
            return wrong_type(kind_noun(row.kind), value, address);
        const bool texts = row.of == PFWANT_TEXT;
        const int64_t count = value.node->value.tbl->count;
        Tbl *list = texts ? newtbl(count)
                          : inittbl(0, count, 1, nullptr, static_cast<int>(kind_size(row.of)));
        std::memcpy(to, &list, sizeof(void *));
        for (int64_t i = 0; i < count; ++i) {
            GrowingText element(0, "address", "pfwant");
            FixedTextOf<32> index;
            index.add('[');
            index.number(i);
            index.add(']');
            add_address(element, address, index.view());
            int64_t space = 0;
            scalar(scalar_of(row), child(value.node, pfindex(i)), element.view(), &space);
            if (texts) {
                char *text = nullptr;
                std::memcpy(&text, &space, sizeof text);
                pushtbl(list, text);
            } else {
                pushtbl(list, &space);
            }
        }
    }

    void entries(const Pfwant &row, const Found &value, std::string_view address, void *to)
    {
        if (value.type != PFARR && value.type != PFFILE)
            return wrong_type(kind_noun(row.kind), value, address);
        Arr *arr = newarr(nullptr);
        std::memcpy(to, &arr, sizeof(void *));
        Tbl *keys = keysarr(value.node->value.arr);
        for (int64_t i = 0; i < keys->count; ++i) {
            const auto *key = static_cast<const char *>(gettbl(keys, i));
            GrowingText entry(0, "address", "pfwant");
            add_key(entry, address, key);
            const Found named = child(value.node, key);
            if (void *block = row.kind == PFWANT_RECORDS ? record(row, named, entry.view())
                                                         : single(row, named, entry.view())) {
                setarr(arr, key, block);
                if (getarr(arr, key) != block)
                    out_of_memory(std::strlen(key) + 1, "key", "pfwant");
            }
        }
        freetbl(keys, nullptr);
    }

    // The value of a table as a block; null when it cannot be read.
    void *single(const Pfwant &row, const Found &value, std::string_view address)
    {
        const int before = problems_.count();
        int64_t space = 0;
        scalar(scalar_of(row), value, address, &space);
        if (problems_.count() != before)
            return nullptr;
        if (row.of == PFWANT_TEXT) {
            void *text = nullptr;
            std::memcpy(&text, &space, sizeof text);
            return text;
        }
        void *block = allocate(kind_size(row.of), "value", "pfwant");
        std::memcpy(block, &space, kind_size(row.of));
        return block;
    }

    void *record(const Pfwant &row, const Found &value, std::string_view address)
    {
        if (value.type != PFARR && value.type != PFFILE) {
            wrong_type(kind_noun(row.kind), value, address);
            return nullptr;
        }
        void *record = allocate_zeroed(row.size, "record", "pfwant");
        const Defaults defaults(row.entries, value.node);
        for (const Pfwant *each = row.entries; each->address; ++each)
            this->row(*each, value.node, address, member(record, *each));
        unknown_keys(row.entries, value.node, "", address);
        return record;
    }

    // The default of what is no single value of the table itself.
    void read_default(const Pfwant &row, std::string_view address, void *to)
    {
        in_default_ = true;
        if (Pf *value = parsed_default(row)) {
            value->parent = pf_;
            read(row, evaluated(value), address, to);
            pffree(value);
        }
        in_default_ = false;
    }

    // ---- Keys ----

    // The address of a key, which may hold anything.
    static void add_key(GrowingText &out, std::string_view table, const char *key)
    {
        out.add(table);
        out.add(table.empty() ? "" : "{");
        out.add(key);
        out.add(table.empty() ? "" : "}");
    }

    static Wanted wanted(const Pfwant *wants, std::string_view inner, std::string_view address,
                         std::string_view key)
    {
        Wanted best = Wanted::no;
        if (key == kAlwaysKnown && inner.empty())
            return Wanted::yes;
        const bool plain = key.find_first_of("{}[]") == key.npos;
        for (const Pfwant *row = wants; row->address; ++row) {
            std::string_view own = row->address;
            if (plain && own == address)
                return Wanted::yes;
            if (plain && own.starts_with(address) &&
                (own[address.size()] == '{' || own[address.size()] == '['))
                best = Wanted::inside;
            if (row->kind == PFWANT_ANY && own.starts_with(inner) &&
                own.substr(inner.size()) == (inner.empty() ? "*" : "{*}"))
                return Wanted::yes;
        }
        return best;
    }

    void unknown_key(const Pfwant *wants, std::string_view inner, std::string_view prefix,
                     const char *key)
    {
        if (is_referred_to(key) || is_in_default(wants, key))
            return;
        GrowingText message(0, "problem", "pfwant");
        message.add("nothing wants this");
        if (const char *meant = similar(wants, inner, key)) {
            message.add("; did you mean '");
            // The rows of a record do not begin with the record's own address.
            const bool within = inner.empty() && !prefix.empty();
            add_address(message, within ? prefix : "", meant);
            message.add("'?");
        }
        GrowingText address(0, "address", "pfwant");
        add_key(address, prefix, key);
        problem(address.view(), message.view());
    }

    static bool is_in_default(const Pfwant *wants, std::string_view key)
    {
        for (; wants->address; ++wants)
            if (refers(wants->fallback, key))
                return true;
        return false;
    }

    // Whether a text of the tree refers to the key, as "&name" or "&{name}".
    bool is_referred_to(std::string_view key) const
    {
        const Pf *top = pf_;
        while (top && top->parent)
            top = top->parent;
        return top && refers(top, key);
    }

    static bool refers(const Pf *node, std::string_view key)
    {
        switch (node->type) {
        case PFSTRING: return refers(node->value.s, key);
        case PFFUNCTION: return refers(node->value.pffunct->text, key);
        case PFTBL:
            for (int64_t i = 0; i < node->value.tbl->count; ++i)
                if (const auto *element = static_cast<Pf *>(gettbl(node->value.tbl, i));
                    element && refers(element, key))
                    return true;
            return false;
        case PFFILE:
        case PFARR: {
            Tbl *values = valsarr(node->value.arr);
            bool does = false;
            for (int64_t i = 0; i < values->count && !does; ++i) {
                const auto *value = static_cast<Pf *>(gettbl(values, i));
                does = value && refers(value, key);
            }
            freetbl(values, nullptr);
            return does;
        }
        default: return false;
        }
    }

    static bool refers(const char *text, std::string_view key)
    {
        const auto is_name = [](char c) { return is_letter_or_digit(c) || c == '_'; };
        for (const char *at = text ? std::strchr(text, '&') : nullptr; at;
             at = std::strchr(at + 1, '&'))
            if (reference_at(at, is_name).name == key)
                return true;
        return false;
    }

    Pf *pf_;
    Problems problems_;
    bool in_default_ = false;
};

// ---- The table ----

// What is wrong with a row itself, or null.
const char *mistake_of(const Pfwant &row)
{
    const bool container = row.kind == PFWANT_LIST || row.kind == PFWANT_TABLE;
    if (!kind_name(row.kind))
        return "has no kind";
    if (container && !is_scalar(row.of))
        return "is a list or table of no kind";
    if (scalar_of(row).kind == PFWANT_WORD && !row.words)
        return "has no words";
    if (row.kind == PFWANT_RECORDS && (!row.entries || row.size == 0))
        return "has no rows for its records";
    if (std::isnan(row.low) || std::isnan(row.high) ||
        (row.low > row.high && !(row.high == 0 && row.low > 0)))
        return "has bounds that nothing is between";
    return nullptr;
}

// A default that refers to other values is known only in a tree.
bool is_bad_default(const Pfwant &row)
{
    if (!row.fallback || !is_scalar(row.kind) || std::strchr(row.fallback, '&'))
        return false;
    int64_t space = 0;
    const bool is_bad = read_scalar(scalar_of(row), row.fallback, &space) != Reading::fine;
    if (row.kind == PFWANT_TEXT)
        free_value(row, &space);
    return is_bad;
}

// `depth` is how many tables of records are around the rows, which may hold themselves.
void check_rows(const Pfwant *wants, Problems &problems, int depth)
{
    for (const Pfwant *row = wants; row->address; ++row) {
        const char *mistake = mistake_of(*row);
        if (!mistake && depth == 0 && !row->value && row->kind != PFWANT_ANY)
            mistake = "has no variable";
        if (!mistake && is_bad_default(*row))
            mistake = "has a default that it would refuse";
        if (mistake) {
            GrowingText message(0, "problem", "pfwant");
            message.add("the program's row '");
            message.add(row->address);
            message.add("' ");
            message.add(mistake);
            problems.add(message.view());
        } else if (row->kind == PFWANT_RECORDS && depth < kMaxOpenContainers) {
            check_rows(row->entries, problems, depth + 1);
        }
    }
}

// ---- Changes ----

void tell_change(std::string_view address, std::string_view before, std::string_view after)
{
    if (room_on_log() <= 0)
        return;
    GrowingText message(0, "message", "pffollow");
    add_shown(message, address);
    message.add(": ");
    message.add(before);
    message.add(" -> ");
    message.add(after);
    elog_log(0, "%s", message.c_str());
}

void tell_change(const Pfwant &row, std::string_view address, const void *before,
                 const void *after);

// Tells of each member of a record that changed.
void tell_members(const Pfwant *rows, std::string_view address, const void *before,
                  const void *after)
{
    for (; rows->address; ++rows) {
        if (is_equal(*rows, member(before, *rows), member(after, *rows)))
            continue;
        GrowingText inner(0, "address", "pffollow");
        add_address(inner, address, rows->address);
        tell_change(*rows, inner.view(), member(before, *rows), member(after, *rows));
    }
}

// Tells of each entry that a table has no more, has got, or has another value of.
void tell_entries(const Pfwant &row, std::string_view address, const Arr *before, const Arr *after)
{
    // An entry by itself is what a row for it would be.
    Pfwant entry = row;
    entry.kind = row.of;
    const auto each = [&](const Arr *from, bool only_gone) {
        Tbl *names = keysarr(from);
        for (int64_t i = 0; i < names->count; ++i) {
            const auto *name = static_cast<const char *>(gettbl(names, i));
            void *const old = getarr(before, name);
            void *const now = getarr(after, name);
            GrowingText inner(0, "address", "pffollow");
            add_address(inner, address, name);
            if (only_gone && now)
                continue;
            if (row.kind != PFWANT_RECORDS) {
                const void *a = old ? element_at(row.of, old) : nullptr;
                const void *b = now ? element_at(row.of, now) : nullptr;
                if (!a || !b || !is_equal(entry, a, b))
                    tell_change(entry, inner.view(), a, b);
            } else if (old && now) {
                tell_members(row.entries, inner.view(), old, now);
            } else {
                GrowingText text(0, "message", "pffollow");
                add_record(text, row.entries, old ? old : now);
                tell_change(inner.view(), old ? text.view() : "none", now ? text.view() : "none");
            }
        }
        freetbl(names, nullptr);
    };
    each(before, true);
    each(after, false);
}

// Null is a value that is not there.
void tell_change(const Pfwant &row, std::string_view address, const void *before, const void *after)
{
    if (before && after && (row.kind == PFWANT_TABLE || row.kind == PFWANT_RECORDS))
        return tell_entries(row, address, *static_cast<Arr *const *>(before),
                            *static_cast<Arr *const *>(after));
    GrowingText old(0, "message", "pffollow");
    GrowingText now(0, "message", "pffollow");
    if (before)
        add_value(old, row, before);
    if (after)
        add_value(now, row, after);
    tell_change(address, before ? old.view() : "none", after ? now.view() : "none");
}

// ---- All or nothing ----

struct FreeTree {
    void operator()(Pf *pf) const { pffree(pf); }
};
using TemporaryTree = std::unique_ptr<Pf, FreeTree>;

// Where each row's value is kept until the variables take it.
class Staged {
public:
    explicit Staged(const Pfwant *wants) : wants_(wants)
    {
        std::size_t rows = 0;
        while (wants[rows].address)
            ++rows;
        values_.reset(static_cast<int64_t *>(
            allocate_zeroed((rows + 1) * sizeof(int64_t), "values", "pfwant")));
    }
    ~Staged()
    {
        for (std::size_t i = 0; wants_[i].address; ++i)
            if (is_owner(wants_[i].kind))
                free_value(wants_[i], at(i));
    }
    Staged(const Staged &) = delete;
    Staged &operator=(const Staged &) = delete;

    void *at(std::size_t i) { return values_.get() + i; }

    // Gives the variables the values that differ from theirs; what they had is freed with
    // this. Tells and counts the changes when `changes` is not null.
    void take(int *changes)
    {
        for (std::size_t i = 0; wants_[i].address; ++i) {
            const Pfwant &row = wants_[i];
            if (row.kind == PFWANT_ANY)
                continue;
            void *old = nullptr;
            if (is_owner(row.kind))
                std::memcpy(&old, row.value, sizeof old);
            const bool is_new = is_owner(row.kind) && !old;
            if (!is_new && is_equal(row, row.value, at(i)))
                continue;
            if (changes) {
                ++*changes;
                tell_change(row, row.address, is_new ? nullptr : row.value, at(i));
            }
            int64_t value = 0;
            const std::size_t size = kind_size(row.kind);
            std::memcpy(&value, at(i), size);
            std::memcpy(at(i), row.value, size);
            std::memcpy(row.value, &value, size);
        }
    }

private:
    const Pfwant *wants_;
    Owned<int64_t> values_;
};

}  // namespace

int read_wants(Pf *pf, const Pfwant *wants, int *changes)
{
    const TemporaryTree none(pf ? nullptr : pfnew(PFFILE));
    if (!pf)
        pf = none.get();
    if (!is_table(pf)) {
        elog_log(0, "pfwant: the tree is no table");
        return -1;
    }
    Reader reader(pf);
    check_rows(wants, reader.problems(), 0);
    if (reader.problems().count() > 0) {
        reader.problems().finish();
        return -1;
    }
    Staged staged(wants);
    const Defaults defaults(wants, pf);
    for (std::size_t i = 0; wants[i].address; ++i)
        reader.row(wants[i], pf, "", staged.at(i));
    reader.unknown_keys(wants, pf, "", "");
    reader.problems().finish();
    if (reader.problems().count() > 0)
        return -1;
    staged.take(changes);
    return 0;
}

}  // namespace stock::want
