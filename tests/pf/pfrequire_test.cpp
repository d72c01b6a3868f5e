// Whether a parameter file is new enough for a program.

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "stock.h"
#include "support/pf_files.h"

TEST(Pfrequire, AcceptsAFileThatIsAsNewAsRequired)
{
    const PfPath path;
    path.site("prog.pf", "pf_revision_time 2008-02-01\n");
    EXPECT_EQ(pfrequire("prog", "2008-02-01"), 0);
    EXPECT_EQ(pfrequire("prog", "2007-12-31"), 0);
    EXPECT_EQ(take_log(), "");
}

TEST(Pfrequire, RefusesAnOlderFile)
{
    const PfPath path;
    const std::string site = path.site("prog.pf", "pf_revision_time 2008-02-01\n");
    EXPECT_EQ(pfrequire("prog", "2008-02-02"), -2);
    EXPECT_EQ(take_log(), "pf_revision_time in the file '" + site +
                              "' has date 02/01/2008, \n\tbut program requires date after "
                              "02/02/2008\n");
}

TEST(Pfrequire, OnlyTheLastFileCounts)
{
    const PfPath path;
    path.site("prog.pf", "pf_revision_time 2020-01-01\n");
    const std::string local = path.local("prog.pf", "a 1\n");
    EXPECT_EQ(pfrequire("prog", "2008-02-02"), -1);
    EXPECT_EQ(take_log(), "no pf_revision_time in the file '" + local +
                              "', \n\tbut program requires date after 02/02/2008\n");
}

// A reason that an earlier call left in errno is not part of the message.
TEST(Pfrequire, TellsNoReasonOfTheSystem)
{
    const PfPath path;
    path.site("dated.pf", "pf_revision_time 2008-02-01\n");
    path.site("undated.pf", "a 1\n");
    path.site("wrong.pf", "}\n");
    for (const char *name : {"dated", "undated", "wrong", "none"}) {
        SCOPED_TRACE(name);
        elog_clear();
        errno = EACCES;
        EXPECT_LT(pfrequire(name, "2008-02-02"), 0);
        const std::string log = take_log();
        EXPECT_NE(log, "");
        EXPECT_EQ(log.find("Permission denied"), log.npos) << log;
    }
}

TEST(Pfrequire, WithoutADateEveryDatedFileWillDo)
{
    const PfPath path;
    path.site("prog.pf", "pf_revision_time 2008-02-01\n");
    EXPECT_EQ(pfrequire("prog", nullptr), 0);
    elog_clear();
}

TEST(Pfrequire, SaysWhenTheFileIsWrongOrMissing)
{
    const PfPath path;
    path.site("wrong.pf", "pf_revision_time 2020-01-01\n}\n");
    EXPECT_EQ(pfrequire("wrong", "2008-02-02"), -3);
    EXPECT_NE(take_log().find("error in parameter file wrong\n"), std::string::npos);
    EXPECT_EQ(pfrequire("none", "2008-02-02"), -4);
    EXPECT_EQ(take_log(), "can't find parameter file none\n");
    EXPECT_EQ(pfrequire(nullptr, "2008-02-02"), -4);
    elog_clear();
}
