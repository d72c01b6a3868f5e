// numbers/convert_loops.h compiled for x86-64 with AVX2.

#include "numbers/convert_loops.h"

#if defined(__x86_64__)

namespace {

struct Avx2 {
    static constexpr std::size_t kVector = 32;

    template <class Loop>
    [[gnu::target("avx2")]] static bool run(const char *from, char *to, std::size_t n)
    {
        return Loop::run(from, to, n);
    }
};

}  // namespace

constinit const stock::Loops stock::kAvx2Loops = loops_of<Avx2>();

#endif
