// numbers/convert_loops.h compiled for any processor, in plain instructions.

#include "numbers/convert_loops.h"

namespace {

struct Portable {
    static constexpr std::size_t kVector = 0;

    template <class Loop>
    static bool run(const char *from, char *to, std::size_t n)
    {
        return Loop::run(from, to, n);
    }
};

}  // namespace

constinit const stock::Loops stock::kPortableLoops = loops_of<Portable>();
