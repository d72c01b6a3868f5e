// A table of declared parameters as the parameter file that gives every value its default.
//
// The lines "#: ADDRESS: KIND, BOUNDS, required" say what the table says; the tool reads
// them back (tools/pf_wants.cpp). Rows whose addresses lead into one table stand in it.

#include "stock/pfwant.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "base/alloc.h"
#include "pf/want.h"

namespace stock::want {

namespace {

constexpr std::size_t kKeyColumn = 16;  // values stand behind it

// A row's address in the table that is written: "mm" of "limits{north}{mm}" in limits{north}.
struct Step {
    std::string_view key;
    std::string_view rest;
};

Step step_of(std::string_view address, std::string_view table)
{
    address.remove_prefix(table.size());
    if (!table.empty()) {
        const std::size_t close = std::min(address.find('}'), address.size() - 1);
        return {address.substr(1, close - 1), address.substr(close + 1)};
    }
    const std::size_t end = std::min(address.find_first_of("{["), address.size());
    return {address.substr(0, end), address.substr(end)};
}

bool lies_in(std::string_view address, std::string_view table)
{
    return table.empty() ||
           (address.starts_with(table) && address.substr(table.size()).starts_with('{'));
}

class Printer {
public:
    Printer() : out_(0, "text", "pfwant_print") {}

    std::string_view text() const { return out_.view(); }

    void table(const Pfwant *wants, std::string_view table, int level)
    {
        const char *before = "";
        for (const Pfwant *row = wants; row->address; ++row) {
            if (!lies_in(row->address, table))
                continue;
            const Step step = step_of(row->address, table);
            const bool leads_on = step.rest.starts_with('{');
            if (leads_on && !is_first(wants, row, table, step.key))
                continue;
            out_.add(std::exchange(before, "\n"));
            if (!leads_on) {
                description(*row, row->address, level);
                if (row->kind != PFWANT_ANY && step.rest.empty())
                    value(*row, step.key, level);
            } else {
                const std::size_t length =
                    static_cast<std::size_t>(step.rest.data() - row->address);
                key(step.key, level);
                out_.add("&Arr{\n");
                this->table(wants, std::string_view(row->address).substr(0, length), level + 1);
                indent(level);
                out_.add("}\n");
            }
        }
    }

private:
    // Whether no row before this one leads into the same table.
    static bool is_first(const Pfwant *wants, const Pfwant *row, std::string_view table,
                         std::string_view key)
    {
        for (; wants != row; ++wants)
            if (lies_in(wants->address, table)) {
                const Step step = step_of(wants->address, table);
                if (step.key == key && step.rest.starts_with('{'))
                    return false;
            }
        return true;
    }

    void indent(int level)
    {
        while (level-- > 0)
            out_.add("    ");
    }

    // The lines of comment. The default of a row of a record stands nowhere else.
    void description(const Pfwant &row, std::string_view address, int level, bool of_record = false)
    {
        if (row.about && *row.about) {
            indent(level);
            out_.add("# ");
            add_shown(out_, row.about);
            out_.add("\n");
        }
        indent(level);
        out_.add("#: ");
        out_.add(address);
        out_.add(": ");
        kind(row);
        const Scalar scalar = scalar_of(row);
        GrowingText bounds(0, "bounds", "pfwant_print");
        if (is_scalar(scalar.kind) && add_bounds(bounds, scalar)) {
            out_.add(", ");
            out_.add(bounds.view());
        }
        if (!row.fallback && row.kind != PFWANT_ANY)
            out_.add(", required");
        if (of_record && row.fallback && *row.fallback) {
            out_.add(", default ");
            add_shown(out_, row.fallback);
        }
        out_.add("\n");
        if (row.kind == PFWANT_RECORDS)
            for (const Pfwant *entry = row.entries; entry->address; ++entry) {
                GrowingText inner(0, "address", "pfwant_print");
                GrowingText whole(0, "address", "pfwant_print");
                add_address(inner, address, "*");
                add_address(whole, inner.view(), entry->address);
                if (entry->kind != PFWANT_RECORDS || level < 12)
                    description(*entry, whole.view(), level, true);
            }
    }

    void kind(const Pfwant &row)
    {
        out_.add(kind_name(row.kind));
        if (row.kind == PFWANT_LIST || row.kind == PFWANT_TABLE) {
            out_.add(" of ");
            out_.add(kind_name(row.of));
        }
        if (scalar_of(row).kind == PFWANT_WORD) {
            const char *before = " (";
            std::string_view words = row.words;
            for (std::string_view word = next_word(words); !word.empty(); word = next_word(words)) {
                out_.add(before);
                out_.add(word);
                before = " ";
            }
            out_.add(")");
        }
    }

    void key(std::string_view key, int level)
    {
        indent(level);
        const bool plain = key.find_first_of(" \t#{}\\\"'") == key.npos;
        const char *quote = plain ? "" : key.find('"') == key.npos ? "\"" : "'";
        out_.add(quote);
        out_.add(key);
        out_.add(quote);
        for (std::size_t i = key.size() + (plain ? 0 : 2); i < kKeyColumn - 1; ++i)
            out_.add(" ");
        out_.add(" ");
    }

    void value(const Pfwant &row, std::string_view name, int level)
    {
        if (!row.fallback)
            out_.add("#");
        key(name, level);
        if (is_scalar(row.kind)) {
            if (row.fallback) {
                const Owned<char> written(str2pf(row.fallback));
                out_.add(written.get());
            }
            return out_.add("\n");
        }
        out_.add(row.kind == PFWANT_LIST ? "&Tbl{\n" : "&Arr{\n");
        if (row.fallback)
            lines(row.fallback, level + 1);
        out_.add(row.fallback ? "" : "#");
        indent(level);
        out_.add("}\n");
    }

    // A literal is not moved.
    void lines(std::string_view text, int level)
    {
        const bool as_they_are = text.find('&') != text.npos;
        while (!text.empty()) {
            const std::size_t end = std::min(text.find('\n'), text.size());
            indent(as_they_are ? 0 : level);
            out_.add(text.substr(0, end));
            out_.add("\n");
            text.remove_prefix(std::min(end + 1, text.size()));
        }
    }

    GrowingText out_;
};

}  // namespace

}  // namespace stock::want

int pfwant_print(const Pfwant *wants, FILE *stream)
{
    if (!wants || !stream)
        return -1;
    stock::want::Printer printer;
    printer.table(wants, "", 0);
    const std::string_view text = printer.text();
    if (!text.empty())
        std::fwrite(text.data(), 1, text.size(), stream);
    return 0;
}
