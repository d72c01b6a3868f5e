// Decimal numbers read with strtod_l and a "C" locale of our own, so that the process's
// locale, which may write a comma for the point, does not matter.

#include "numbers/decimal.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <locale>  // declares strtod_l where systems differ in the header that does

#include <locale.h>

#include "base/alloc.h"
#include "base/ascii.h"
#include "base/guards.h"
#include "numbers/numbers_state.h"

namespace stock {

namespace {

// The "C" locale, made in the first call. Systems have it built in, so this does not fail.
locale_t c_locale()
{
    locale_t kept = Numbers_state.c_locale;
    if (kept)
        return kept;
    const locale_t made = newlocale(LC_ALL_MASK, "C", nullptr);
    if (Numbers_state.c_locale.compare_exchange_strong(kept, made))
        return made;
    freelocale(made);  // another thread was first
    return kept;
}

// Whether from_chars could find a number behind the sign: a digit, a point, "inf" or "nan".
// strtod would also skip blanks and a second sign.
bool may_be_number(const char *first, const char *last)
{
    const char c = first == last ? '\0' : lower(*first);
    return is_digit(c) || c == '.' || c == 'i' || c == 'n';
}

// Whether strtod would read a hexadecimal number; from_chars reads the "0" of "0x1" alone.
bool is_hexadecimal(const char *first, const char *last)
{
    return last - first > 1 && *first == '0' && lower(first[1]) == 'x';
}

}  // namespace

double strtod_in_c(const char *text, char **end)
{
    return strtod_l(text, end, c_locale());
}

std::from_chars_result read_with_strtod(const char *first, const char *last, double &value)
{
    const char *digits = first != last && *first == '-' ? first + 1 : first;
    if (!may_be_number(digits, last))
        return {first, std::errc::invalid_argument};
    if (is_hexadecimal(digits, last))
        last = digits + 1;
    // strtod needs a terminator, which the characters may not have.
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
