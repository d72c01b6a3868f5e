// numbers/convert_loops.h compiled for x86-64 with AVX-512.

#include "numbers/convert_loops.h"

#if defined(__x86_64__)

namespace {

struct Avx512 {
    static constexpr std::size_t kVector = 64;

    template <class Loop>
    [[gnu::target("avx512f,avx512bw,avx512dq,avx512vl")]] static bool run(const char *from,
                                                                          char *to, std::size_t n)
    {
        return Loop::run(from, to, n);
    }
};

}  // namespace

constinit const stock::Loops stock::kAvx512Loops = loops_of<Avx512>();

#endif
