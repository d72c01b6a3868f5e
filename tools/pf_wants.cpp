// Files held to what a program wants of them.
//
// The library does the checking: each value is read by pfwant with a table of one row, so
// that its problem is known to be its own. Lists and tables become rows for each of their
// elements; a row whose value only a function could tell is left out.

#include "pf_wants.h"

#include <cmath>
#include <cstring>
#include <set>
#include <string_view>

#include "pf_tool.h"

namespace {

constexpr std::string_view kMark = "#: ";
constexpr std::string_view kAnyKey = "{*}";

// ---- The lines ----

constexpr struct {
    std::string_view name;
    int kind;
} kKinds[] = {
    {"int", PFWANT_INT},         {"int64", PFWANT_INT64}, {"double", PFWANT_DOUBLE},
    {"boolean", PFWANT_BOOLEAN}, {"text", PFWANT_TEXT},   {"word", PFWANT_WORD},
    {"size", PFWANT_SIZE},       {"time", PFWANT_TIME},   {"duration", PFWANT_DURATION},
    {"list", PFWANT_LIST},       {"table", PFWANT_TABLE}, {"records", PFWANT_RECORDS},
    {"any", PFWANT_ANY},
};

bool is_scalar(int kind)
{
    return kind >= PFWANT_INT && kind <= PFWANT_TIME;
}

bool take(std::string_view &text, std::string_view part)
{
    if (!text.starts_with(part))
        return false;
    text.remove_prefix(part.size());
    return true;
}

// Takes the name of a kind; 0 when there is none.
int take_kind(std::string_view &text)
{
    const std::string_view name = text.substr(0, text.find_first_of(" ,"));
    for (const auto &row : kKinds)
        if (row.name == name) {
            text.remove_prefix(name.size());
            return row.kind;
        }
    return 0;
}

std::optional<double> bound(int kind, std::string_view text)
{
    const std::string copy(text);
    double value = 0;
    if (kind == PFWANT_TIME && is_epoch_string(copy.c_str(), &value))
        return value;
    char *end = nullptr;
    value = fix_strtod(copy.c_str(), &end);
    const std::string_view unit = end;
    if (end == copy.c_str() ||
        !(unit.empty() || unit == " s" || unit == " byte" || unit == " bytes"))
        return {};
    return value;
}

// "LOW to HIGH", "at least LOW", "at most HIGH"
bool read_bounds(std::string_view text, WantedValue &wanted)
{
    const int kind = is_scalar(wanted.kind) ? wanted.kind : wanted.of;
    std::optional<double> low = -INFINITY;
    std::optional<double> high = INFINITY;
    if (take(text, "at least ")) {
        low = bound(kind, text);
    } else if (take(text, "at most ")) {
        high = bound(kind, text);
    } else {
        const size_t to = text.find(" to ");
        if (to == text.npos)
            return false;
        low = bound(kind, text.substr(0, to));
        high = bound(kind, text.substr(to + 4));
    }
    if (!low || !high)
        return false;
    wanted.low = *low;
    wanted.high = *high;
    return true;
}

// What stands behind the address.
bool read_description(std::string_view text, WantedValue &wanted)
{
    wanted.kind = take_kind(text);
    if ((wanted.kind == PFWANT_LIST || wanted.kind == PFWANT_TABLE) &&
        (!take(text, " of ") || !is_scalar(wanted.of = take_kind(text))))
        return false;
    if (take(text, " (")) {
        const size_t close = text.find(')');
        if (close == text.npos)
            return false;
        wanted.words = text.substr(0, close);
        text.remove_prefix(close + 1);
    }
    if (const size_t fallback = text.find(", default "); fallback != text.npos)
        text.remove_suffix(text.size() - fallback);
    constexpr std::string_view kRequired = ", required";
    wanted.is_required = text.ends_with(kRequired);
    if (wanted.is_required)
        text.remove_suffix(kRequired.size());
    const bool is_word = wanted.kind == PFWANT_WORD || wanted.of == PFWANT_WORD;
    if (wanted.kind == 0 || is_word == wanted.words.empty())
        return false;
    return text.empty() || (take(text, ", ") && read_bounds(text, wanted));
}

std::optional<WantedValue> read_line(std::string_view line)
{
    for (size_t colon = line.find(": "); colon != line.npos; colon = line.find(": ", colon + 1)) {
        WantedValue wanted;
        wanted.address = line.substr(0, colon);
        if (colon > 0 && read_description(line.substr(colon + 2), wanted))
            return wanted;
    }
    return {};
}

// ---- The values ----

// The node as it stands, no function evaluated; null when there is none.
const Pf *node_at(const Pf *top, const std::vector<Step> &steps)
{
    const Pf *node = top;
    for (const Step &step : steps) {
        const bool is_table = node->type == PFARR || node->type == PFFILE;
        const void *next = nullptr;
        if (step.index < 0 && is_table)
            next = getarr(node->value.arr, step.key.c_str());
        else if (step.index >= 0 && node->type == PFTBL)
            next = gettbl(node->value.tbl, step.index);
        if (!next)
            return node->type == PFFUNCTION ? node : nullptr;
        node = static_cast<const Pf *>(next);
    }
    return node;
}

bool is_table(const Pf *node)
{
    return node && (node->type == PFARR || node->type == PFFILE);
}

class Values {
public:
    Values(const Sources &sources, const Pf *top) : sources_(sources), top_(top) {}

    std::vector<ValueProblem> check(const std::vector<WantedValue> &wanted)
    {
        for (const WantedValue &value : wanted)
            expand(value);
        keys();
        return std::move(problems_);
    }

private:
    // ---- Rows ----

    void expand(WantedValue value)
    {
        const size_t any = value.address.find(kAnyKey);
        if (any == std::string::npos || any + kAnyKey.size() == value.address.size())
            return row(value);
        // A row for each of the records.
        const std::string table = value.address.substr(0, any);
        const std::string rest = value.address.substr(any + kAnyKey.size());
        const Pf *node = find(table);
        if (!is_table(node))
            return;
        for (const std::string &key : keys_of(node)) {
            std::string record = table;
            record.append("{").append(key).append("}");
            value.address = record;
            value.address += rest;
            if (is_table(find(record)))
                expand(value);
        }
    }

    void row(const WantedValue &value)
    {
        const Pf *node = find(value.address);
        if (value.kind == PFWANT_RECORDS && is_table(node))
            return records(value, node);
        known_.insert(value.address);
        if (value.kind == PFWANT_ANY || (node && node->type == PFFUNCTION))
            return;
        if (!node && !value.is_required && !is_misfit(value.address))
            return;
        WantedValue element = value;
        element.kind = value.of;
        element.is_required = true;
        if (value.kind == PFWANT_LIST && node && node->type == PFTBL) {
            for (int64_t i = 0; i < node->value.tbl->count; ++i) {
                element.address = value.address + "[" + std::to_string(i) + "]";
                single(element);
            }
        } else if (value.kind == PFWANT_TABLE && is_table(node)) {
            for (const std::string &key : keys_of(node)) {
                element.address = value.address + "{" + key + "}";
                single(element);
            }
        } else {
            single(value);
        }
    }

    // Each record is a table; what it holds has rows of its own.
    void records(const WantedValue &value, const Pf *node)
    {
        known_.insert(value.address + "{}");
        for (const std::string &key : keys_of(node)) {
            WantedValue entry = value;
            entry.address = value.address + "{" + key + "}";
            const Pf *record = find(entry.address);
            if (is_table(record))
                continue;
            known_.insert(entry.address);
            entry.kind = PFWANT_TABLE;
            entry.of = PFWANT_TEXT;
            if (record && record->type != PFFUNCTION)
                single(entry);
        }
    }

    // Holds one value to its row.
    void single(const WantedValue &value)
    {
        const auto steps = parse_address(value.address.c_str());
        if (!steps)
            return;
        const PlacedValue place = find_place(sources_, *steps);
        const Pf *node = node_at(top_, *steps);
        if (node && node->type == PFFUNCTION)
            return;
        if (place.entry && place.entry->kind == SourceEntry::Kind::text &&
            !expanded(sources_, place))
            return;
        int64_t variable = 0;
        // A record is looked into by rows of its own.
        static constexpr Pfwant kRecord[] = {PFWANT_END};
        const Pfwant wants[] = {
            {value.address.c_str(), value.kind, value.of, &variable, value.words.c_str(), kRecord,
             1, PFWANT_REQUIRED, value.low, value.high, nullptr},
            {"*", PFWANT_ANY(), nullptr, 0, 0, nullptr},
            PFWANT_END,
        };
        for (std::string &message : told_by(wants))
            add(value.address, std::move(message));
        pfwant_free(wants);
    }

    // Tells of keys that nothing wants.
    void keys()
    {
        std::vector<Pfwant> wants;
        for (const std::string &address : known_)
            if (!address.ends_with("{}"))
                wants.push_back({address.c_str(), PFWANT_ANY(), nullptr, 0, 0, nullptr});
        // No row leads into a table of records that has none.
        std::vector<std::string> empty;
        for (const std::string &address : known_) {
            if (!address.ends_with("{}"))
                continue;
            const std::string table = address.substr(0, address.size() - 1);
            if (*known_.lower_bound(table) == address)
                empty.push_back(table.substr(0, table.size() - 1));
        }
        for (const std::string &table : empty)
            wants.push_back({table.c_str(), PFWANT_ANY(), nullptr, 0, 0, nullptr});
        wants.push_back(PFWANT_END);
        for (std::string &message : told_by(wants.data())) {
            const size_t end = message.find(": nothing wants this");
            const std::string address = message.substr(0, end);
            add(end == message.npos ? "" : address, std::move(message));
        }
    }

    // ---- What is told ----

    std::vector<std::string> told_by(const Pfwant *wants)
    {
        std::vector<std::string> messages;
        const int mark = elog_mark();
        pfwant(const_cast<Pf *>(top_), wants);
        const Tbl *log = nullptr;
        elog_query(ELOG_TBL, 0, &log);
        for (int64_t i = mark; log && i < log->count; ++i) {
            std::string text = static_cast<const Elog_msg *>(gettbl(log, i))->msg;
            text.resize(text.size() - text.ends_with('\n'));
            messages.push_back(std::move(text));
        }
        elog_truncate(mark);
        return messages;
    }

    // At the line of the value; of one that is missing that of its table, or the last line.
    void add(std::string address, std::string message)
    {
        while (!address.empty()) {
            const auto steps = parse_address(address.c_str());
            const PlacedValue place = steps ? find_place(sources_, *steps) : PlacedValue();
            if (place.entry) {
                problems_.push_back({place.source, {place.entry->begin, std::move(message)}});
                return;
            }
            const size_t last = address.find_last_of("{[");
            address.resize(last == std::string::npos ? 0 : last);
        }
        const SourceText &last = sources_.back();
        const size_t end = last.text.size();
        problems_.push_back({&last, {end == 0 ? 0 : end - 1, std::move(message)}});
    }

    const Pf *find(const std::string &address) const
    {
        const auto steps = parse_address(address.c_str());
        return steps ? node_at(top_, *steps) : nullptr;
    }

    // Whether what the value should stand in is there and is no table.
    bool is_misfit(const std::string &address) const
    {
        const size_t last = address.find_last_of("{[");
        if (last == std::string::npos || last == 0)
            return false;
        const Pf *outer = find(address.substr(0, last));
        if (!outer)
            return is_misfit(address.substr(0, last));
        return address[last] == '{' ? !is_table(outer) : outer->type != PFTBL;
    }

    const Sources &sources_;
    const Pf *top_;
    std::set<std::string> known_;  // addresses; with "{}" behind a table of records
    std::vector<ValueProblem> problems_;
};

}  // namespace

std::optional<std::vector<WantedValue>> read_wanted(const std::string &file)
{
    const auto source = read_source(file, OnError::go_on);
    if (!source)
        return {};
    std::vector<WantedValue> wanted;
    int number = 1;
    std::string_view text = source->text;
    for (; !text.empty(); ++number) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        if (!take(line, kMark))
            continue;
        auto value = read_line(line);
        if (!value) {
            elog_complain(0, "%s:%d: this is no line of pfwant_print", file.c_str(), number);
            return {};
        }
        wanted.push_back(std::move(*value));
    }
    if (wanted.empty()) {
        elog_complain(0, "%s: no line begins with '#: ': a program prints them with pfwant_print",
                      file.c_str());
        return {};
    }
    // Defaults may refer to keys that no line has.
    for (const WrittenReference &reference : references_in(source->text)) {
        WantedValue any;
        any.address = reference.name;
        any.kind = PFWANT_ANY;
        wanted.push_back(std::move(any));
    }
    return wanted;
}

std::vector<ValueProblem> check_values(const Sources &sources,
                                       const std::vector<WantedValue> &wanted)
{
    // What is wrong with the text is told by others.
    char delivery[ELOG_FIELD_SIZE] = "";
    char *field = nullptr;
    elog_query(ELOG_DELIVER_FIELD, ELOG_COMPLAIN, &field);
    if (field)
        strcpy(delivery, field);
    elog_set(ELOG_DELIVER_FIELD, ELOG_COMPLAIN, "/dev/null");
    Pf *top = pfnew(PFFILE);
    const PfPtr owner(top);
    for (const SourceText &source : sources)
        pfcompile(source.text.c_str(), &top);
    elog_set(ELOG_DELIVER_FIELD, ELOG_COMPLAIN, delivery);
    elog_clear();
    return Values(sources, top).check(wanted);
}
