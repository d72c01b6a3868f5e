// A window over a text: the part of it that is in memory while the scanner reads it.
//
// The window holds the text from the first byte that the scanner still needs to the last one
// that was read, followed by a zero byte. The scanner moves its pointer forward without a test
// for the end. At the zero byte it asks for more; the window then moves what is still needed to
// the front of its buffer, or into a larger one, and reads on. A text in memory that ends with
// a zero byte is its own window and is never copied.
//
// The first zero byte of the input ends the text.

#pragma once

#include <cstddef>
#include <cstdio>
#include <utility>

#include <sys/types.h>

namespace stock {

// What a window reads from: a descriptor, a stream or a text.
struct Reader {
    // Reads at most `room` bytes to `to`. Gives their number, 0 at the end of the input, and
    // -1 with errno on failure.
    ssize_t (*read)(Reader &reader, char *to, std::size_t room);
    int fd = -1;
    FILE *stream = nullptr;
    const char *text = nullptr;  // what is left of it,
    std::size_t left = 0;        // and how many bytes that is
    const char *no_memory = "out of dynamic memory in PF_create_buffer()";
};

// Reads a descriptor of any kind in blocks. One that does not block is waited for.
Reader reader_of(int fd);

// Reads a stream line by line, so that what stands behind an end mark stays in the stream.
Reader reader_of(FILE *stream);

// Reads the first count bytes of a text, which must outlive the reader.
Reader reader_of(const char *text, std::size_t count);

// Memory from malloc that one parse after the other uses.
struct Buffer {
    char *bytes = nullptr;
    std::size_t size = 0;
};

class Window {
public:
    // Over a text in memory that ends with a zero byte. It must outlive the window.
    explicit Window(const char *text);

    // Over what a reader gives, which is read into the buffer. The window owns the buffer.
    Window(const Reader &reader, Buffer buffer);

    Window(const Window &) = delete;
    Window &operator=(const Window &) = delete;

    // The first byte that is still needed. The scanner moves it forward.
    const char *start;

    // Reads on; p points to the zero byte of the window. True when there is more: start and p
    // are then moved along with the text. False at the end of the text.
    bool more(const char *&p);

    // The errno of a read that failed, which ended the text there; else 0.
    int error() const { return error_; }

    // The zero byte behind what was read so far.
    const char *end() const { return end_; }

    // Gives the buffer away. The text is gone then.
    Buffer release() { return std::exchange(buffer_, {}); }

private:
    void make_room();

    Reader reader_{};
    Buffer buffer_{};
    const char *end_;
    int error_ = 0;
};

}  // namespace stock
