// Values of declared parameters: read from text exactly, compared, shown and freed.
//
// Every kind is a row of kKinds, by its number.

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <numeric>
#include <type_traits>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/fixed_text.h"
#include "base/guards.h"
#include "pf/want.h"
#include "stock/fix_strtod.h"
#include "stock/str2epoch.h"
#include "stock/time.h"
#include "stock/yesno.h"

namespace stock::want {

namespace {

// ---- Texts ----

constexpr bool is_space(char c)
{
    return is_white(c) || c == '\r' || c == '\v' || c == '\f';
}

const char *skip_space(const char *text)
{
    while (is_space(*text))
        ++text;
    return text;
}

// What some editors put in front of a text, where nobody sees it.
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

// The bytes of the character that a text begins with, in UTF-8; 0 when it is none.
std::size_t character_length(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80)
        return 1;
    const std::size_t length = first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    if (length == 0 || first > 0xf4 || text.size() < length)
        return 0;
    for (const char c : text.substr(1, length - 1))
        if ((static_cast<unsigned char>(c) & 0xc0) != 0x80)
            return 0;
    return length;
}

// ---- Whole numbers ----

Reading read_integer(const char *text, int64_t least, int64_t most, int64_t &value)
{
    char *end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text, &end, 0);
    if (end == text || *skip_space(end))
        return Reading::wrong;
    if (errno == ERANGE || number < least || number > most)
        return Reading::outside;
    value = number;
    return Reading::fine;
}

// Compares a whole number with a bound, both exactly.
bool is_below(int64_t value, double bound)
{
    if (bound >= 0x1p63)
        return true;
    return bound >= -0x1p63 && value < static_cast<int64_t>(std::ceil(bound));
}
bool is_above(int64_t value, double bound)
{
    if (bound < -0x1p63)
        return true;
    return bound < 0x1p63 && value > static_cast<int64_t>(std::floor(bound));
}
bool is_below(double value, double bound)
{
    return value < bound;
}
bool is_above(double value, double bound)
{
    return value > bound;
}

// ---- Bounds ----

struct Bounds {
    double low, high;  // infinite where there is none
};

Bounds bounds_of(const Scalar &scalar)
{
    constexpr double none = std::numeric_limits<double>::infinity();
    // Sizes, durations and lengths are below 0 only where a row says so.
    const bool counts =
        scalar.kind == PFWANT_SIZE || scalar.kind == PFWANT_DURATION || scalar.kind == PFWANT_TEXT;
    if (scalar.low == 0 && scalar.high == 0)
        return {counts ? 0 : -none, none};
    return {scalar.low, scalar.high == 0 && scalar.low > 0 ? none : scalar.high};
}

template <class Value>
Reading within(const Scalar &scalar, Value value)
{
    using Wide = std::conditional_t<std::is_integral_v<Value>, int64_t, double>;
    const Bounds bounds = bounds_of(scalar);
    const Wide wide = value;
    return is_below(wide, bounds.low) || is_above(wide, bounds.high) ? Reading::outside
                                                                     : Reading::fine;
}

// ---- Numbers with units ----

// Digits and a fraction as they are written.
struct Decimal {
    int64_t whole = 0;
    int64_t fraction = 0;  // `decimals` digits
    int decimals = 0;
};

constexpr int kMostDecimals = 9;
constexpr int64_t kBillion = 1'000'000'000;

// Reads "12", "1.5", ".5"; null when there is none, or one of too many digits.
const char *read_digits(const char *text, int most_digits, Decimal &number)
{
    int digits = 0;
    for (; is_digit(*text); ++text, ++digits) {
        if (digits == most_digits)
            return nullptr;
        number.whole = 10 * number.whole + (*text - '0');
    }
    if (*text == '.')
        for (++text; is_digit(*text); ++text) {
            if (number.decimals == kMostDecimals)
                return nullptr;
            number.fraction = 10 * number.fraction + (*text - '0');
            ++number.decimals;
        }
    return digits + number.decimals > 0 ? text : nullptr;
}

int64_t power_of_ten(int n)
{
    int64_t power = 1;
    while (n-- > 0)
        power *= 10;
    return power;
}

std::string_view letters_at(const char *text)
{
    const char *end = text;
    while (is_letter(*end))
        ++end;
    return {text, static_cast<std::size_t>(end - text)};
}

// ---- Sizes ----

// The bytes of a unit, 0 when it is none.
int64_t bytes_of(std::string_view unit)
{
    constexpr std::string_view kPrefixes = "kMGTPE";
    if (unit.ends_with('B'))
        unit.remove_suffix(1);
    if (unit.empty())
        return 1;
    const bool binary = unit.size() == 2 && unit[1] == 'i';
    const std::size_t power = kPrefixes.find(unit[0] == 'K' ? 'k' : unit[0]);
    if (power == kPrefixes.npos || unit.size() != (binary ? 2 : 1))
        return 0;
    int64_t bytes = 1;
    for (std::size_t i = 0; i <= power; ++i)
        bytes *= binary ? 1024 : 1000;
    return bytes;
}

Reading read_size(const char *text, int64_t &size)
{
    text = skip_space(text);
    const bool negative = *text == '-';
    Decimal number;
    // A long is 19 digits; more are a number that does not fit.
    const char *end = read_digits(text + negative, 18, number);
    const char *unit = end ? skip_space(end) : "";
    const std::string_view letters = letters_at(unit);
    const int64_t bytes = end ? bytes_of(letters) : 0;
    if (bytes == 0 || *skip_space(unit + letters.size())) {
        // "1e6" is a number like others.
        char *rest = nullptr;
        const double value = fix_strtod(text, &rest);
        if (rest == text || *skip_space(rest) || std::isnan(value))
            return Reading::wrong;
        if (!(value >= 0 && value < 0x1p63))
            return Reading::outside;
        if (value != std::floor(value))
            return Reading::wrong;
        size = static_cast<int64_t>(value);
        return Reading::fine;
    }
    if (negative)
        return Reading::outside;
    // The fraction as fraction / parts, in lowest terms with the unit.
    const int64_t parts = power_of_ten(number.decimals);
    const int64_t common = std::gcd(parts, bytes);
    const int64_t divisor = parts / common;
    int64_t whole = 0;
    int64_t rest = 0;
    // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): parts is at least 1, and common divides it
    if (number.fraction % divisor != 0)
        return Reading::wrong;
    if (__builtin_mul_overflow(number.whole, bytes, &whole) ||
        __builtin_mul_overflow(number.fraction / divisor, bytes / common, &rest) ||
        __builtin_add_overflow(whole, rest, &size))
        return Reading::outside;
    return Reading::fine;
}

// ---- Durations ----

struct Unit {
    std::string_view names[3];
    int64_t seconds;     // or 0:
    int64_t in_seconds;  // so many of it are a second
};

// The largest first.
constexpr Unit kUnits[] = {
    {{"w", "week", "weeks"}, 604800, 0}, {{"d", "day", "days"}, 86400, 0},
    {{"h", "hour", "hours"}, 3600, 0},   {{"m", "minute", "minutes"}, 60, 0},
    {{"s", "second", "seconds"}, 1, 0},  {{"ms", "ms", "ms"}, 0, 1000},
    {{"us", "us", "us"}, 0, 1'000'000},  {{"ns", "ns", "ns"}, 0, kBillion},
};

// The index of the unit, or -1.
int unit_of(std::string_view name)
{
    if (name == "min")
        return unit_of("m");
    if (name == "sec")
        return unit_of("s");
    for (std::size_t i = 0; i < std::size(kUnits); ++i)
        if (std::ranges::count(kUnits[i].names, name))
            return static_cast<int>(i);
    return -1;
}

// Seconds and 1e-18ths of one.
struct Exact {
    static constexpr int64_t kAtoms = kBillion * kBillion;

    int64_t seconds = 0;
    int64_t atoms = 0;  // below kAtoms

    void add(const Decimal &number, const Unit &unit)
    {
        const int64_t billionths = number.fraction * power_of_ten(kMostDecimals - number.decimals);
        if (unit.seconds) {
            const int64_t nanoseconds = billionths * unit.seconds;
            seconds += number.whole * unit.seconds + nanoseconds / kBillion;
            atoms += nanoseconds % kBillion * kBillion;
        } else {
            const int64_t each = kAtoms / unit.in_seconds;
            seconds += number.whole / unit.in_seconds;
            atoms += number.whole % unit.in_seconds * each + billionths * (each / kBillion);
        }
        seconds += atoms / kAtoms;
        atoms %= kAtoms;
    }

    // The nearest double.
    double value() const
    {
        FixedTextOf<48> text;
        text.number(seconds);
        text.add('.');
        text.zeros(atoms, 18);
        return fix_strtod(text.c_str(), nullptr);
    }
};

Reading read_duration(const char *text, double &duration)
{
    constexpr int kMostDigits = 12;  // of weeks: what comes of them fits
    text = skip_space(text);
    char *rest = nullptr;
    const double alone = fix_strtod(text, &rest);
    if (rest != text && !*skip_space(rest)) {
        if (std::isnan(alone))
            return Reading::wrong;
        if (std::isinf(alone))
            return Reading::outside;
        duration = alone;
        return Reading::fine;
    }
    const bool negative = *text == '-';
    Exact sum;
    int before = -1;
    for (text = skip_space(text + negative); *text; text = skip_space(text)) {
        Decimal number;
        const char *end = read_digits(text, kMostDigits, number);
        const std::string_view name = letters_at(end ? skip_space(end) : "");
        const int unit = unit_of(name);
        if (unit <= before)
            return Reading::wrong;
        sum.add(number, kUnits[unit]);
        before = unit;
        text = name.data() + name.size();
    }
    if (before < 0)
        return Reading::wrong;
    duration = negative ? -sum.value() : sum.value();
    return Reading::fine;
}

// ---- The others ----

Reading read_double(const char *text, double &value)
{
    text = skip_space(text);
    char *end = nullptr;
    errno = 0;
    const double number = fix_strtod(text, &end);
    if (end == text || *skip_space(end) || std::isnan(number))
        return Reading::wrong;
    if (std::isinf(number) && errno == ERANGE)
        return Reading::outside;
    value = number;
    return Reading::fine;
}

Reading read_boolean(const char *text, int &value)
{
    const std::string_view word = trimmed(std::string_view(text), is_space);
    FixedTextOf<8> copy;
    copy.add(word);
    const int answer = word.size() < 8 ? yesno(copy.c_str()) : 1;
    if (answer == 1)
        return Reading::wrong;
    value = answer != 0;
    return Reading::fine;
}

Reading read_word(const char *text, std::string_view words, int &value)
{
    const std::string_view wanted = trimmed(std::string_view(text), is_space);
    int i = 0;
    for (std::string_view word = next_word(words); !word.empty(); word = next_word(words), ++i)
        if (word == wanted) {
            value = i;
            return Reading::fine;
        }
    return Reading::wrong;
}

Reading read_time(const char *text, double &value)
{
    double time = 0;
    if (!is_epoch_string(text, &time) || std::isnan(time))
        return Reading::wrong;
    if (std::isinf(time))
        return Reading::outside;
    value = time;
    return Reading::fine;
}

// Stores the value when it was read and is within the bounds.
template <class Value>
Reading store(const Scalar &scalar, Reading reading, Value value, void *to)
{
    if (reading == Reading::fine)
        reading = within(scalar, value);
    if (reading == Reading::fine)
        std::memcpy(to, &value, sizeof value);
    return reading;
}

template <class Value>
Value load(const void *from)
{
    Value value;
    std::memcpy(&value, from, sizeof value);  // NOLINT(bugprone-sizeof-expression): a pointer too
    return value;
}

// ---- The table of kinds ----

struct Kind {
    const char *name;
    const char *noun;
    std::size_t size;
};

// clang-format off
constexpr std::array<Kind, PFWANT_ANY + 1> kKinds = {{
    {nullptr,    nullptr,            0},
    {"int",      "a whole number",   sizeof(int)},
    {"int64",    "a whole number",   sizeof(int64_t)},
    {"double",   "a number",         sizeof(double)},
    {"boolean",  "yes or no",        sizeof(int)},
    {"text",     "a text",           sizeof(char *)},
    {"word",     "a word",           sizeof(int)},
    {"size",     "a size",           sizeof(int64_t)},
    {"duration", "a duration",       sizeof(double)},
    {"time",     "a time",           sizeof(double)},
    {"list",     "a list",           sizeof(Tbl *)},
    {"table",    "a table",          sizeof(Arr *)},
    {"records",  "a table",          sizeof(Arr *)},
    {"any",      "anything",         0},
}};
// clang-format on

const Kind &row_of(int kind)
{
    return kKinds[static_cast<std::size_t>(kind < 0 || kind > PFWANT_ANY ? 0 : kind)];
}

void add_integer(GrowingText &out, int64_t value)
{
    FixedTextOf<24> text;
    text.number(value);
    out.add(text.view());
}

// `is_last`: the unit of a length stands behind the last bound alone.
void add_bound(GrowingText &out, int kind, double bound, bool is_last)
{
    if (kind == PFWANT_TIME) {
        const Owned<char> text(epoch2str("%Y-%m-%d %H:%M:%S", bound));
        out.add(text.get());
        return;
    }
    add_number(out, bound);
    if (kind == PFWANT_DURATION)
        out.add(" s");
    if (kind == PFWANT_TEXT && is_last)
        out.add(bound == 1 ? " byte" : " bytes");
}

// The words with commas between them.
void add_words(GrowingText &out, std::string_view words)
{
    const char *before = "";
    for (std::string_view word = next_word(words); !word.empty(); word = next_word(words)) {
        out.add(before);
        out.add(word);
        before = ", ";
    }
}

void add_word(GrowingText &out, std::string_view words, int i)
{
    std::string_view word = next_word(words);
    while (i-- > 0 && !word.empty())
        word = next_word(words);
    out.add(word);
}

void add_scalar(GrowingText &out, const Scalar &scalar, const void *at)
{
    switch (scalar.kind) {
    case PFWANT_INT: return add_integer(out, load<int>(at));
    case PFWANT_INT64:
    case PFWANT_SIZE: return add_integer(out, load<int64_t>(at));
    case PFWANT_BOOLEAN: return out.add(load<int>(at) ? "yes" : "no");
    case PFWANT_TEXT:
        out.add("'");
        add_shown(out, load<const char *>(at));
        return out.add("'");
    case PFWANT_WORD: return add_word(out, scalar.words, load<int>(at));
    case PFWANT_DURATION: add_number(out, load<double>(at)); return out.add(" s");
    case PFWANT_TIME: {
        const Owned<char> text(epoch2str("%Y-%m-%d %H:%M:%S", load<double>(at)));
        return out.add(text.get());
    }
    default: return add_number(out, load<double>(at));
    }
}

bool is_equal_scalar(const Scalar &scalar, const void *a, const void *b)
{
    switch (scalar.kind) {
    case PFWANT_TEXT: return std::strcmp(load<const char *>(a), load<const char *>(b)) == 0;
    case PFWANT_DOUBLE:
    case PFWANT_DURATION:
    case PFWANT_TIME: return load<double>(a) == load<double>(b);
    default: return std::memcmp(a, b, kind_size(scalar.kind)) == 0;
    }
}

bool is_equal_list(const Pfwant &row, const Tbl *a, const Tbl *b)
{
    if (a->count != b->count)
        return false;
    for (int64_t i = 0; i < a->count; ++i) {
        void *const x = gettbl(a, i);
        void *const y = gettbl(b, i);
        if (!is_equal_scalar(scalar_of(row), element_at(row.of, x), element_at(row.of, y)))
            return false;
    }
    return true;
}

bool is_equal_record(const Pfwant *rows, const void *a, const void *b)
{
    for (; rows->address; ++rows)
        if (!is_equal(*rows, member(a, *rows), member(b, *rows)))
            return false;
    return true;
}

// The names and the values of an array, side by side.
struct Pairs {
    explicit Pairs(const Arr *arr) : names(keysarr(arr)), values(valsarr(arr)) {}
    ~Pairs()
    {
        freetbl(names, nullptr);
        freetbl(values, nullptr);
    }
    Pairs(const Pairs &) = delete;
    Pairs &operator=(const Pairs &) = delete;

    int64_t count() const { return names->count; }
    const char *name(int64_t i) const { return static_cast<const char *>(gettbl(names, i)); }
    void *value(int64_t i) const { return gettbl(values, i); }

    Tbl *names;
    Tbl *values;
};

bool is_equal_table(const Pfwant &row, const Arr *a, const Arr *b)
{
    const Pairs x(a);
    const Pairs y(b);
    if (x.count() != y.count())
        return false;
    for (int64_t i = 0; i < x.count(); ++i) {
        void *const one = x.value(i);
        void *const other = y.value(i);
        if (std::strcmp(x.name(i), y.name(i)) != 0)
            return false;
        if (row.kind == PFWANT_RECORDS ? !is_equal_record(row.entries, one, other)
                                       : !is_equal_scalar(scalar_of(row), element_at(row.of, one),
                                                          element_at(row.of, other)))
            return false;
    }
    return true;
}

void free_record(const Pfwant *rows, void *record)
{
    for (; rows->address; ++rows)
        if (is_owner(rows->kind))
            free_value(*rows, member(record, *rows));
}

}  // namespace

const char *kind_name(int kind)
{
    return row_of(kind).name;
}

std::size_t kind_size(int kind)
{
    return row_of(kind).size;
}

const char *kind_noun(int kind)
{
    return row_of(kind).noun;
}

std::string_view next_word(std::string_view &text)
{
    while (!text.empty() && is_space(text.front()))
        text.remove_prefix(1);
    std::size_t end = 0;
    while (end < text.size() && !is_space(text[end]))
        ++end;
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    return word;
}

Reading read_scalar(const Scalar &scalar, const char *text, void *to)
{
    const KeepErrno keep;
    int64_t whole = 0;
    double value = 0;
    Reading reading = Reading::fine;
    switch (scalar.kind) {
    case PFWANT_INT:
        reading = read_integer(text, INT_MIN, INT_MAX, whole);
        return store(scalar, reading, static_cast<int>(whole), to);
    case PFWANT_INT64:
        reading = read_integer(text, INT64_MIN, INT64_MAX, whole);
        return store(scalar, reading, whole, to);
    case PFWANT_DOUBLE:
        reading = read_double(text, value);
        return store(scalar, reading, value, to);
    case PFWANT_SIZE: reading = read_size(text, whole); return store(scalar, reading, whole, to);
    case PFWANT_DURATION:
        reading = read_duration(text, value);
        return store(scalar, reading, value, to);
    case PFWANT_TIME: reading = read_time(text, value); return store(scalar, reading, value, to);
    case PFWANT_BOOLEAN: return read_boolean(text, *static_cast<int *>(to));
    case PFWANT_WORD: return read_word(text, scalar.words, *static_cast<int *>(to));
    case PFWANT_TEXT: {
        if (within(scalar, static_cast<int64_t>(std::strlen(text))) != Reading::fine)
            return Reading::outside;
        const char *copy = copy_text(text, "value", "pfwant");
        std::memcpy(to, &copy, sizeof copy);
        return Reading::fine;
    }
    default: return Reading::wrong;
    }
}

void add_number(GrowingText &out, double value)
{
    if (std::isinf(value))
        return out.add(value < 0 ? "-inf" : "inf");
    for (const int digits : {15, 16, 17}) {
        FixedTextOf<48> text;
        text.general(value, digits);
        if (digits == 17 || fix_strtod(text.c_str(), nullptr) == value)
            return out.add(text.view());
    }
}

bool add_bounds(GrowingText &out, const Scalar &scalar)
{
    const auto [low, high] = bounds_of(scalar);
    const bool given = scalar.low != 0 || scalar.high != 0;
    if (!given || (std::isinf(low) && std::isinf(high)))
        return false;
    if (std::isinf(high)) {
        out.add("at least ");
        add_bound(out, scalar.kind, low, true);
    } else if (std::isinf(low)) {
        out.add("at most ");
        add_bound(out, scalar.kind, high, true);
    } else {
        add_bound(out, scalar.kind, low, false);
        out.add(" to ");
        add_bound(out, scalar.kind, high, true);
    }
    return true;
}

void add_shown(GrowingText &out, std::string_view text)
{
    constexpr std::size_t kMost = 80;
    const bool cut = text.size() > kMost;
    if (cut)
        text = text.substr(0, kMost);
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text[0]);
        const std::size_t length = character_length(text);
        FixedTextOf<8> shown;
        if (byte == '\n')
            shown.add("\\n");
        else if (byte == '\t')
            shown.add("\\t");
        else if (text.starts_with(kByteOrderMark))
            shown.add("\\ufeff");
        else if (length == 0 || byte < ' ' || byte == 0x7f)
            shown.addf("\\x%02x", byte);
        else
            shown.add(text.substr(0, length));
        out.add(shown.view());
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    if (cut)
        out.add("...");
}

void add_wrong(GrowingText &out, const Scalar &scalar, const char *text, Reading reading)
{
    out.add("'");
    add_shown(out, text);
    out.add("'");
    if (scalar.kind == PFWANT_WORD) {
        out.add(" is none of ");
        return add_words(out, scalar.words);
    }
    if (reading == Reading::wrong) {
        out.add(" is not ");
        out.add(kind_noun(scalar.kind));
    } else {
        const bool is_short = static_cast<double>(std::strlen(text)) < scalar.low;
        out.add(scalar.kind != PFWANT_TEXT ? " is out of range"
                : is_short                 ? " is too short"
                                           : " is too long");
    }
    GrowingText bounds(0, "bounds", "pfwant");
    if (!add_bounds(bounds, scalar)) {
        if (reading != Reading::outside)
            return;
        if (scalar.kind == PFWANT_INT)
            add_bounds(bounds, {PFWANT_INT, nullptr, INT_MIN, INT_MAX});
        else if (scalar.kind == PFWANT_INT64)
            bounds.add("-9223372036854775808 to 9223372036854775807");
        else if (scalar.kind == PFWANT_SIZE)
            bounds.add("0 to 9223372036854775807");
        else if (scalar.kind == PFWANT_DURATION)
            bounds.add("at least 0 s");
        else
            return;
    }
    out.add(" (");
    out.add(bounds.view());
    out.add(")");
}

void add_value(GrowingText &out, const Pfwant &row, const void *at)
{
    if (is_scalar(row.kind))
        return add_scalar(out, scalar_of(row), at);
    const char *before = "";
    if (row.kind == PFWANT_LIST) {
        const auto *list = load<const Tbl *>(at);
        for (int64_t i = 0; i < list->count; ++i) {
            void *const element = gettbl(list, i);
            out.add(before);
            add_scalar(out, scalar_of(row), element_at(row.of, element));
            before = ", ";
        }
        return list->count == 0 ? out.add("none") : void();
    }
    const Pairs pairs(load<const Arr *>(at));
    for (int64_t i = 0; i < pairs.count(); ++i) {
        void *const value = pairs.value(i);
        out.add(before);
        add_shown(out, pairs.name(i));
        out.add(row.kind == PFWANT_RECORDS ? " (" : " ");
        if (row.kind == PFWANT_RECORDS)
            add_record(out, row.entries, value);
        else
            add_scalar(out, scalar_of(row), element_at(row.of, value));
        out.add(row.kind == PFWANT_RECORDS ? ")" : "");
        before = ", ";
    }
    if (pairs.count() == 0)
        out.add("none");
}

void add_record(GrowingText &out, const Pfwant *rows, const void *record)
{
    const char *before = "";
    for (; rows->address; ++rows) {
        if (rows->kind == PFWANT_ANY)
            continue;
        out.add(before);
        out.add(rows->address);
        out.add(" ");
        add_value(out, *rows, member(record, *rows));
        before = ", ";
    }
}

bool is_equal(const Pfwant &row, const void *a, const void *b)
{
    switch (row.kind) {
    case PFWANT_LIST: return is_equal_list(row, load<const Tbl *>(a), load<const Tbl *>(b));
    case PFWANT_TABLE:
    case PFWANT_RECORDS: return is_equal_table(row, load<const Arr *>(a), load<const Arr *>(b));
    case PFWANT_ANY: return true;
    default: return is_equal_scalar(scalar_of(row), a, b);
    }
}

void free_value(const Pfwant &row, void *at)
{
    const KeepErrno keep;
    void *const value = load<void *>(at);
    std::memset(at, 0, sizeof value);
    if (!value)
        return;
    switch (row.kind) {
    case PFWANT_TEXT: return std::free(value);
    case PFWANT_LIST:
        return freetbl(static_cast<Tbl *>(value), row.of == PFWANT_TEXT ? std::free : nullptr);
    case PFWANT_TABLE: freearr(static_cast<Arr *>(value), std::free); return;
    case PFWANT_RECORDS: {
        auto *arr = static_cast<Arr *>(value);
        Tbl *records = valsarr(arr);
        for (int64_t i = 0; i < records->count; ++i)
            free_record(row.entries, gettbl(records, i));
        freetbl(records, nullptr);
        freearr(arr, std::free);
        return;
    }
    default: return;
    }
}

}  // namespace stock::want
