// Shared: the limits of parameter text, and whether a parse runs.

#pragma once

#include <atomic>
#include <cstddef>

namespace stock {

constexpr int kMaxOpenContainers = 11;      // lists and tables around each other
constexpr std::size_t kMaxKeyBytes = 1023;  // a longer key is cut

// How many parses run in this process. While it is not 0, the log does not read its
// settings file: the parse that runs may be what reports.
extern std::atomic<int> Pf_busy;

// Counts a parse in Pf_busy for its scope.
class CountedParse {
public:
    CountedParse() { ++Pf_busy; }
    ~CountedParse() { --Pf_busy; }
    CountedParse(const CountedParse &) = delete;
    CountedParse &operator=(const CountedParse &) = delete;
};

}  // namespace stock
