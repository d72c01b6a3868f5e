/*
 * elog.hpp - report messages of each severity, with formats that are checked at compile time; see
 * elog.h.
 */

#ifndef STOCK_ELOG_HPP
#define STOCK_ELOG_HPP

#include <algorithm>
#include <climits>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "stock/elog.h"
#include "stock/strings.hpp"

namespace stock::report {

/* As the first argument, it adds a line with the meaning of errno. */
struct with_errno_t {
    explicit with_errno_t() = default;
};
inline constexpr with_errno_t with_errno{};

namespace detail {

/* The types that %s accepts: strings that end with a zero byte. */
template <class T>
concept terminated = std::same_as<T, char *> || std::same_as<T, const char *> ||
    std::same_as<T, std::string> || std::same_as<T, text>;

/* The type to which an argument is promoted when it is passed to printf. */
template <class T>
struct promotion {
    using type = T;
};
template <class T>
requires std::integral<T> ||(std::is_enum_v<T> &&std::convertible_to<T, int>)struct promotion<T> {
    using type = decltype(+T{});
};
template <>
struct promotion<float> {
    using type = double;
};
template <class T>
using promoted = typename promotion<std::decay_t<T>>::type;

enum class length { none, l, ll, z, j, t, L };

/* One conversion of a format: "%-*.3ld". */
struct conversion {
    bool star_width = false;
    bool star_precision = false;
    length size = length::none;
    char letter = 0; /* 0: the format ends before the letter */
};

constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

/* Reads the conversion after a "%" and removes it from the text. */
constexpr conversion next_conversion(std::string_view &text)
{
    const auto take = [&text](char c) {
        if (!text.starts_with(c))
            return false;
        text.remove_prefix(1);
        return true;
    };
    const auto digits = [&text] {
        while (!text.empty() && is_digit(text[0]))
            text.remove_prefix(1);
    };
    conversion found;
    while (take('-') || take('+') || take(' ') || take('#') || take('0') || take('\'')) {
    }
    found.star_width = take('*');
    digits();
    if (take('.')) {
        found.star_precision = take('*');
        digits();
    }
    if (take('h'))
        take('h');  // the argument is promoted to int for "%hd" and "%hhd" too
    else if (take('l'))
        found.size = take('l') ? length::ll : length::l;
    else if (take('z'))
        found.size = length::z;
    else if (take('j'))
        found.size = length::j;
    else if (take('t'))
        found.size = length::t;
    else if (take('L'))
        found.size = length::L;
    if (!text.empty()) {
        found.letter = text[0];
        text.remove_prefix(1);
    }
    return found;
}

/* Whether T, which is promoted, is the integer type of that length. An int fits "%u" too. */
template <class T>
constexpr bool is_integer(length size, bool is_signed)
{
    if constexpr (!std::integral<T>) {
        return false;
    } else {
        const auto one_of = [is_signed]<class S, class U>(S, U) {
            return is_signed ? std::same_as<T, S> : std::same_as<T, U>;
        };
        switch (size) {
        case length::none: return one_of(int{}, unsigned{}) || std::same_as<T, int>;
        case length::l: return one_of(long{}, 0UL);
        case length::ll: return one_of(0LL, 0ULL);
        case length::z: return one_of(std::make_signed_t<std::size_t>{}, std::size_t{});
        case length::j: return one_of(std::intmax_t{}, std::uintmax_t{});
        case length::t: return one_of(std::ptrdiff_t{}, std::make_unsigned_t<std::ptrdiff_t>{});
        default: return false;
        }
    }
}

/* Whether an argument of type T fits the conversion. */
template <class T>
constexpr bool fits(const conversion &wanted)
{
    using Promoted = promoted<T>;
    const length size = wanted.size;
    switch (wanted.letter) {
    case 'd':
    case 'i': return is_integer<Promoted>(size, true);
    case 'u':
    case 'o':
    case 'x':
    case 'X': return is_integer<Promoted>(size, false);
    case 'c': return size == length::none && std::same_as<Promoted, int>;
    case 'a':
    case 'A':
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
        return size == length::L ? std::same_as<Promoted, long double>
                                 : size <= length::l && std::same_as<Promoted, double>;
    case 's': return size == length::none && terminated<std::decay_t<T>>;
    case 'p': return size == length::none && std::is_pointer_v<std::decay_t<T>>;
    default: return false;
    }
}

/* What is wrong with the arguments of a format: too few, too many, or one of the wrong type. */
enum class fault { none, few, many, misfit };

/*
 * Checks the conversions of a format against the types of its arguments. A star takes an argument
 * of its own, but a std::string_view is both the precision and the text of "%.*s".
 */
template <class... Args>
constexpr fault check(std::string_view format)
{
    using Takes = bool (*)(const conversion &);
    constexpr std::size_t n = sizeof...(Args);
    constexpr Takes takes[n + 1] = {fits<Args>..., nullptr};
    constexpr bool is_view[n + 1] = {std::same_as<std::decay_t<Args>, std::string_view>..., false};
    constexpr bool is_int[n + 1] = {std::same_as<promoted<Args>, int>..., false};
    std::size_t used = 0;
    while (true) {
        const std::size_t percent = format.find('%');
        if (percent == format.npos)
            return used == n ? fault::none : fault::many;
        format.remove_prefix(percent + 1);
        if (format.starts_with('%')) {
            format.remove_prefix(1);
            continue;
        }
        const conversion wanted = next_conversion(format);
        if (wanted.star_width && used < n && !is_int[used++])
            return fault::misfit;
        if (used == n)
            return fault::few;
        if (is_view[used]) {
            if (wanted.letter != 's' || !wanted.star_precision || wanted.size != length::none)
                return fault::misfit;
            ++used;
            continue;
        }
        if (wanted.star_precision && !is_int[used++])
            return fault::misfit;
        if (used == n)
            return fault::few;
        if (!takes[used++](wanted))
            return fault::misfit;
    }
}

/*
 * These functions are not constexpr, so calling one in a constant expression is an error. Its name
 * is the message that the user reads.
 */
void too_few_arguments_for_the_format();
void too_many_arguments_for_the_format();
void an_argument_does_not_fit_its_conversion_or_a_string_view_lacks_a_precision_star();

/*
 * A printf format that was checked against its arguments. Only a constant can be converted to it.
 */
template <class... Args>
class format {
public:
    consteval format(const char *text) : text_(text)
    {
        switch (check<Args...>(text)) {
        case fault::none: break;
        case fault::few: too_few_arguments_for_the_format(); break;
        case fault::many: too_many_arguments_for_the_format(); break;
        case fault::misfit:
            an_argument_does_not_fit_its_conversion_or_a_string_view_lacks_a_precision_star();
        }
    }
    const char *c_str() const noexcept { return text_; }

private:
    const char *text_;
};

/* The arguments of "%.*s" for a text that need not end with a zero byte. */
inline std::tuple<int, const char *> counted(std::string_view text) noexcept
{
    constexpr std::size_t most = INT_MAX;
    return {static_cast<int>(std::min(text.size(), most)), text.empty() ? "" : text.data()};
}

/* An argument in the form that printf takes: a tuple, which has two elements for a string view. */
template <class T>
auto passed(const T &argument) noexcept
{
    using D = std::decay_t<const T &>;
    if constexpr (std::same_as<D, std::string_view>)
        return counted(argument);
    else if constexpr (std::same_as<D, std::string> || std::same_as<D, text>)
        return std::tuple<const char *>(argument.c_str());
    else
        return std::tuple<D>(argument);
}

/* The compiler cannot see here that the format was checked. */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <auto Function, class... Args>
void send(int flag, const char *text, const Args &...args)
{
    std::apply([&](auto... values) { Function(flag, text, values...); },
               std::tuple_cat(passed(args)...));
}
#pragma GCC diagnostic pop

template <auto Function>
void send_text(int flag, std::string_view text)
{
    const auto [size, start] = counted(text);
    Function(flag, "%.*s", size, start);
}

}  // namespace detail

/*
 * Report a message. Each severity has a function, which calls the function of elog.h with elog_
 * before its name, in these forms:
 *
 *     complain(text)                          prints the text unchanged, up to its first
 *                                             zero byte; "%" has no meaning
 *     complain(format, argument...)           formats as printf does
 *     complain(with_errno, ...)               either of these, with the meaning of errno
 *
 * The format must be a constant. It is checked against the arguments: too few or too many, or one
 * whose type does not fit its conversion, do not compile, whatever the warnings. %s takes a char
 * pointer, a std::string or a text. %.*s takes a std::string_view in place of length and text. %n,
 * %m and numbered arguments are refused.
 *
 *     report::complain(with_errno, "can't open %s", path);
 *     report::notify("%.*s: %zu samples", name, samples.size());
 *
 * die and fault do not return. Threads: as elog.h says.
 */
#define STOCK_SEVERITY(attribute, name, function, end)                                             \
    attribute inline void name(std::string_view message)                                           \
    {                                                                                              \
        detail::send_text<function>(0, message);                                                   \
        end;                                                                                       \
    }                                                                                              \
    attribute inline void name(with_errno_t, std::string_view message)                             \
    {                                                                                              \
        detail::send_text<function>(1, message);                                                   \
        end;                                                                                       \
    }                                                                                              \
    template <class First, class... Rest>                                                          \
    attribute void name(                                                                           \
        detail::format<std::type_identity_t<First>, std::type_identity_t<Rest>...> format,         \
        const First &first, const Rest &...rest)                                                   \
    {                                                                                              \
        detail::send<function>(0, format.c_str(), first, rest...);                                 \
        end;                                                                                       \
    }                                                                                              \
    template <class First, class... Rest>                                                          \
    attribute void name(                                                                           \
        with_errno_t,                                                                              \
        detail::format<std::type_identity_t<First>, std::type_identity_t<Rest>...> format,         \
        const First &first, const Rest &...rest)                                                   \
    {                                                                                              \
        detail::send<function>(1, format.c_str(), first, rest...);                                 \
        end;                                                                                       \
    }

STOCK_SEVERITY(, log, elog_log, )
STOCK_SEVERITY(, debug, elog_debug, )
STOCK_SEVERITY(, notify, elog_notify, )
STOCK_SEVERITY(, alert, elog_alert, )
STOCK_SEVERITY(, complain, elog_complain, )
STOCK_SEVERITY([[noreturn]], die, elog_die, __builtin_unreachable())
STOCK_SEVERITY([[noreturn]], fault, elog_fault, __builtin_unreachable())
#undef STOCK_SEVERITY

}  // namespace stock::report

#endif
