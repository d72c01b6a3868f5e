// What the library believes: its own settings where others may have written them, and the
// environment of a process that has more rights than whoever started it.

#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "stock.h"
#include "support/child.h"
#include "support/logging.h"
#include "support/temp_dir.h"

namespace {

constexpr uid_t kStranger = 12345;

constexpr const char *kSettings = "ELOG_TAG &Arr{\ncomplain from the file\n}\n";
const std::string kNotRead =
    ": the settings in './elog.pf' are not read: others may have written them\n";

// Complains in a directory with this PFPATH.
std::string complained_in(const TempDir &dir, const std::string &path)
{
    return logged({"PFPATH=" + path},
                  [&] {
                      EXPECT_EQ(chdir(dir.path().c_str()), 0);
                      elog_complain(0, "x");
                  })
        .err;
}

class TrustInSettings : public testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root may give a file away";
    }
    TempDir dir_;
    std::string file_ = dir_.file("elog.pf", kSettings);
};

}  // namespace

TEST(Trust, TheUsersOwnSettingsInTheWorkingDirectoryAreRead)
{
    const TempDir dir;
    const std::string file = dir.file("elog.pf", kSettings);
    chmod(file.c_str(), 0664);
    EXPECT_EQ(complained_in(dir, "."), "from the file: x\n");
}

TEST(Trust, SettingsInTheWorkingDirectoryThatOthersMayWriteAreNotRead)
{
    const TempDir dir;
    const std::string file = dir.file("elog.pf", kSettings);
    chmod(file.c_str(), 0666);
    EXPECT_EQ(complained_in(dir, "."), "trust_test" + kNotRead + "trust_test: x\n");
}

TEST_F(TrustInSettings, ThoseOfAStrangerInTheWorkingDirectoryAreNotRead)
{
    ASSERT_EQ(chown(file_.c_str(), kStranger, kStranger), 0);
    EXPECT_EQ(complained_in(dir_, "."), "trust_test" + kNotRead + "trust_test: x\n");
    EXPECT_EQ(complained_in(dir_, "/no/such:."), "trust_test" + kNotRead + "trust_test: x\n");
}

TEST_F(TrustInSettings, AStrangersLinkInTheWorkingDirectoryIsNotRead)
{
    const TempDir elsewhere;
    std::filesystem::rename(file_, elsewhere / "own");
    std::filesystem::create_symlink(elsewhere / "own", file_);
    EXPECT_EQ(complained_in(dir_, "."), "from the file: x\n");
    ASSERT_EQ(lchown(file_.c_str(), kStranger, kStranger), 0);
    EXPECT_EQ(complained_in(dir_, "."), "trust_test" + kNotRead + "trust_test: x\n");
}

TEST_F(TrustInSettings, AnAbsoluteDirectoryOfThePathIsTrusted)
{
    ASSERT_EQ(chown(file_.c_str(), kStranger, kStranger), 0);
    EXPECT_EQ(complained_in(dir_, dir_.path()), "from the file: x\n");
}

TEST_F(TrustInSettings, TheFormatsOfTimesFromAStrangerAreNotRead)
{
    const std::string formats = dir_.file(
        "time_formats.pf", "location\ntime A\nydtime B\nuydtime C\ndate D\nmonth_first 1\n");
    const auto printed = [&] {
        return logged({"PFPATH=."}, [&] {
            EXPECT_EQ(chdir(dir_.path().c_str()), 0);
            printf("%s", Text(strtime(0)).get());
        });
    };
    EXPECT_EQ(printed().out, "A");
    ASSERT_EQ(chown(formats.c_str(), kStranger, kStranger), 0);
    const Ended ended = printed();
    EXPECT_NE(ended.out, "A");
    EXPECT_NE(ended.err.find("'./time_formats.pf' are not read"), std::string::npos) << ended.err;
}

// A parameter file is the program's to choose.
TEST_F(TrustInSettings, ParametersOfTheProgramAreReadFromAnybody)
{
    const std::string file = dir_.file("gauge.pf", "north 3\n");
    ASSERT_EQ(chown(file.c_str(), kStranger, kStranger), 0);
    logged({"PFPATH=."}, [&] {
        EXPECT_EQ(chdir(dir_.path().c_str()), 0);
        Pf *pf = nullptr;
        EXPECT_EQ(pfread("gauge", &pf), 0);
        EXPECT_EQ(pfget_int(pf, "north"), 3);
        pffree(pf);
    });
}

// ---- A process with raised rights ----

namespace {

// A copy of the tool that gets another group when it is started.
class TrustInEnvironment : public testing::Test {
protected:
    void SetUp() override
    {
        struct statvfs system = {};
        if (geteuid() != 0 || statvfs(dir_.path().c_str(), &system) != 0 ||
            (system.f_flag & ST_NOSUID))
            GTEST_SKIP() << "no program can have raised rights here";
        std::filesystem::copy_file(tool_path(), raised_);
        ASSERT_EQ(chown(raised_.c_str(), static_cast<uid_t>(-1), kStranger), 0);
        ASSERT_EQ(chmod(raised_.c_str(), 02755), 0);
    }

    // Runs a command of the tool with the setting, plainly and raised.
    struct Both {
        Ended plain, raised;
    };
    Both run(const std::vector<std::string> &words, const std::string &setting) const
    {
        std::vector<std::string> plain{tool_path()}, raised{raised_};
        plain.insert(plain.end(), words.begin(), words.end());
        raised.insert(raised.end(), words.begin(), words.end());
        return {run_program(plain, "", {setting}), run_program(raised, "", {setting})};
    }

    TempDir dir_;
    std::string raised_ = dir_ / "stock";
};

}  // namespace

TEST_F(TrustInEnvironment, TheLogsSettingsAreNotBelieved)
{
    const Both deliver = run({"log", "x"}, "ELOG_DELIVER=stdout");
    EXPECT_EQ(deliver.plain.out, "stock: x\n");
    EXPECT_EQ(deliver.raised.out, "");
    EXPECT_EQ(deliver.raised.err, "stock: x\n");
    const Both tag = run({"log", "x"}, "ELOG_TAG=other");
    EXPECT_EQ(tag.plain.err, "other: x\n");
    EXPECT_EQ(tag.raised.err, "stock: x\n");
}

TEST_F(TrustInEnvironment, ThePathsAreNotBelieved)
{
    dir_.file("rain.pf", "north 3\n");
    dir_.file("data/pf/root.pf", "south 4\n");
    const Both pf = run({"pf", "get", "rain", "north"}, "PFPATH=" + dir_.path());
    EXPECT_EQ(pf.plain.status, 0);
    EXPECT_NE(pf.raised.status, 0);
    const Both root = run({"pf", "get", "root", "south"}, "TALUVINE=" + dir_.path());
    EXPECT_EQ(root.plain.status, 0);
    EXPECT_NE(root.raised.status, 0);
    const Both data = run({"find", "rain.pf"}, "DATAPATH=" + dir_.path());
    EXPECT_EQ(data.plain.status, 0);
    EXPECT_NE(data.raised.status, 0);
}
