// Gathers pieces of text in a buffer of its own and hands the buffer on when it is full.
//
// What it is handed to, the sink, is any function of a std::string_view. Nothing is
// allocated, and pieces are handed on in the order in which they came, so that a signal
// handler may gather what it writes.

#pragma once

#include <cstddef>
#include <cstdio>
#include <string_view>
#include <utility>

namespace stock {

template <std::size_t kSize, class Sink>
class Gatherer {
public:
    explicit Gatherer(Sink sink) : sink_(std::move(sink)) {}
    ~Gatherer() { flush(); }
    Gatherer(const Gatherer &) = delete;
    Gatherer &operator=(const Gatherer &) = delete;

    // Adds a piece, which is not torn apart: when it does not fit, what was gathered is handed
    // on first, and a piece larger than the buffer is handed on by itself.
    void operator()(std::string_view piece)
    {
        if (piece.size() > kSize)
            return hand_on_by_itself(piece);
        advance(piece.copy(room_for(piece.size()), piece.size()));
    }

    // Where the next `bytes` characters may be written, at most kSize of them; what was
    // gathered is handed on first when fewer are free. advance() tells how many were written.
    char *room_for(std::size_t bytes)
    {
        if (kSize - used_ < bytes)
            flush();
        return buffer_ + used_;
    }
    void advance(std::size_t bytes) { used_ += bytes; }

    // Hands on what was gathered.
    void flush()
    {
        if (const std::size_t bytes = std::exchange(used_, 0))
            sink_(std::string_view(buffer_, bytes));
    }

private:
    void hand_on_by_itself(std::string_view piece)
    {
        flush();
        sink_(piece);
    }

    Sink sink_;
    std::size_t used_ = 0;
    char buffer_[kSize];
};

// A sink that writes to a stream. Whether that failed stands in the stream.
struct ToStream {
    std::FILE *stream;

    void operator()(std::string_view text) const
    {
        std::fwrite(text.data(), 1, text.size(), stream);
    }
};

}  // namespace stock
