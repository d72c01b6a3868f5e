// Decimal numbers read the same in every locale.

#include "numbers/decimal.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <locale>  // where systems differ on what declares strtod_l, it knows

#include <locale.h>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/guards.h"

namespace stock {

namespace {

// What a number starts with behind its sign, "inf" and "nan" included; strtod takes
// blanks and signs as well.
bool starts_a_number(const char *first, const char *last)
{
    const char c = first == last ? '\0' : lower(*first);
    return is_digit(c) || c == '.' || c == 'i' || c == 'n';
}

// Of "0x" from_chars reads the 0.
bool is_hexadecimal(const char *first, const char *last)
{
    return last - first > 1 && *first == '0' && (first[1] == 'x' || first[1] == 'X');
}

}  // namespace

double strtod_in_c(const char *text, char **end)
{
    static const locale_t c = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(text, end, c);
}

std::from_chars_result read_with_strtod(const char *first, const char *last, double &value)
{
    const char *digits = first != last && *first == '-' ? first + 1 : first;
    if (!starts_a_number(digits, last))
        return {first, std::errc::invalid_argument};
    if (is_hexadecimal(digits, last))
        last = digits + 1;
    const auto size = static_cast<std::size_t>(last - first);
    const Owned<char> copy(static_cast<char *>(allocate(size + 1, "copy")));
    std::memcpy(copy.get(), first, size);
    copy.get()[size] = '\0';

    const KeepErrno keep;
    errno = 0;
    char *end = nullptr;
    const double number = strtod_in_c(copy.get(), &end);
    const char *stop = first + (end - copy.get());
    if (stop == first)
        return {first, std::errc::invalid_argument};
    if (errno == ERANGE && (number == 0 || std::isinf(number)))
        return {stop, std::errc::result_out_of_range};
    value = number;
    return {stop, std::errc()};
}

}  // namespace stock
