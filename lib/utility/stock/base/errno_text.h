// What an error number means, into the caller's buffer.

#pragma once

#include <cstring>

namespace stock {

// strerror_r gives the text, or a status and leaves the text in the buffer.
inline char *what_it_gave(char *text, char *)
{
    return text;
}
inline char *what_it_gave(int, char *buffer)
{
    return buffer;
}

// The text, in the buffer or a constant; null or empty when there is none.
inline char *errno_text(int error, char *buffer, std::size_t size)
{
    *buffer = '\0';
    return what_it_gave(strerror_r(error, buffer, size), buffer);
}

}  // namespace stock
