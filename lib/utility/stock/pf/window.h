// A window over text that is read while it is looked at.
//
// The window holds the text from the first byte that is still needed to the last
// one that was read, followed by a zero byte. A scanner runs its pointer forward
// without asking for the end; at the zero byte it asks for more, and the window
// reads on, moving what is still needed to the front of its buffer or into a larger
// one. A text that ends with a zero byte is its own window and is never copied.
//
// Each byte is moved a bounded number of times, however long a token grows. The
// first zero byte of the input ends the text.

#pragma once

#include <cstddef>
#include <cstdio>
#include <utility>

#include <sys/types.h>

namespace stock {

// Where text is read from: at most room bytes go to `to`. Gives how many did, 0 at
// the end, -1 with errno on failure.
struct Reader {
    ssize_t (*read)(Reader &reader, char *to, std::size_t room);
    int fd = -1;
    FILE *stream = nullptr;
    const char *text = nullptr;
    std::size_t left = 0;
    const char *no_memory = "out of dynamic memory in PF_create_buffer()";
};

// From a descriptor of any kind: in blocks, waiting for one that would block.
Reader reader_of(int fd);

// From a stream: line by line, so that nothing behind the last line is taken.
Reader reader_of(FILE *stream);

// From the first count bytes of a text, which outlives the reader.
Reader reader_of(const char *text, std::size_t count);

// Memory from malloc that one window after the other reads into.
struct Buffer {
    char *bytes = nullptr;
    std::size_t size = 0;
};

class Window {
public:
    // A text that ends with a zero byte and outlives the window.
    explicit Window(const char *text);

    // What a reader gives, read into the buffer.
    Window(const Reader &reader, Buffer buffer);

    Window(const Window &) = delete;
    Window &operator=(const Window &) = delete;

    // The first byte that is needed. The scanner moves it forward.
    const char *start;

    // Asked at the zero byte p of the window: reads on. True when there is more,
    // with start and p moved along with the text; false at the end of the text.
    bool more(const char *&p);

    // The errno of a read that failed, where the text ends then; else 0.
    int error() const { return error_; }

    // The zero byte behind what was read so far.
    const char *end() const { return end_; }

    // The window's buffer, for the next window. The text is gone.
    Buffer release() { return std::exchange(buffer_, {}); }

private:
    void make_room();

    Reader reader_{};
    Buffer buffer_{};
    const char *end_;
    int error_ = 0;
};

}  // namespace stock
