// The words for yes and no.

#include "stock/yesno.h"

#include <string>

#include <gtest/gtest.h>

TEST(Yesno, GivesMinusOneForTrueWords)
{
    for (const char *word : {"yes", "ok", "y", "true", "1", "on", "t", "YES", "Ok", "tRuE", "T"})
        EXPECT_EQ(yesno(word), -1) << word;
}

TEST(Yesno, GivesZeroForFalseWords)
{
    for (const char *word : {"no", "n", "false", "0", "off", "f", "NO", "Off", "fALSE", "F"})
        EXPECT_EQ(yesno(word), 0) << word;
}

TEST(Yesno, GivesOneForEverythingElse)
{
    for (const char *word :
         {"maybe", "", " yes", "yes ", "ye", "yess", "tr", "00", "11", "2", "-1"})
        EXPECT_EQ(yesno(word), 1) << word;
    EXPECT_EQ(yesno(nullptr), 1);
    EXPECT_EQ(yesno(std::string(100'000, 'y').c_str()), 1);
}
