/*
 * strings.hpp - strings that cross the interface: those that are the caller's to
 * free, and those that are arguments.
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
 * Owns a string that malloc made, as functions of stock return them, and frees it.
 *
 *     const stock::text when(strtime(now));
 *     std::cout << when.view();
 *
 * Without a string (null, moved from) it reads as the empty one.
 */
class text {
public:
    text() = default;
    explicit text(char *owned) noexcept : string_(owned) {}

    /* The string, never null; borrowed until the text changes hands or is destroyed. */
    const char *c_str() const noexcept { return string_ ? string_.get() : ""; }
    std::string_view view() const noexcept { return c_str(); }
    operator std::string_view() const noexcept { return view(); }

    bool empty() const noexcept { return !*c_str(); }
    /* Counted each time, as strlen does. */
    std::size_t size() const noexcept { return view().size(); }
    /* Whether there is a string at all: some functions return null. */
    explicit operator bool() const noexcept { return string_ != nullptr; }

    /* Gives the string up: the caller frees it with free. */
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
 * An argument that ends with a zero byte, as the functions of stock want their
 * strings: from a constant, a std::string or a text. A std::string_view has no such
 * end and does not compile. Borrowed: it is for arguments, not for keeping.
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
