// Environment variables in text.

#include "stock/expand_env.h"

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "support/owners.h"

namespace {

std::string expanded(const std::string &text)
{
    return Text(expand_env(text.c_str())).get();
}

class ExpandEnv : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("HOME", "/h", 1);
        setenv("EMPTY", "", 1);
        setenv("A1", "one", 1);
        setenv("with space", "odd", 1);
        setenv("REF", "$HOME", 1);
        unsetenv("NOPE");
    }
};

}  // namespace

TEST_F(ExpandEnv, CopiesAStringWithoutDollar)
{
    const char *text = "plain {text}";
    const Text copy(expand_env(text));
    EXPECT_NE(copy.get(), text);
    EXPECT_STREQ(copy.get(), text);
    EXPECT_EQ(expanded(""), "");
}

TEST_F(ExpandEnv, ReplacesReferences)
{
    const struct {
        const char *text, *result;
    } cases[] = {
        {"$HOME", "/h"},          {"${HOME}", "/h"},     {"a${HOME}b", "a/hb"},
        {"a$HOME/b", "a/h/b"},    {"$HOME$A1", "/hone"}, {"${HOME}${A1}x", "/honex"},
        {"$A1.$A1", "one.one"},   {"[$EMPTY]", "[]"},    {"[${EMPTY}]", "[]"},
        {"${with space}", "odd"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(expanded(c.text), c.result);
    }
}

TEST_F(ExpandEnv, TakesNoUnderscoreWithoutBraces)
{
    setenv("HOME_DIR", "wrong", 1);
    EXPECT_EQ(expanded("$HOME_DIR/x"), "/h_DIR/x");
    EXPECT_EQ(expanded("${HOME_DIR}/x"), "wrong/x");
}

TEST_F(ExpandEnv, RunsToTheEndWithoutAClosingBrace)
{
    EXPECT_EQ(expanded("a${HOME"), "a/h");
    EXPECT_EQ(expanded("a${NOPE"), "a${NOPE");
    EXPECT_EQ(expanded("a${"), "a${");
}

TEST_F(ExpandEnv, LeavesReferencesToUnsetVariables)
{
    EXPECT_EQ(expanded("${NOPE}/x"), "${NOPE}/x");
    EXPECT_EQ(expanded("$NOPE/x"), "$NOPE/x");
    EXPECT_EQ(expanded("$NOPE$HOME"), "$NOPE/h");
}

TEST_F(ExpandEnv, LeavesReferencesWithoutName)
{
    EXPECT_EQ(expanded("a$"), "a$");
    EXPECT_EQ(expanded("$/x"), "$/x");
    EXPECT_EQ(expanded("$$HOME"), "$/h");
    EXPECT_EQ(expanded("${}x"), "${}x");
    EXPECT_EQ(expanded("$_HOME"), "$_HOME");
}

TEST_F(ExpandEnv, DoesNotSearchValuesAgain)
{
    EXPECT_EQ(expanded("$REF"), "$HOME");
}

TEST_F(ExpandEnv, TakesOnlyAsciiForLettersAndDigits)
{
    EXPECT_EQ(expanded("$HOME\xc3\xa4"), "/h\xc3\xa4");
}

TEST_F(ExpandEnv, CutsNamesTo1023Characters)
{
    const std::string name(1023, 'N');
    setenv(name.c_str(), "long", 1);
    EXPECT_EQ(expanded("$" + name + "/x"), "long/x");
    EXPECT_EQ(expanded("${" + name + "NN}/x"), "long/x");
    EXPECT_EQ(expanded("$" + name + "N/x"), "long/x");
    unsetenv(name.c_str());
    EXPECT_EQ(expanded("$" + name + "N/x"), "$" + name + "N/x");
}

TEST_F(ExpandEnv, MakesRoomForValuesOfAnyLength)
{
    for (size_t length : {1000U, 1020U, 1021U, 1022U, 1023U, 1024U, 1025U, 5000U, 100'000U}) {
        SCOPED_TRACE(length);
        const std::string value(length, 'v');
        setenv("BIG", value.c_str(), 1);
        EXPECT_TRUE(expanded("<$BIG>") == "<" + value + ">");
        EXPECT_TRUE(expanded("<$BIG" + std::string(3000, '.') + "${NOPE}$BIG>") ==
                    "<" + value + std::string(3000, '.') + "${NOPE}" + value + ">");
    }
}

TEST_F(ExpandEnv, ExpandsManyReferencesInAMegabyte)
{
    std::string text, result;
    for (int i = 0; i < 100'000; ++i) {
        text += "$A1/${NOPE}";
        result += "one/${NOPE}";
    }
    EXPECT_TRUE(expanded(text) == result);
}

TEST_F(ExpandEnv, GivesAnEmptyStringForNull)
{
    EXPECT_STREQ(Text(expand_env(nullptr)).get(), "");
}
