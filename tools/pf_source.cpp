// A parameter file as it is written: the sink of the library's scanner that keeps places.
//
// pf/scan.h knows the grammar. PlaceKeeper counts the bytes that the scanner takes, and
// notes for each value where its key and its text begin and end.

#include "pf_source.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <numeric>

#include <fcntl.h>
#include <unistd.h>

#include "base/ascii.h"
#include "pf/address.h"
#include "pf/scan.h"
#include "stock.h"

namespace {

// The sink of the scanner that keeps a SourceText: every value as a SourceEntry, every slip and
// error as a Problem. `place_` is where the scanner stands.
class PlaceKeeper {
public:
    using Value = SourceEntry;

    PlaceKeeper(SourceText &source, OnError on_error)
        : source_(source), go_on_(on_error == OnError::go_on)
    {
    }
    PlaceKeeper(const PlaceKeeper &) = delete;
    PlaceKeeper &operator=(const PlaceKeeper &) = delete;

    bool in_list() const { return innermost().kind == SourceEntry::Kind::list; }
    int open_containers() const { return static_cast<int>(open_.size()); }

    // ---- Places ----

    void token()
    {
        token_ = place_;
        newline_missing_ = false;
    }

    void taken(const char *from, const char *to) { place_ += static_cast<size_t>(to - from); }

    void key(std::string_view key)
    {
        key_ = key;
        key_begin_ = token_;
        key_end_ = place_;
    }

    // ---- Values ----

    SourceEntry no_text()
    {
        const size_t place = in_list() ? token_ : key_end_;
        SourceEntry empty = entry(SourceEntry::Kind::text, place, place);
        if (empty.key.ends_with('\r') && source_.text[key_end_ - 1] == '\r')
            problem(place, "key '" + key_ + "' ends in a carriage return");
        return empty;
    }

    SourceEntry plain_text(std::string_view text, size_t length, bool)
    {
        SourceEntry plain = entry(SourceEntry::Kind::text, token_, place_ + length);
        plain.text = text;
        if (const std::string_view mark = stock::swallowed_mark(text); !mark.empty())
            problem(token_, "the value swallows '" + std::string(mark) + "'");
        if (newline_missing_)
            problem(token_, "the value is cut: the last line has no newline");
        if (text.ends_with('\r') && source_.text[plain.value_end - 1] == '\r')
            problem(token_, "the value ends in a carriage return");
        return plain;
    }

    SourceEntry literal(std::string_view text, size_t length)
    {
        SourceEntry literal = entry(SourceEntry::Kind::text, token_, place_ + length);
        literal.text = text;
        return literal;
    }

    SourceEntry function(std::string_view text, bool)
    {
        const size_t close = text.rfind(')');
        SourceEntry function = entry(SourceEntry::Kind::function, token_, place_ + close + 1);
        function.text = text;
        return function;
    }

    void undefine()
    {
        constexpr size_t kLength = std::string_view("&Undef{}").size();
        store(entry(SourceEntry::Kind::undef, token_, token_ + kLength), 0);
    }

    void store(SourceEntry entry, int)
    {
        entry.end = place_;
        innermost().children.push_back(std::move(entry));
    }

    // ---- Containers ----

    void open(stock::ContainerKind kind, int)
    {
        const bool list = kind == stock::ContainerKind::list;
        store(entry(list ? SourceEntry::Kind::list : SourceEntry::Kind::table, token_, token_), 0);
        open_.push_back(&innermost().children.back());
    }

    void close()
    {
        open_.back()->value_end = token_ + 1;
        open_.back()->end = place_;
        open_.pop_back();
    }

    // ---- A value with escapes ----

    void start_gathering() { gathered_.clear(); }
    void gather(std::string_view text) { gathered_ += text; }
    std::string_view gathered() const { return gathered_; }

    // ---- What is wrong ----

    void newline_missing() { newline_missing_ = true; }

    void end_mark() { source_.text_end = token_; }

    void unfinished_literal()
    {
        not_closed(entry(SourceEntry::Kind::text, token_, place_), "literal");
    }

    bool stray_brace(int) { return error("'}' closes nothing"); }
    bool too_deep(int) { return error("nested more than 11 deep"); }

    // Called behind the scan: notes what the end of the text leaves unfinished. `behind_key`
    // says that the scan ended between a key and its value.
    void finish(bool behind_key)
    {
        // A zero byte behind an end mark does no harm.
        if (place_ == source_.text_end && place_ < source_.text.size())
            problem(place_, "zero byte, behind which nothing is read");
        if (behind_key && open_.empty() && !source_.failed)
            unfinished_key();
        for (SourceEntry *container : open_) {
            not_closed(*container, container->kind == SourceEntry::Kind::list ? "list" : "table");
            container->value_end = container->end = source_.text_end;
        }
    }

private:
    SourceEntry &innermost() { return open_.empty() ? source_.top : *open_.back(); }
    const SourceEntry &innermost() const { return open_.empty() ? source_.top : *open_.back(); }

    void problem(size_t place, std::string text)
    {
        source_.problems.push_back({place, std::move(text)});
    }

    // A syntax error at the token, where the library stops. Whether to go on behind it.
    bool error(const char *text)
    {
        problem(token_, text);
        source_.failed = true;
        return go_on_;
    }

    void not_closed(const SourceEntry &entry, const std::string &kind)
    {
        const std::string name = entry.key.empty() ? "" : " '" + entry.key + "'";
        problem(entry.value_begin, kind + name + " is not closed");
        source_.failed = true;
    }

    // Notes a key that the text ends in. An end mark without its newline is such a key, and no
    // problem.
    void unfinished_key()
    {
        source_.unfinished = entry(SourceEntry::Kind::text, key_end_, key_end_);
        source_.unfinished->end = source_.text_end;
        if (key_ != "__END__" && key_ != "__DATA__" && key_ != "__EOF__")
            problem(key_begin_, "key '" + key_ + "' is cut: the last line has no newline");
    }

    // A new entry for a value under the last key, written between these places.
    SourceEntry entry(SourceEntry::Kind kind, size_t begin, size_t end) const
    {
        SourceEntry entry;
        entry.kind = kind;
        entry.key = in_list() ? "" : key_;
        entry.begin = in_list() ? begin : key_begin_;
        entry.value_begin = begin;
        entry.value_end = end;
        return entry;
    }

    SourceText &source_;
    const bool go_on_;
    size_t place_ = 0;
    size_t token_ = 0;  // where the last token began
    std::string key_;   // the last key, and where it is written
    size_t key_begin_ = 0;
    size_t key_end_ = 0;
    bool newline_missing_ = false;  // the token would be another with a newline behind it
    std::string gathered_;
    // The open lists and tables. An outer one takes nothing while an inner one is open, so
    // these stay where they are.
    std::vector<SourceEntry *> open_;
};

}  // namespace

int SourceText::line_of(size_t place) const
{
    const auto next = std::lower_bound(newlines.begin(), newlines.end(), place);
    return 1 + static_cast<int>(next - newlines.begin());
}

SourceText scan_source(std::string text, OnError on_error)
{
    SourceText source;
    source.text = std::move(text);
    for (size_t at = 0; (at = source.text.find('\n', at)) != std::string::npos; ++at)
        source.newlines.push_back(at);
    stock::WholeText whole(source.text.c_str());
    source.text_end = static_cast<size_t>(whole.end() - whole.start);
    PlaceKeeper places(source, on_error);
    stock::TextScanner scanner(whole, places);
    scanner.scan();
    places.finish(scanner.expects_value());
    return source;
}

std::optional<SourceText> read_descriptor(int fd, const std::string &file, OnError on_error)
{
    std::string text;
    char chunk[65536];
    ssize_t got = 0;
    while ((got = read(fd, chunk, sizeof chunk)) > 0 || (got < 0 && errno == EINTR))
        text.append(chunk, got > 0 ? static_cast<size_t>(got) : 0);
    if (got < 0)
        elog_complain(1, "can't read parameter file '%s'", file.c_str());
    if (got < 0)
        return {};
    SourceText source = scan_source(std::move(text), on_error);
    source.file = file;
    return source;
}

std::optional<SourceText> read_source(const std::string &file, OnError on_error)
{
    const int fd = reopen(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        elog_complain(1, "can't open parameter file '%s'", file.c_str());
        return {};
    }
    std::optional<SourceText> source = read_descriptor(fd, file, on_error);
    close(fd);
    return source;
}

const SourceEntry *last_of(const SourceEntry &table, std::string_view key)
{
    const std::vector<SourceEntry> &children = table.children;
    std::vector<size_t> &by_key = table.by_key;
    const auto key_at = [&](size_t i) { return std::string_view(children[i].key); };
    if (by_key.size() != children.size()) {
        by_key.resize(children.size());
        std::iota(by_key.begin(), by_key.end(), size_t{0});
        std::ranges::stable_sort(by_key, {}, key_at);
    }
    const auto behind = std::ranges::upper_bound(by_key, key, {}, key_at);
    const bool there = behind != by_key.begin() && key_at(behind[-1]) == key;
    return there ? &children[behind[-1]] : nullptr;
}

const SourceEntry *find_key(const SourceEntry &table, std::string_view key)
{
    const SourceEntry *entry = last_of(table, key);
    return entry && entry->kind != SourceEntry::Kind::undef ? entry : nullptr;
}

std::vector<const SourceEntry *> elements(const SourceEntry &list)
{
    std::vector<const SourceEntry *> found;
    for (const SourceEntry &entry : list.children)
        if (entry.kind != SourceEntry::Kind::undef)
            found.push_back(&entry);
        else if (!found.empty())
            found.pop_back();
    return found;
}

// ---- Addresses ----

std::optional<std::vector<Step>> parse_address(const char *address)
{
    constexpr size_t kMaxIndexLength = 11;  // nine digits and the brackets
    std::vector<Step> steps;
    while (*address) {
        const stock::AddressComponent component = stock::next_component(address, true);
        switch (component.part) {
        case stock::AddressPart::blanks:
        case stock::AddressPart::plain_key:
            if (!steps.empty())
                return {};
            steps.push_back({std::string(component.key), -1});
            break;
        case stock::AddressPart::braced_key:
            steps.push_back({std::string(stock::trimmed(component.key, stock::is_blank)), -1});
            break;
        case stock::AddressPart::index:
            if (steps.empty() || address[1] == '-' || component.length > kMaxIndexLength)
                return {};
            steps.push_back({"", component.index});
            break;
        case stock::AddressPart::stray: return {};
        }
        address += component.length;
    }
    if (steps.empty())
        return {};
    return steps;
}

const SourceEntry *take_step(const SourceEntry &from, const Step &step)
{
    if (step.index < 0)
        return from.kind == SourceEntry::Kind::table ? find_key(from, step.key) : nullptr;
    if (from.kind != SourceEntry::Kind::list)
        return nullptr;
    const std::vector<const SourceEntry *> found = elements(from);
    const auto i = static_cast<size_t>(step.index);
    return i < found.size() ? found[i] : nullptr;
}

const SourceEntry *take_steps(const SourceEntry *from, const std::vector<Step> &steps, size_t first)
{
    for (size_t i = first; from && i < steps.size(); ++i)
        from = take_step(*from, steps[i]);
    return from;
}
