// What a function prints to a stream, and a stream that holds given bytes.

#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

struct CloseStream {
    void operator()(FILE *stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, CloseStream>;  // closed with fclose

// All that `print(stream)` writes.
template <class Print>
std::string printed(Print print)
{
    char *text = nullptr;
    std::size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    print(stream);
    std::fclose(stream);
    std::string result(text, size);
    std::free(text);
    return result;
}

// A stream from which exactly these bytes are read.
inline Stream stream_of(std::string_view bytes)
{
    Stream stream(std::tmpfile());
    std::fwrite(bytes.data(), 1, bytes.size(), stream.get());
    std::rewind(stream.get());
    return stream;
}
