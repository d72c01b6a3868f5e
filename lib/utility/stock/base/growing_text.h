// A text that is built from pieces of an input and grows only for what replaces them.

#pragma once

#include <cstddef>
#include <string_view>

#include "base/alloc.h"

namespace stock {

class GrowingText {
public:
    GrowingText(std::size_t size, const char *item, const char *function,
                int line = __builtin_LINE(), const char *file = __builtin_FILE())
        : size_(size), item_(item), function_(function), line_(line), file_(file),
          text_(static_cast<char *>(allocate(size, item, function, line, file)))
    {
    }

    // Text of the input, for which there is room.
    void add(std::string_view text)
    {
        text.copy(text_.get() + length_, text.size());
        length_ += text.size();
    }

    // What replaces a piece of the input, with `remaining` characters of it to come.
    void add_value(std::string_view value, std::size_t remaining)
    {
        if (length_ + value.size() + remaining + 1 > size_) {
            size_ = length_ + value.size() + remaining + 2;
            text_.reset(static_cast<char *>(
                reallocate(text_.release(), size_, item_, function_, line_, file_)));
        }
        add(value);
    }

    // The finished text, which is the caller's.
    char *finish()
    {
        text_.get()[length_] = 0;
        return text_.release();
    }

private:
    std::size_t size_;
    std::size_t length_ = 0;
    const char *item_;
    const char *function_;
    int line_;
    const char *file_;
    Owned<char> text_;
};

}  // namespace stock
