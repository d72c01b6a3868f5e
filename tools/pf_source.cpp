// A parameter file as it is written: a scanner that keeps places.
//
// It follows the rules that stock/pf.h gives for the text, over a text that is
// whole in memory. Tests compare what it finds with what the library reads.

#include "pf_source.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <numeric>

#include <fcntl.h>
#include <unistd.h>

#include "stock.h"

namespace {

constexpr size_t kMaxKey = 1023;      // bytes of a key
constexpr size_t kMaxWord = 1 + 127;  // the quote and the word that end a literal
constexpr size_t kMaxOpen = 11;       // containers in each other
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kTrimmed = " \t\n";

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

class Reader {
public:
    Reader(Source &source, OnError on_error)
        : source_(source), go_on_(on_error == OnError::go_on),
          text_(std::string_view(source.text).substr(0, source.text.find('\0')))
    {
    }

    void read()
    {
        source_.text_end = text_.size();
        for (;;) {
            while (is_blank(at(place_)))
                ++place_;
            if (place_ == text_.size() || !(in_value_ ? value() : key()))
                break;
        }
        if (place_ == text_.size() && text_.size() < source_.text.size())
            problem(place_, "zero byte, behind which nothing is read");
        if (in_value_ && open_.empty() && !source_.failed)
            unfinished_key();
        for (Entry *entry : open_) {
            problem(entry->value_begin, "is not closed", *entry);
            source_.failed = true;
        }
        close_all();
    }

private:
    // ---- The text ----

    char at(size_t place) const { return place < text_.size() ? text_[place] : '\0'; }
    bool begins(std::string_view word) const { return text_.substr(place_, word.size()) == word; }
    size_t find(std::string_view any, size_t from) const
    {
        return std::min(text_.find_first_of(any, from), text_.size());
    }
    bool at_line_start() const { return place_ == 0 || text_[place_ - 1] == '\n'; }
    void skip_line() { place_ = std::min(find("\n", place_) + 1, text_.size()); }

    // ---- What is found ----

    Entry &here() { return open_.empty() ? source_.top : *open_.back(); }

    void expect_next() { in_value_ = here().kind == Entry::Kind::list; }

    void problem(size_t place, std::string text)
    {
        source_.problems.push_back({place, std::move(text)});
    }

    void problem(size_t place, const char *what, const Entry &entry)
    {
        const char *kind = entry.kind == Entry::Kind::list    ? "list"
                           : entry.kind == Entry::Kind::table ? "table"
                                                              : "literal";
        const std::string name = entry.key.empty() ? "" : " '" + entry.key + "'";
        problem(place, std::string(kind) + name + " " + what);
    }

    // A syntax error, where the library stops. Whether to go on behind its line.
    bool fail(std::string text)
    {
        problem(place_, std::move(text));
        source_.failed = true;
        skip_line();
        expect_next();
        return go_on_;
    }

    Entry entry(Entry::Kind kind, size_t begin, size_t end)
    {
        Entry entry;
        entry.kind = kind;
        const bool in_list = here().kind == Entry::Kind::list;
        entry.key = in_list ? "" : key_;
        entry.begin = in_list ? begin : key_begin_;
        entry.value_begin = begin;
        entry.value_end = end;
        return entry;
    }

    // Stores the entry, whose last line ends where the scanner stands.
    void store(Entry entry)
    {
        entry.end = place_;
        here().children.push_back(std::move(entry));
        expect_next();
    }

    // ---- Keys ----

    bool key()
    {
        switch (at(place_)) {
        case '\n':
        case '#': skip_line(); return true;
        case '}': return close_container();
        case '_':
            if (end_mark()) {
                source_.text_end = place_;
                return false;
            }
        }
        key_begin_ = place_;
        const size_t plain = find(" \t\n", place_);
        const size_t quote = at(place_) == '"' || at(place_) == '\''
                                 ? text_.find(at(place_), place_ + 1)
                                 : std::string_view::npos;
        if (quote != std::string_view::npos && quote + 1 >= plain)
            quoted_key(quote);
        else
            plain_key();
        key_end_ = place_;
        in_value_ = true;
        return true;
    }

    bool end_mark() const
    {
        return (begins("__END__") || begins("__DATA__") || begins("__EOF__")) &&
               text_.find('\n', place_) != std::string_view::npos;
    }

    // Where the text ends behind a key, an end mark without its newline among them.
    void unfinished_key()
    {
        source_.unfinished = entry(Entry::Kind::text, key_end_, key_end_);
        source_.unfinished->end = text_.size();
        if (key_ != "__END__" && key_ != "__DATA__" && key_ != "__EOF__")
            problem(key_begin_, "key '" + key_ + "' is cut: the last line has no newline");
    }

    void quoted_key(size_t quote)
    {
        key_ = text_.substr(place_ + 1, std::min(quote - place_ - 1, kMaxKey));
        place_ = quote + 1;
    }

    void plain_key()
    {
        key_.clear();
        while (place_ < text_.size() && !strchr(" \t\n#", at(place_))) {
            int c = static_cast<unsigned char>(at(place_++));
            if (c == '\\')
                c = escaped(kTrimmed);
            if (c >= 0 && key_.size() < kMaxKey)
                key_ += static_cast<char>(c);
        }
        key_ = key_.c_str();  // \000 ends it
    }

    // Takes what stands behind a backslash, unless it is one of the ends.
    int escaped(std::string_view ends)
    {
        const auto ended = [&] {
            return place_ == text_.size() || ends.find(at(place_)) != std::string_view::npos;
        };
        if (ended())
            return -1;
        const char c = at(place_++);
        if (!is_digit(c)) {
            constexpr std::string_view kLetters = "nbrt";
            const size_t i = kLetters.find(c);
            return i < kLetters.size() ? "\n\b\r\t"[i] : static_cast<unsigned char>(c);
        }
        --place_;
        unsigned number = 0;
        bool octal = true;
        for (int i = 0; i < 3 && !ended(); ++i, ++place_) {
            octal = octal && at(place_) >= '0' && at(place_) <= '7';
            if (octal)
                number = number * 8 + static_cast<unsigned>(at(place_) - '0');
        }
        return static_cast<unsigned char>(number);
    }

    // ---- Values ----

    bool value()
    {
        switch (at(place_)) {
        case '}': return close_container();
        case '#':
            if (at_line_start())
                return skip_line(), true;
            return empty_value();
        case '\n': return empty_value();
        case '&': return marked_value();
        default: return plain_value();
        }
    }

    bool marked_value()
    {
        const size_t function = function_end();
        if (begins("&Tbl{"))
            return open_container(Entry::Kind::list);
        if (begins("&Arr{"))
            return open_container(Entry::Kind::table);
        if (begins("&Undef{}"))
            return undef();
        if (function)
            return function_value(function);
        if (begins("&Literal\""))
            return here_document();
        if (begins("&Literal") && at(place_ + 8) && at(place_ + 8) != '\n')
            return bracketed();
        return plain_value();
    }

    bool empty_value()
    {
        const size_t begin = here().kind == Entry::Kind::list ? place_ : key_end_;
        Entry empty = entry(Entry::Kind::text, begin, begin);
        if (empty.key.ends_with('\r') && text_[key_end_ - 1] == '\r')
            problem(begin, "key '" + key_ + "' ends in a carriage return");
        skip_line();
        store(std::move(empty));
        return true;
    }

    bool undef()
    {
        Entry undef = entry(Entry::Kind::undef, place_, place_ + strlen("&Undef{}"));
        skip_line();
        store(std::move(undef));
        return true;
    }

    // Behind the newline of the function that begins here; 0 when none does. The text
    // may have no newline at its end, where `without` is that.
    size_t function_end(size_t without = std::string_view::npos) const
    {
        size_t p = place_ + 1;
        if (!is_letter(at(p)))
            return 0;
        while (is_letter(at(p)) || is_digit(at(p)) || at(p) == '_')
            ++p;
        const size_t newline = std::min(text_.find('\n', p), without);
        if (at(p) != '(' || newline == std::string_view::npos)
            return 0;
        const size_t last = text_.find_last_not_of(kBlanks, newline - 1);
        return text_[last] == ')' && last > p ? newline + 1 : 0;
    }

    bool function_value(size_t end)
    {
        const size_t last = text_.find_last_not_of(kTrimmed, end - 1);
        Entry function = entry(Entry::Kind::function, place_, last + 1);
        function.text = text_.substr(place_, end - place_);
        place_ = end;
        store(std::move(function));
        return true;
    }

    bool plain_value()
    {
        Entry plain = entry(Entry::Kind::text, place_, place_);
        std::string &out = plain.text;
        // Behind the last line, a newline would make it a function.
        bool cut = at(place_) == '&' && function_end(text_.size());
        while (place_ < text_.size() && at(place_) != '\n' && at(place_) != '#') {
            const char c = at(place_++);
            if (c != '\\') {
                out += c;
            } else if (at(place_) == '\n') {
                ++place_;
                out += '\n';
            } else if (const int byte = escaped("\n"); byte >= 0) {
                out += static_cast<char>(byte);
            } else {
                cut = true;
            }
            if (!is_blank(c))
                plain.value_end = place_;
        }
        trim(out);
        skip_line();
        check_value(plain);
        if (cut)
            problem(plain.value_begin, "the value is cut: the last line has no newline");
        if (plain.text.ends_with('\r') && text_[plain.value_end - 1] == '\r')
            problem(plain.value_begin, "the value ends in a carriage return");
        store(std::move(plain));
        return true;
    }

    static void trim(std::string &text)
    {
        text = text.c_str();  // \000 ends it
        text.erase(text.find_last_not_of(kTrimmed) + 1);
        text.erase(0, text.find_first_not_of(kTrimmed));
    }

    void check_value(const Entry &entry)
    {
        for (const char *mark : {"&Tbl{", "&Arr{", "&Literal{"})
            if (entry.text.find(mark) != std::string::npos)
                return problem(entry.value_begin, std::string("the value swallows '") + mark + "'");
    }

    // ---- Literals ----

    bool unfinished(const Entry &literal)
    {
        problem(literal.value_begin, "is not closed", literal);
        source_.failed = true;
        place_ = text_.size();
        return false;
    }

    bool store_literal(Entry literal, size_t body, size_t end, size_t closing)
    {
        literal.text = text_.substr(body, end - body);
        place_ = literal.value_end = end + closing;
        if (!at_line_start())
            skip_line();
        store(std::move(literal));
        return true;
    }

    bool here_document()
    {
        Entry literal = entry(Entry::Kind::text, place_, text_.size());
        const size_t quote = place_ + strlen("&Literal");
        const size_t newline = find("\n", quote);
        if (newline == text_.size())
            return unfinished(literal);
        const std::string_view word = text_.substr(quote, std::min(newline - quote, kMaxWord));
        const size_t end = text_.find(word, newline + 1);
        if (end == std::string_view::npos)
            return unfinished(literal);
        return store_literal(std::move(literal), newline + 1, end, word.size());
    }

    // The closing delimiter is the next of the list, or else the next of the text.
    bool bracketed()
    {
        constexpr std::string_view kDelimiters = "{}()[]<>`'";
        Entry literal = entry(Entry::Kind::text, place_, text_.size());
        place_ += strlen("&Literal");
        const char open = at(place_++);
        const size_t i = kDelimiters.find(open);
        const char close = i == std::string_view::npos  ? at(place_++)
                           : i + 1 < kDelimiters.size() ? kDelimiters[i + 1]
                                                        : '\0';
        if (place_ > text_.size() || !close)
            return unfinished(literal);
        if (!at_line_start())
            skip_line();
        const size_t body = place_;
        int64_t depth = 1;
        for (size_t p = body; p < text_.size(); ++p) {
            if (text_[p] == close && --depth == 0)
                return store_literal(std::move(literal), body, p, 1);
            depth += text_[p] == open && open != close;
        }
        return unfinished(literal);
    }

    // ---- Containers ----

    bool open_container(Entry::Kind kind)
    {
        if (open_.size() >= kMaxOpen) {
            problem(place_, "nested more than 11 deep");
            source_.failed = true;
            if (!go_on_)
                return false;
        }
        Entry container = entry(kind, place_, text_.size());
        Entry &outer = here();
        skip_line();
        store(std::move(container));
        open_.push_back(&outer.children.back());
        expect_next();
        return true;
    }

    bool close_container()
    {
        if (open_.empty())
            return fail("'}' closes nothing");
        Entry &closed = *open_.back();
        closed.value_end = place_ + 1;
        skip_line();
        closed.end = place_;
        open_.pop_back();
        expect_next();
        return true;
    }

    void close_all()
    {
        for (Entry *entry : open_)
            entry->value_end = entry->end = place_;
    }

    Source &source_;
    const bool go_on_;
    const std::string_view text_;
    size_t place_ = 0;
    bool in_value_ = false;
    std::string key_;
    size_t key_begin_ = 0;
    size_t key_end_ = 0;
    std::vector<Entry *> open_;  // an outer one takes nothing while an inner one is open
};

}  // namespace

int Source::line_of(size_t place) const
{
    const auto next = std::lower_bound(newlines.begin(), newlines.end(), place);
    return 1 + static_cast<int>(next - newlines.begin());
}

Source scan_source(std::string text, OnError on_error)
{
    Source source;
    source.text = std::move(text);
    for (size_t at = 0; (at = source.text.find('\n', at)) != std::string::npos; ++at)
        source.newlines.push_back(at);
    Reader(source, on_error).read();
    return source;
}

std::optional<Source> read_descriptor(int fd, const std::string &file, OnError on_error)
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
    Source source = scan_source(std::move(text), on_error);
    source.file = file;
    return source;
}

std::optional<Source> read_source(const std::string &file, OnError on_error)
{
    const int fd = reopen(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        elog_complain(1, "can't open parameter file '%s'", file.c_str());
        return {};
    }
    std::optional<Source> source = read_descriptor(fd, file, on_error);
    close(fd);
    return source;
}

std::optional<Source> read_standard_input(OnError on_error)
{
    return read_descriptor(STDIN_FILENO, "-", on_error);
}

const Entry *last_of(const Entry &table, std::string_view key)
{
    const std::vector<Entry> &children = table.children;
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

const Entry *find_key(const Entry &table, std::string_view key)
{
    const Entry *entry = last_of(table, key);
    return entry && entry->kind != Entry::Kind::undef ? entry : nullptr;
}

std::vector<const Entry *> elements(const Entry &list)
{
    std::vector<const Entry *> found;
    for (const Entry &entry : list.children)
        if (entry.kind != Entry::Kind::undef)
            found.push_back(&entry);
        else if (!found.empty())
            found.pop_back();
    return found;
}

// ---- Addresses ----

std::optional<std::vector<Step>> parse_address(std::string_view address)
{
    constexpr std::string_view kMarks = "{}[]";
    std::vector<Step> steps;
    while (!address.empty()) {
        const size_t mark = std::min(address.find_first_of(kMarks), address.size());
        std::string_view step = address.substr(0, mark);
        const size_t close = std::min(address.find_first_of(kMarks, mark + 1), address.size());
        const std::string_view inner = address.substr(std::min(1 + mark, close), close - 1 - mark);
        if (mark > 0) {
            if (!steps.empty())
                return {};
            steps.push_back({std::string(step), -1});
            address.remove_prefix(mark);
        } else if (address[0] == '{' && close < address.size() && address[close] == '}') {
            std::string key(inner);
            key.erase(key.find_last_not_of(kBlanks) + 1);
            key.erase(0, key.find_first_not_of(kBlanks));
            steps.push_back({std::move(key), -1});
            address.remove_prefix(close + 1);
        } else if (address[0] == '[' && close < address.size() && address[close] == ']' &&
                   !steps.empty() && !inner.empty() && inner.size() < 10 &&
                   std::all_of(inner.begin(), inner.end(), is_digit)) {
            steps.push_back({"", std::stol(std::string(inner))});
            address.remove_prefix(close + 1);
        } else {
            return {};
        }
    }
    if (steps.empty())
        return {};
    return steps;
}

const Entry *take_step(const Entry &from, const Step &step)
{
    if (step.index < 0)
        return from.kind == Entry::Kind::table ? find_key(from, step.key) : nullptr;
    if (from.kind != Entry::Kind::list)
        return nullptr;
    const std::vector<const Entry *> found = elements(from);
    const auto i = static_cast<size_t>(step.index);
    return i < found.size() ? found[i] : nullptr;
}

const Entry *take_steps(const Entry *from, const std::vector<Step> &steps, size_t first)
{
    for (size_t i = first; from && i < steps.size(); ++i)
        from = take_step(*from, steps[i]);
    return from;
}
