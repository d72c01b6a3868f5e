// Regular expressions that are compiled once.

#include "stock/strmatches.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex.h>

#include "stock/elog.h"
#include "support/owners.h"

namespace {

// A hook that is freed at the end of the scope.
struct Cached {
    Hook *hook = nullptr;

    Cached() = default;
    ~Cached() { free_hook(&hook); }
    Cached(const Cached &) = delete;
    Cached &operator=(const Cached &) = delete;
};

// The result of strcontains with the start and the length of the match.
struct Found {
    int result, start, length;
    bool operator==(const Found &) const = default;
};

Found found(const char *string, const char *pattern)
{
    Found f{0, -9, -9};
    f.result = strcontains(string, pattern, nullptr, &f.start, &f.length);
    return f;
}

std::string logged_by(int (*run)())
{
    elog_clear();
    run();
    const Text text(elog_string(0));
    elog_clear();
    return text.get();
}

}  // namespace

TEST(Strmatches, IsTrueOfAMatchOfTheWholeString)
{
    EXPECT_EQ(strmatches("abc", "abc", nullptr), 1);
    EXPECT_EQ(strmatches("abc", "a.*", nullptr), 1);
    EXPECT_EQ(strmatches("abc", "(x|ab)c", nullptr), 1);
    EXPECT_EQ(strmatches("", "x*", nullptr), 1);
    EXPECT_EQ(strmatches("ab", "a|ab", nullptr), 1);
}

TEST(Strmatches, IsFalseOfAMatchInsideTheString)
{
    EXPECT_EQ(strmatches("abc", "b", nullptr), 0);
    EXPECT_EQ(strmatches("abc", "ab", nullptr), 0);
    EXPECT_EQ(strmatches("abc", "bc", nullptr), 0);
    EXPECT_EQ(strmatches("abc", "x", nullptr), 0);
    EXPECT_EQ(strmatches("abc", "ABC", nullptr), 0);
}

TEST(Strmatches, LooksAtTheFirstMatchOnly)
{
    // The empty match at 0 comes first and does not reach the end.
    EXPECT_EQ(strmatches("ba", "a*", nullptr), 0);
}

TEST(Strmatches, MatchesNothingForANullString)
{
    EXPECT_EQ(strmatches(nullptr, "a*", nullptr), 0);
}

TEST(Strcontains, FindsTheFirstMatch)
{
    EXPECT_EQ(found("abc", "b"), (Found{1, 1, 1}));
    EXPECT_EQ(found("abcabc", "bc"), (Found{1, 1, 2}));
    EXPECT_EQ(found("abc", "$"), (Found{1, 3, 0}));
    EXPECT_EQ(found("a\nb", "^b"), (Found{0, 0, 0}));
}

TEST(Strcontains, SetsStartAndLengthToZeroWithoutAMatch)
{
    EXPECT_EQ(found("abc", "x"), (Found{0, 0, 0}));
    EXPECT_EQ(found("abc", "("), (Found{-2, 0, 0}));
    EXPECT_EQ(found(nullptr, "x*"), (Found{0, 0, 0}));
    elog_clear();
}

TEST(Strcontains, WritesThroughThePointersThatAreGiven)
{
    int start = -9, length = -9;
    EXPECT_EQ(strcontains("abc", "bc", nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(strcontains("abc", "bc", nullptr, &start, nullptr), 1);
    EXPECT_EQ(strcontains("abc", "bc", nullptr, nullptr, &length), 1);
    EXPECT_EQ(start, 1);
    EXPECT_EQ(length, 2);
}

TEST(Strcontains, UsesMoreThanTenGroups)
{
    EXPECT_EQ(found("xabcdefghijkl", "(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)(k)(l)"), (Found{1, 1, 12}));
}

TEST(MatchCache, MakesAHookThatKeepsItsPattern)
{
    Cached c;
    EXPECT_EQ(strmatches("p", "p", &c.hook), 1);
    ASSERT_NE(c.hook, nullptr);
    const Hook *made = c.hook;
    EXPECT_EQ(strmatches("p", "q", &c.hook), 1);
    EXPECT_EQ(strmatches("q", "q", &c.hook), 0);
    EXPECT_EQ(strmatches("p", nullptr, &c.hook), 1);
    EXPECT_EQ(c.hook, made);
}

TEST(MatchCache, ServesBothFunctions)
{
    Cached c;
    int start = 0, length = 0;
    EXPECT_EQ(strmatches("xax", "a", &c.hook), 0);
    EXPECT_EQ(strcontains("xax", "a", &c.hook, &start, &length), 1);
    EXPECT_EQ(start, 1);
    EXPECT_EQ(length, 1);
}

TEST(MatchCache, KeepsACopyOfThePattern)
{
    Cached c;
    char pattern[] = "a+";
    EXPECT_EQ(strmatches("aaa", pattern, &c.hook), 1);
    pattern[0] = 'b';
    EXPECT_EQ(strmatches("aaa", pattern, &c.hook), 1);
}

TEST(MatchCache, GivesMinusTwoWhenThePatternDoesNotCompileAndMinusOneLater)
{
    Cached c;
    EXPECT_EQ(strmatches("a", "(", &c.hook), -2);
    EXPECT_EQ(strmatches("a", "(", &c.hook), -1);
    EXPECT_EQ(strcontains("a", "a", &c.hook, nullptr, nullptr), -1);
    elog_clear();
}

TEST(MatchCache, GivesMinusTwoEveryTimeWithoutAHook)
{
    EXPECT_EQ(strmatches("a", "(", nullptr), -2);
    EXPECT_EQ(strmatches("a", "(", nullptr), -2);
    EXPECT_EQ(strcontains("a", "(", nullptr, nullptr, nullptr), -2);
    elog_clear();
}

TEST(MatchCache, LogsWhyThePatternDoesNotCompile)
{
    regex_t compiled;
    char reason[128];
    regerror(regcomp(&compiled, "(", REG_EXTENDED), &compiled, reason, sizeof reason);
    const std::string logged = logged_by([] { return strmatches("a", "(", nullptr); });
    EXPECT_THAT(logged, testing::EndsWith(std::string(": '(' did not compile: ") + reason + "\n"));
}

TEST(MatchCache, LogsTheReasonOnce)
{
    static Cached c;
    logged_by([] { return strmatches("a", "(", &c.hook); });
    EXPECT_EQ(logged_by([] { return strmatches("a", "(", &c.hook); }), "");
}

TEST(MatchCache, DoesNotCompileANullPattern)
{
    Cached c;
    EXPECT_EQ(strmatches("a", nullptr, &c.hook), -2);
    EXPECT_EQ(strmatches("a", "a", &c.hook), -1);
    elog_clear();
}

TEST(MatchCache, GivesMinusOneForAHookThatHoldsNothing)
{
    Cached c;
    c.hook = new_hook(nullptr);
    EXPECT_EQ(strmatches("a", "a", &c.hook), -1);
}

TEST(MatchCache, MatchesLongTexts)
{
    Cached c;
    const std::string text(100'000, 'a');
    EXPECT_EQ(strmatches(text.c_str(), "a*", &c.hook), 1);
    EXPECT_EQ(strmatches((text + "b").c_str(), "a*", &c.hook), 0);
}
