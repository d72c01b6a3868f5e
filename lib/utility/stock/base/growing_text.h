// A text in the heap that is built at its end and grows as needed.
//
// Running out of memory ends the process with a message that names the item, the function,
// the line and the file given to the constructor: by default the place that constructs.

#pragma once

#include <cstddef>
#include <string_view>

#include "base/alloc.h"

namespace stock {

class GrowingText {
public:
    // Asks for `size` bytes at once; with size 0 for none until something is added.
    GrowingText(std::size_t size, const char *item, const char *function = __builtin_FUNCTION(),
                int line = __builtin_LINE(), const char *file = __builtin_FILE())
        : size_(size), item_(item), function_(function), line_(line), file_(file)
    {
        if (size > 0)
            resize(size);
    }

    // Adds the text. When it does not fit, the memory grows to twice what is used and more,
    // so that many small pieces cost few reallocations.
    void add(std::string_view text)
    {
        if (room() <= text.size())
            resize(2 * (length_ + text.size()) + kSpare);
        append(text);
    }

    // Adds the text where `remaining` more characters are known to follow. When the memory
    // does not hold both and a terminator, it grows to just that and one byte.
    void add(std::string_view text, std::size_t remaining)
    {
        if (room() <= text.size() + remaining)
            resize(length_ + text.size() + remaining + 2);
        append(text);
    }

    // Makes room for `bytes` more, so that adding them asks for no memory.
    void reserve(std::size_t bytes)
    {
        if (room() <= bytes)
            resize(2 * (length_ + bytes) + kSpare);
    }

    // Bytes that can be added, the terminator's included, before the memory must grow.
    std::size_t room() const { return size_ - length_; }

    std::size_t size() const { return length_; }
    std::string_view view() const { return {text_.get(), length_}; }

    // Ends the text with a terminator. It stays this object's and is valid until the next add.
    char *c_str()
    {
        if (room() == 0)
            resize(length_ + 1);
        text_.get()[length_] = '\0';
        return text_.get();
    }

    // The finished text, which the caller frees with free. This object is empty afterwards.
    char *finish()
    {
        c_str();
        size_ = length_ = 0;
        return text_.release();
    }

private:
    static constexpr std::size_t kSpare = 1024;

    void resize(std::size_t size)
    {
        size_ = size;
        text_.reset(
            static_cast<char *>(reallocate(text_.release(), size, item_, function_, line_, file_)));
    }

    void append(std::string_view text) { length_ += text.copy(text_.get() + length_, text.size()); }

    Owned<char> text_;
    std::size_t size_;
    std::size_t length_ = 0;
    const char *item_;
    const char *function_;
    int line_;
    const char *file_;
};

}  // namespace stock
