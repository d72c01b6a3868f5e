// numbers/convert_loops.h compiled for x86-64 with SSSE3 and SSE4.1.

#include "numbers/convert_loops.h"

#if defined(__x86_64__)

namespace {

struct Sse41 {
    static constexpr std::size_t kVector = 16;

    template <class Loop>
    [[gnu::target("ssse3,sse4.1")]] static bool run(const char *from, char *to, std::size_t n)
    {
        return Loop::run(from, to, n);
    }
};

}  // namespace

constinit const stock::Loops stock::kSse41Loops = loops_of<Sse41>();

#endif
