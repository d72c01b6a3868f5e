// Shared: the limits of parameter text, whether a parse runs, and reading settings.

#pragma once

#include <atomic>
#include <cstddef>

struct Pf;

namespace stock {

constexpr int kMaxOpenContainers = 11;      // lists and tables around each other
constexpr std::size_t kMaxKeyBytes = 1023;  // a longer key is cut

// How many parses run in this process. While it is not 0, the log does not read its
// settings file: the parse that runs may be what reports.
extern std::atomic<int> Pf_busy;

// How many of them this thread runs, one inside the other.
extern constinit thread_local int Parses_of_thread __attribute__((tls_model("initial-exec")));

// Counts a parse for its scope.
class CountedParse {
public:
    CountedParse()
    {
        ++Parses_of_thread;
        ++Pf_busy;
    }
    ~CountedParse()
    {
        --Pf_busy;
        --Parses_of_thread;
    }
    CountedParse(const CountedParse &) = delete;
    CountedParse &operator=(const CountedParse &) = delete;
};

// Reads the library's own settings, such as "elog", as pfread does. A file in a relative
// directory of the path is read only when it and a link to it belong to this user or to root and
// others may not write to it; otherwise a message says that it is not read.
int read_settings(const char *name, Pf **pf);

}  // namespace stock
