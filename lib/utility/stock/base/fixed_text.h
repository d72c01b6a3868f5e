// A text of bounded length that is built at its end; what does not fit is cut.
//
// FixedText writes into memory of its user, FixedTextOf<N> brings N bytes of its own. Both
// print numbers as printf does in the C locale, whatever the process's locale. Nothing is
// allocated, so that the log and a signal handler may use them.

#pragma once

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace stock {

class FixedText {
public:
    // Uses `size` bytes at `text`, at least one, the terminator included. The first `length`
    // characters, fewer than `size`, are part of the text already.
    FixedText(char *text, std::size_t size, std::size_t length = 0)
        : text_(text), size_(size), length_(length)
    {
    }
    FixedText(const FixedText &) = delete;
    FixedText &operator=(const FixedText &) = delete;

    // Ends the text with a terminator. Until then there is none.
    const char *c_str()
    {
        text_[length_] = '\0';
        return text_;
    }
    char *data() { return text_; }
    std::size_t size() const { return length_; }
    std::string_view view() const { return {text_, length_}; }

    // Characters that can still be added.
    std::size_t room() const { return size_ - 1 - length_; }

    void add(char c)
    {
        if (room() > 0)
            text_[length_++] = c;
    }

    void add(std::string_view text) { length_ += text.copy(text_ + length_, room()); }

    // Adds what printf prints. Unlike the functions below it follows the process's locale.
    [[gnu::format(printf, 2, 3)]] void addf(const char *format, ...)
    {
        va_list args;
        va_start(args, format);
        const int printed = std::vsnprintf(text_ + length_, size_ - length_, format, args);
        va_end(args);
        if (printed > 0)
            length_ += std::min(static_cast<std::size_t>(printed), room());
    }

    // Adds c until the text has `to` characters.
    void fill(std::size_t to, char c)
    {
        while (length_ < to && room() > 0)
            text_[length_++] = c;
    }

    // The next functions add what printf prints for the format in their comment.

    // %d
    void number(std::int64_t value) { whole(value, 0, ' '); }

    // %0WIDTHd and %WIDTHd
    void zeros(std::int64_t value, std::size_t width) { whole(value, width, '0'); }
    void blanks(std::int64_t value, std::size_t width) { whole(value, width, ' '); }

    // %WIDTH.DIGITSf, or %0WIDTH.DIGITSf when the padding is '0'; digits at most 5
    void fixed(double value, std::size_t width, int digits, char padding = ' ')
    {
        const double scale = kTens[digits];
        const double scaled = value * scale;
        const double below = std::trunc(scaled);
        const double rest = scaled - below;
        // The product is rounded: near a half it cannot tell which way printf rounds. Negative,
        // large and special values are left to the exact way as well.
        if (!(value >= 0 && scaled < 1e12) || std::signbit(value) || std::fabs(rest - 0.5) < 1e-3)
            return fixed_exactly(value, width, digits, padding);
        const auto units = static_cast<std::int64_t>(below) + (rest > 0.5);
        const auto ten = static_cast<std::int64_t>(scale);
        const std::size_t behind = digits ? static_cast<std::size_t>(digits) + 1 : 0;
        whole(units / ten, width > behind ? width - behind : 0, padding);
        if (digits) {
            add('.');
            zeros(units % ten, static_cast<std::size_t>(digits));
        }
    }

    // %.DIGITSg
    void general(double value, int digits)
    {
        char text[48];
        const auto end =
            std::to_chars(text, text + sizeof text, value, std::chars_format::general, digits);
        add({text, static_cast<std::size_t>(end.ptr - text)});
    }

private:
    static constexpr double kTens[] = {1, 10, 100, 1000, 10000, 100000};

    void whole(std::int64_t value, std::size_t width, char padding)
    {
        // Most numbers of times have two digits; they need no conversion.
        if (width == 2 && value >= 0 && value < 100) {
            add(value < 10 ? padding : static_cast<char>('0' + value / 10));
            return add(static_cast<char>('0' + value % 10));
        }
        char text[24];
        const auto end = std::to_chars(text, text + sizeof text, value);
        padded({text, static_cast<std::size_t>(end.ptr - text)}, width, padding);
    }

    void fixed_exactly(double value, std::size_t width, int digits, char padding)
    {
        char text[384];  // the largest double has 309 digits
        const auto end =
            std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, digits);
        padded({text, static_cast<std::size_t>(end.ptr - text)}, width,
               std::isfinite(value) ? padding : ' ');
    }

    // Adds the number with padding in front: zeros behind its sign, blanks before it.
    void padded(std::string_view number, std::size_t width, char padding)
    {
        if (padding == '0' && number.starts_with('-')) {
            add('-');
            number.remove_prefix(1);
            width -= width > 0;
        }
        for (; width > number.size(); --width)
            add(padding);
        add(number);
    }

    char *const text_;
    const std::size_t size_;
    std::size_t length_;
};

// A FixedText with memory of its own for kSize - 1 characters and the terminator.
template <std::size_t kSize>
class FixedTextOf : public FixedText {
public:
    FixedTextOf() : FixedText(memory_, kSize) {}

private:
    char memory_[kSize];
};

}  // namespace stock
