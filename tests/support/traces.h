// What is printed, without the stack traces in it.

#pragma once

#include <string>

inline std::string without_traces(std::string text)
{
    const std::string heading = "\n\nStack\n";
    for (size_t at; (at = text.find(heading)) != text.npos;) {
        size_t end = at + heading.size();
        // Every line of a trace ends with the address.
        for (size_t line; (line = text.find('\n', end)) != text.npos && text[line - 1] == ']';)
            end = line + 1;
        text.erase(at, end - at);
    }
    return text;
}
