// The check of the order in which locks are taken, in builds that have it.
//
// Each thread has a set of the places whose locks it holds. Taking a lock is refused when the
// set has the same place or a later one.

#include "base/ordered_lock.h"

#ifdef STOCK_CHECK_LOCKS

#include <bit>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include <unistd.h>

namespace stock::lock_order {

namespace {

// In the order of Place.
constexpr std::string_view kNames[] = {
    "grave",     "methods", "log",        "zone",  "root",   "mappings", "view",
    "directory", "trees",   "references", "parse", "tokens", "formats",  "username",
};
static_assert(std::size(kNames) == static_cast<std::size_t>(Place::username) + 1);

// The places whose locks this thread holds, one bit each. With the initial-exec model its first
// use does not allocate.
constinit thread_local std::uint32_t Held __attribute__((tls_model("initial-exec"))) = 0;

constexpr std::uint32_t bit_of(Place place)
{
    return std::uint32_t{1} << static_cast<unsigned>(place);
}

// Prints with write alone, because the log would take locks itself, and ends the process.
[[noreturn]] void refuse(std::string_view taken, std::string_view held)
{
    for (const std::string_view piece :
         {std::string_view("stock: the lock '"), taken, std::string_view("' is taken while '"),
          held, std::string_view("' is held\n")})
        (void)!::write(STDERR_FILENO, piece.data(), piece.size());
    std::abort();
}

}  // namespace

void check(Place place)
{
    const std::uint32_t later = Held & ~(bit_of(place) - 1);
    if (later)
        refuse(kNames[static_cast<unsigned>(place)],
               kNames[static_cast<unsigned>(std::countr_zero(later))]);
}

void note_taken(Place place)
{
    Held |= bit_of(place);
}

void note_given_up(Place place)
{
    Held &= ~bit_of(place);
}

void forget()
{
    Held = 0;
}

}  // namespace stock::lock_order

#endif
