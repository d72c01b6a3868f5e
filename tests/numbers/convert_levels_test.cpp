// The loops of the number converters, in every set of instructions that this processor has,
// give what the portable ones give.

#include "numbers/convert.h"

#include <gtest/gtest.h>

#include "support/convert_values.h"

namespace {

using stock::Loop;
using stock::Loops;

struct Level {
    const char *name;
    const Loops *loops;
};

std::vector<Level> levels()
{
    std::vector<Level> some{{"portable", &stock::kPortableLoops}};
#if defined(__x86_64__)
    if (__builtin_cpu_supports("ssse3") && __builtin_cpu_supports("sse4.1"))
        some.push_back({"SSE4.1", &stock::kSse41Loops});
    if (__builtin_cpu_supports("avx2"))
        some.push_back({"AVX2", &stock::kAvx2Loops});
    if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512vl"))
        some.push_back({"AVX-512", &stock::kAvx512Loops});
#endif
    return some;
}

// The letters of the types in the order of Number.
const std::string kLetters = "bsilbsilfd";

constexpr char kUntouched = 0x5a;

// The bytes that a loop writes for n values, with a margin behind them, and its result.
std::string outcome(Loop *loop, const char *from, size_t to_width, size_t n, size_t shift)
{
    std::vector<char> to(shift + n * to_width + 64, kUntouched);
    const bool exact = loop(from, to.data() + shift, n);
    return std::string(to.data() + shift, to.size() - shift) + (exact ? "exact" : "inexact");
}

void expect_same(Loop *loop, Loop *portable, char from_type, size_t to_width)
{
    ASSERT_TRUE(loop && portable);
    const std::string values = boundary_values(from_type);
    const size_t width = width_of(from_type), count = values.size() / width;
    for (size_t n :
         {size_t{0}, size_t{1}, size_t{2}, size_t{3}, size_t{7}, size_t{8}, size_t{9}, size_t{15},
          size_t{16}, size_t{17}, size_t{31}, size_t{33}, size_t{127}, size_t{129}, count}) {
        for (size_t shift : {size_t{0}, size_t{1}, size_t{4}}) {
            const size_t first = (count - n) / 3;
            const std::string some =
                std::string(shift, ' ') + values.substr(first * width, n * width);
            EXPECT_EQ(outcome(loop, some.data() + shift, to_width, n, shift),
                      outcome(portable, some.data() + shift, to_width, n, shift))
                << n << " values, shifted by " << shift;
        }
    }
    for (size_t i = 0; i < count; ++i) {
        const char *value = values.data() + i * width;
        EXPECT_EQ(outcome(loop, value, to_width, 1, 0), outcome(portable, value, to_width, 1, 0));
    }
}

void compare_tables(Loop *const (&loops)[stock::kNumbers][stock::kNumbers],
                    Loop *const (&portable)[stock::kNumbers][stock::kNumbers])
{
    int compared = 0;
    for (size_t from = 0; from < stock::kNumbers; ++from) {
        for (size_t to = 0; to < stock::kNumbers; ++to) {
            EXPECT_EQ(loops[from][to] == nullptr, portable[from][to] == nullptr);
            if (!portable[from][to])
                continue;
            SCOPED_TRACE("from " + std::to_string(from) + " to " + std::to_string(to));
            expect_same(loops[from][to], portable[from][to], kLetters[from],
                        width_of(kLetters[to]));
            ++compared;
        }
    }
    EXPECT_EQ(compared, 58);  // 30 signed, 28 unsigned
}

}  // namespace

TEST(ConvertLevels, EveryLevelReadsAsThePortableLoopsDo)
{
    for (const Level &level : levels()) {
        SCOPED_TRACE(level.name);
        compare_tables(level.loops->wrap, stock::kPortableLoops.wrap);
    }
}

TEST(ConvertLevels, EveryLevelWritesAsThePortableLoopsDo)
{
    for (const Level &level : levels()) {
        SCOPED_TRACE(level.name);
        compare_tables(level.loops->clamp, stock::kPortableLoops.clamp);
    }
}

TEST(ConvertLevels, EveryLevelTurnsBytesRoundAsThePortableLoopsDo)
{
    for (const Level &level : levels()) {
        SCOPED_TRACE(level.name);
        for (char type : {'s', 'i', 'l'})
            expect_same(level.loops->reverse[width_of(type)],
                        stock::kPortableLoops.reverse[width_of(type)], type, width_of(type));
    }
}

TEST(ConvertLevels, TurningBytesRoundPastTheCachesGivesTheSame)
{
    for (const Level &level : levels()) {
        SCOPED_TRACE(level.name);
        for (size_t width : {size_t{2}, size_t{4}, size_t{8}}) {
            Loop *const streaming = level.loops->reverse_streaming[width];
            if (!streaming)
                continue;  // portable
            for (size_t n : {size_t{0}, size_t{1}, size_t{7}, size_t{100}, size_t{100000}}) {
                const std::string some = boundary_integers<uint64_t>();
                std::string values;
                while (values.size() < n * width)
                    values += some;
                for (size_t shift : {size_t{0}, width, 3 * width})
                    EXPECT_EQ(outcome(streaming, values.data(), width, n, shift),
                              outcome(stock::kPortableLoops.reverse[width], values.data(), width, n,
                                      shift));
            }
        }
    }
}
