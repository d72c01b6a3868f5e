// The text of an error number, safe in every thread.

#pragma once

#include <cstring>

namespace stock {

// Systems declare strerror_r in two ways: one returns the text, the other a status and writes
// the text to the buffer. The overloads pick the text for either.
inline char *strerror_text(char *text, char *)
{
    return text;
}
inline char *strerror_text(int, char *buffer)
{
    return buffer;
}

// The text of the error, in the buffer or in a constant. Null or empty when there is none.
inline char *errno_text(int error, char *buffer, std::size_t size)
{
    *buffer = '\0';
    return strerror_text(strerror_r(error, buffer, size), buffer);
}

}  // namespace stock
