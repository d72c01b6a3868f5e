/*
 * strings.hpp - a class that owns a string from the library, and a class for string arguments.
 */

#ifndef STOCK_STRINGS_HPP
#define STOCK_STRINGS_HPP

#include <compare>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "stock/strings.h"

namespace stock {

/*
 * Owns a string from malloc, such as functions of stock return, and frees it.
 *
 *     const stock::text when(strtime(now));
 *     std::cout << when.view();
 *
 * Without a string (made from null, moved from, released) it reads as the empty string.
 */
class text {
public:
    text() = default;
    explicit text(char *owned) noexcept : string_(owned) {}

    /*
     * The string, never null. It is borrowed: valid until the text is moved, released or destroyed.
     */
    const char *c_str() const noexcept { return string_ ? string_.get() : ""; }
    std::string_view view() const noexcept { return c_str(); }
    operator std::string_view() const noexcept { return view(); }

    bool empty() const noexcept { return !*c_str(); }
    /* Counts the characters each time, as strlen does. */
    std::size_t size() const noexcept { return view().size(); }
    /* Whether there is a string: some functions return null. */
    explicit operator bool() const noexcept { return string_ != nullptr; }

    /* Returns the string, or null, and leaves the text empty. The caller frees it with free. */
    [[nodiscard]] char *release() noexcept { return string_.release(); }

    friend bool operator==(const text &a, const text &b) noexcept { return a.view() == b.view(); }
    friend bool operator==(const text &a, std::string_view b) noexcept { return a.view() == b; }
    friend auto operator<=>(const text &a, const text &b) noexcept { return a.view() <=> b.view(); }
    friend auto operator<=>(const text &a, std::string_view b) noexcept { return a.view() <=> b; }

private:
    struct Free {
        void operator()(char *string) const noexcept { std::free(string); }
    };
    std::unique_ptr<char, Free> string_;
};

/*
 * A string argument that ends with a zero byte, as the functions of stock require: a constant, a
 * std::string or a text. A std::string_view has no such end, so it does not compile. It does not
 * own the string: use it only for arguments.
 */
class zstring {
public:
    zstring(const char *string) noexcept : string_(string) {}
    zstring(const std::string &string) noexcept : string_(string.c_str()) {}
    zstring(const text &string) noexcept : string_(string.c_str()) {}
    zstring(std::nullptr_t) = delete;

    const char *c_str() const noexcept { return string_; }

private:
    const char *string_;
};

}  // namespace stock

#endif
