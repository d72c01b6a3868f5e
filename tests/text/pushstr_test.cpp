// The string stack, and what is built with it.

#include "stock/pushstr.h"

#include <climits>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/owners.h"

namespace {

// A stack that is released at the end of the scope.
struct Stack {
    void *stack = nullptr;

    Stack() = default;
    ~Stack()
    {
        if (stack)
            free(popstr(&stack, 1));
    }
    Stack(const Stack &) = delete;
    Stack &operator=(const Stack &) = delete;

    const Vstk &record() const { return *static_cast<Vstk *>(stack); }
    std::string text() { return popstr(&stack, 0); }
};

std::string head(const char *text, int n, const char *prefix)
{
    return Text(strhead(text, n, prefix)).get();
}

}  // namespace

TEST(Pushstr, AppendsAndGivesTheLength)
{
    Stack s;
    EXPECT_EQ(pushstr(&s.stack, "one"), 3);
    EXPECT_EQ(pushstr(&s.stack, ""), 3);
    EXPECT_EQ(pushstr(&s.stack, " two"), 7);
    EXPECT_EQ(s.text(), "one two");
    EXPECT_EQ(s.record().length, 7U);
}

TEST(Pushstr, TakesNullForEmpty)
{
    Stack s;
    EXPECT_EQ(pushstr(&s.stack, nullptr), 0);
    EXPECT_NE(s.stack, nullptr);
    EXPECT_EQ(s.text(), "");
}

TEST(Pushstr, AllocatesTheLargerOf1024AndFiveTimesTheLengthAtFirst)
{
    const struct {
        size_t length;
        uint64_t size;
    } cases[] = {{0, 1024}, {204, 1024}, {205, 1025}, {10'000, 50'000}};
    for (const auto &c : cases) {
        Stack s;
        pushstr(&s.stack, std::string(c.length, 'x').c_str());
        EXPECT_EQ(s.record().size, c.size);
    }
}

TEST(Pushstr, GrowsToExactlyWhatIsNeededWhenTextAndTerminatorNoLongerFit)
{
    Stack s;
    pushstr(&s.stack, "12345");
    pushstr(&s.stack, std::string(1018, 'x').c_str());
    EXPECT_EQ(s.record().size, 1024U);  // 1023 characters and the terminator
    pushstr(&s.stack, "y");
    EXPECT_EQ(s.record().size, 1025U);
    pushstr(&s.stack, "abc");
    EXPECT_EQ(s.record().size, 1028U);
    EXPECT_EQ(s.text(), "12345" + std::string(1018, 'x') + "yabc");
}

TEST(Pushstr, HoldsMegabytes)
{
    Stack s;
    std::string expected;
    const std::string piece(700'001, 'p');
    for (int i = 0; i < 8; ++i) {
        pushstr(&s.stack, piece.c_str());
        expected += piece;
    }
    for (int i = 0; i < 100; ++i) {
        pushstr(&s.stack, "0123456789");
        expected += "0123456789";
    }
    EXPECT_TRUE(s.text() == expected);
}

TEST(Pushstrc, HoldsATextOfEveryLengthWithinItsSize)
{
    Stack s;
    std::string expected;
    for (int i = 0; i < 20'000; ++i) {
        expected += static_cast<char>('a' + i % 26);
        ASSERT_EQ(pushstrc(&s.stack, expected.back()), i + 1);
        ASSERT_GT(s.record().size, s.record().length);
        ASSERT_EQ(s.record().s[i + 1], 0);
    }
    EXPECT_EQ(s.text(), expected);
}

TEST(Pushstrc, AppendsOneCharacter)
{
    Stack s;
    EXPECT_EQ(pushstrc(&s.stack, 'a'), 1);
    EXPECT_EQ(pushstrc(&s.stack, '\xff'), 2);
    EXPECT_EQ(s.text(), "a\xff");
    EXPECT_EQ(s.record().size, 1024U);
}

TEST(Pushstrc, GrowsByWhatIsNeeded)
{
    Stack s;
    for (int i = 0; i < 1023; ++i)
        pushstrc(&s.stack, 'x');
    EXPECT_EQ(s.record().size, 1024U);
    pushstrc(&s.stack, 'y');
    EXPECT_EQ(s.record().size, 1025U);  // a length of 1023 and 2
    EXPECT_EQ(s.text(), std::string(1023, 'x') + "y");
}

TEST(Pushstrn, AppendsAtMostNCharacters)
{
    Stack s;
    EXPECT_EQ(pushstrn(&s.stack, "abcdef", 3), 3);
    EXPECT_EQ(s.text(), "abc");
    EXPECT_EQ(pushstrn(&s.stack, "xy", 5), 5);
    EXPECT_EQ(s.text(), "abcxy");
}

TEST(Pushstrn, ReadsNoFurtherThanNCharacters)
{
    const char source[2] = {'a', 'b'};  // no terminator
    Stack s;
    EXPECT_EQ(pushstrn(&s.stack, source, 2), 2);
    EXPECT_EQ(s.text(), "ab");
}

TEST(Pushstrn, AppendsNothingWhenNIsNotPositiveOrTheStringNull)
{
    Stack s;
    EXPECT_EQ(pushstrn(&s.stack, "abc", 0), 0);
    EXPECT_EQ(pushstrn(&s.stack, "abc", -1), 0);
    EXPECT_EQ(pushstrn(&s.stack, "abc", INT64_MIN), 0);
    EXPECT_EQ(pushstrn(&s.stack, nullptr, 3), 0);
    EXPECT_EQ(s.text(), "");
}

TEST(Pushstrn, MakesRoomForNCharactersHoweverShortTheString)
{
    const struct {
        int64_t n;
        uint64_t size;
    } cases[] = {{1, 1024}, {204, 1024}, {205, 1025}, {10'000, 50'000}};
    for (const auto &c : cases) {
        Stack s;
        pushstrn(&s.stack, "a", c.n);
        EXPECT_EQ(s.record().size, c.size);
    }
    Stack s;
    pushstr(&s.stack, "12345");
    pushstrn(&s.stack, "a", 1018);
    EXPECT_EQ(s.record().size, 1024U);
    pushstrn(&s.stack, "b", 2000);
    EXPECT_EQ(s.record().size, 6U + 2000 + 2);
    EXPECT_EQ(s.text(), "12345ab");
}

TEST(Popstr, GivesANewEmptyStringForAStackNeverUsed)
{
    for (int release : {0, 1}) {
        void *stack = nullptr;
        const Text text(popstr(&stack, release));
        EXPECT_STREQ(text.get(), "");
        EXPECT_EQ(stack, nullptr);
    }
    EXPECT_STREQ(Text(popstr(nullptr, 1)).get(), "");
}

TEST(Popstr, HandsTheTextOverOnRelease)
{
    void *stack = nullptr;
    pushstr(&stack, "abc");
    const Text text(popstr(&stack, 1));
    EXPECT_EQ(stack, nullptr);
    EXPECT_STREQ(text.get(), "abc");
}

TEST(Popstr, LeavesTheTextInUseWithoutRelease)
{
    Stack s;
    pushstr(&s.stack, "abc");
    const char *text = popstr(&s.stack, 0);
    EXPECT_EQ(text, s.record().s);
    pushstr(&s.stack, "def");
    EXPECT_EQ(s.text(), "abcdef");
}

TEST(Strconcat, JoinsAllArgumentsUpToNull)
{
    EXPECT_STREQ(Text(strconcat("a", "", "bc", nullptr)).get(), "abc");
    EXPECT_STREQ(Text(strconcat("a", nullptr)).get(), "a");
    const char *none = nullptr;
    EXPECT_STREQ(Text(strconcat(none, nullptr)).get(), "");
}

TEST(Strjoin, PutsTheCharacterBetweenTheArguments)
{
    EXPECT_STREQ(Text(strjoin('/', "a", "b", "c", nullptr)).get(), "a/b/c");
    EXPECT_STREQ(Text(strjoin('/', "", "", nullptr)).get(), "/");
    EXPECT_STREQ(Text(strjoin('/', "a", nullptr)).get(), "a");
    const char *none = nullptr;
    EXPECT_STREQ(Text(strjoin('/', none, nullptr)).get(), "");
}

TEST(Strhead, PutsThePrefixBeforeEachLineAndTheClosingLine)
{
    EXPECT_EQ(head("a\nb\n", 2, "P"), "Pa\nPb\nP...\n");
    EXPECT_EQ(head("a\nb\nc\n", 2, "> "), "> a\n> b\n> ...\n");
}

TEST(Strhead, ClosesEvenWhenNothingFollows)
{
    EXPECT_EQ(head("a\n", 1, ""), "a\n...\n");
}

TEST(Strhead, GivesTheLinesFoundWhenTheTextRunsOutOfNewlines)
{
    EXPECT_EQ(head("a\nb\n", 3, "P"), "Pa\nPb\n");
    EXPECT_EQ(head("a\nb", 2, "P"), "Pa\n");
    EXPECT_EQ(head("a", 1, "P"), "");
    EXPECT_EQ(head("", 1, "P"), "");
    EXPECT_EQ(head(nullptr, 1, "P"), "");
}

TEST(Strhead, GivesTheClosingLineAloneForNoLines)
{
    EXPECT_EQ(head("a\nb\n", 0, "P"), "P...\n");
    EXPECT_EQ(head("a\nb\n", -1, "P"), "P...\n");
    EXPECT_EQ(head("", 0, "P"), "P...\n");
}

TEST(Strhead, TakesANullPrefixForAnEmptyOne)
{
    EXPECT_EQ(head("a\nb\n", 1, nullptr), "a\n...\n");
}

TEST(Strhead, TakesAHundredThousandLines)
{
    std::string text, expected;
    for (int i = 0; i < 100'000; ++i) {
        text += std::to_string(i) + "\n";
        expected += "> " + std::to_string(i) + "\n";
    }
    EXPECT_TRUE(head(text.c_str(), INT_MAX, "> ") == expected);
}
