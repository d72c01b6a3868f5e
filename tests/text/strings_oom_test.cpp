// The messages of the text functions when memory runs out.

#include "stock/strings.h"

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "stock/basicread.h"
#include "stock/expand_env.h"
#include "stock/hook.h"
#include "stock/strmatches.h"
#include "support/child.h"
#include "support/out_of_memory.h"
#include "support/printed.h"
#include "support/temp_dir.h"

namespace {

char *matches_all = const_cast<char *>(".*");

}  // namespace

TEST(StringsOutOfMemory, NamesTheItemTheFunctionAndTheSize)
{
    setenv("BIG", std::string(3000, 'x').c_str(), 1);
    void *stack = nullptr;
    const std::string record = std::to_string(sizeof(Vstk));
    const struct {
        long successes;
        std::function<void()> body;
        std::string text;
    } cases[] = {
        {0, [] { memdup("abc", 3); }, message("memdup", "strings.cpp", "3", "b")},
        {0, [] { spaces(1); }, message("spaces", "strings.cpp", "64", "buf[ibuf]")},
        {0, [&] { pushstr(&stack, "a"); }, message("pushstr", "pushstr.cpp", record, "vstk")},
        {1, [&] { pushstr(&stack, "a"); }, message("pushstr", "pushstr.cpp", "1024", "vstk->s")},
        {0, [&] { pushstrc(&stack, 'a'); }, message("pushstrc", "pushstr.cpp", record, "vstk")},
        {0, [&] { pushstrn(&stack, "a", 1); }, message("pushstrn", "pushstr.cpp", record, "vstk")},
        {1, [&] { pushstrn(&stack, "a", 300); },
         message("pushstrn", "pushstr.cpp", "1500", "vstk->s")},
        {2,
         [&] {
             pushstr(&stack, "a");
             pushstrn(&stack, "a", 5000);
         },
         message("pushstrn", "pushstr.cpp", "5003", "vstk->s")},
        {0, [&] { popstr(&stack, 1); }, message("popstr", "pushstr.cpp", "1", "vstk->s")},
        {0, [] { strhead("a\nb", 1, ">"); }, message("strhead", "pushstr.cpp", "9", "result")},
        {0, [] { new_hook(nullptr); },
         message("new_hook", "hook.cpp", std::to_string(sizeof(Hook)), "hook")},
        {0, [] { expand_env("$HOME"); }, message("expand_env", "expand_env.cpp", "1024", "result")},
        {1, [] { expand_env("<$BIG>"); },
         message("expand_env", "expand_env.cpp", "3004", "result")},
        {0, [] { expand_env("home"); }, message("expand_env", "expand_env.cpp", "5", "result")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_THAT(said_by(c.successes, c.body), testing::EndsWith(c.text));
    }
}

TEST(StringsOutOfMemory, EndsTheProcessOverASizeThatOverflows)
{
    void *stack = nullptr;
    EXPECT_THAT(
        said_by(-1, [&] { pushstrn(&stack, "a", INT64_MAX); }),
        testing::EndsWith(message("pushstrn", "pushstr.cpp", "18446744073709551615", "vstk->s")));
}

TEST(StringsOutOfMemory, NamesTheRecordOfTheMatchCache)
{
    Hook *hook = nullptr;
    EXPECT_THAT(said_by(1, [&] { strmatches("a", matches_all, &hook); }),
                testing::ContainsRegex("Out of memory in strmatches of 'strmatches.cpp'\n"
                                       "\tCan't malloc [0-9]+ bytes for pvt\n"));
    EXPECT_THAT(said_by(2, [&] { strcontains("a", matches_all, &hook, nullptr, nullptr); }),
                testing::EndsWith(message("strcontains", "strmatches.cpp", "3", "pvt")));
}

TEST(StringsOutOfMemory, NamesTheLineThatIntactlineReads)
{
    const Stream stream = stream_of(std::string(5000, 'x'));
    char buffer[64];
    setvbuf(stream.get(), buffer, _IOFBF, sizeof buffer);
    char *line = nullptr;
    int64_t size = 0;
    EXPECT_THAT(said_by(0, [&] { intactline(stream.get(), &line, &size); }),
                testing::EndsWith(message("intactline", "strings.cpp", "1024", "*aline")));
    EXPECT_THAT(said_by(1, [&] { intactline(stream.get(), &line, &size); }),
                testing::EndsWith(message("intactline", "strings.cpp", "2048", "*aline")));
    EXPECT_THAT(said_by(2, [&] { intactline(stream.get(), &line, &size); }),
                testing::EndsWith(message("intactline", "strings.cpp", "4096", "*aline")));
}

// A stack used to end the process when the rounded block was refused, though a block of the
// exact size could be had.
TEST(StringsOutOfMemory, AStackTakesTheExactSizeWhenTheRoundedOneIsRefused)
{
    const Ended ended = in_child([] {
        void *stack = nullptr;
        pushstr(&stack, std::string(10'000, 'a').c_str());  // 50,000 bytes
        fail_allocations_from(90'102);
        pushstr(&stack, std::string(80'000, 'b').c_str());
        for (int i = 0; i < 100; ++i)
            pushstrc(&stack, 'c');
        fail_allocations_from(SIZE_MAX);
        const std::string text = popstr(&stack, 0);
        _exit(text == std::string(10'000, 'a') + std::string(80'000, 'b') + std::string(100, 'c')
                  ? 0
                  : 9);
    });
    EXPECT_EQ(ended.status, 0) << ended.err;
}

TEST(StringsOutOfMemory, AStackNamesTheExactSizeWhichIsTriedLast)
{
    const Ended ended = in_child([] {
        void *stack = nullptr;
        pushstr(&stack, "a");
        fail_allocations_from(90'002);
        pushstr(&stack, std::string(90'000, 'b').c_str());
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, testing::HasSubstr("Can't malloc 90002 bytes for vstk->s\n"));
}

TEST(StringsOutOfMemory, ExpandEnvAsksForWhatItHasTheValueTheRestAndTwo)
{
    setenv("GAUGE", std::string(3000, 'x').c_str(), 1);
    EXPECT_THAT(said_by(1, [] { expand_env("north$GAUGE south"); }),
                testing::EndsWith(message("expand_env", "expand_env.cpp", "3013", "result")));
}

TEST(StringsOutOfMemory, IsAnErrorLikeAnyOtherToBasicreadfile)
{
    const TempDir dir;
    const std::string path = dir.file("f", "text");
    const Ended ended = in_child([&] {
        char *buffer = nullptr;
        int64_t size = 0;
        fail_allocations_after(0);
        _exit(basicreadfile(path.c_str(), &buffer, &size) == -1 && !buffer && !size ? 0 : 9);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "failed to allocate buffer to hold " + path + " : Cannot allocate memory");
}
