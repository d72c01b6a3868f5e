// Reading parameter files by name: pfread merges all of a name, pfload reads one.

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "stock.h"
#include "support/child.h"
#include "support/pf_files.h"

TEST(Pfread, AKeyOfALaterFileReplacesTheWholeValueOfAnEarlierOne)
{
    const PfPath path;
    path.site("prog.pf", "k 1\nonly_site here\nt &Arr{\n a 1\n b 2\n}\n");
    path.local("prog.pf", "k 2\nt &Arr{\n c 3\n}\n");
    Pf *pf = nullptr;
    EXPECT_EQ(pfread("prog", &pf), 0);
    const PfPtr tree(pf);
    EXPECT_EQ(tree->type, PFFILE);
    EXPECT_STREQ(tree->filename, "prog");
    EXPECT_EQ(value_at(pf, "k"), "2");
    EXPECT_EQ(value_at(pf, "only_site"), "here");
    const Pf *table = static_cast<const Pf *>(getarr(pf->value.arr, "t"));
    EXPECT_EQ(cntarr(table->value.arr), 1);
    EXPECT_EQ(value_at(table, "c"), "3");
}

TEST(Pfread, AFileMayBeOpenedAsDescriptor0)
{
    const PfPath path;
    path.site("prog.pf", "k 1\n");
    in_child([] {
        close(0);
        Pf *pf = nullptr;
        EXPECT_EQ(pfread("prog", &pf), 0);
        EXPECT_EQ(value_at(pf, "k"), "1");
        EXPECT_EQ(fcntl(0, F_GETFD), -1);  // and it is closed again
        pffree(pf);
    });
}

TEST(Pfread, UndefInALaterFileTakesTheKeyAway)
{
    const PfPath path;
    path.site("prog.pf", "k 1\nm 2\n");
    path.local("prog.pf", "k &Undef{}\n");
    Pf *pf = nullptr;
    EXPECT_EQ(pfread("prog", &pf), 0);
    const PfPtr tree(pf);
    EXPECT_EQ(value_at(pf, "k"), "<none>");
    EXPECT_EQ(value_at(pf, "m"), "2");
}

TEST(Pfread, OfANameWithoutFilesGivesMinusOneAndAnEmptyTree)
{
    const PfPath path;
    Pf *pf = nullptr;
    EXPECT_EQ(pfread("prog", &pf), -1);
    const PfPtr tree(pf);
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(tree->type, PFFILE);
    EXPECT_EQ(cntarr(tree->value.arr), 0);
}

TEST(Pfread, OfAFileWithCommentsOnlyGivesMinusOne)
{
    const PfPath path;
    path.site("prog.pf", "# nothing\n\n");
    Pf *pf = nullptr;
    EXPECT_EQ(pfread("prog", &pf), -1);
    pffree(pf);
}

TEST(Pfread, SumsMinusTwoForEachFileWithAnError)
{
    const PfPath path;
    const std::string site = path.site("prog.pf", "a 1\nt &Arr{\n");
    const std::string local = path.local("prog.pf", "b 2\n}\n");
    Pf *pf = nullptr;
    EXPECT_EQ(pfread("prog", &pf), -4);
    const PfPtr tree(pf);
    EXPECT_EQ(value_at(pf, "a"), "1");
    EXPECT_EQ(value_at(pf, "b"), "2");
    const std::string log = take_log();
    EXPECT_NE(log.find("Unterminated arrays or tables in parameter file " + site), log.npos) << log;
    EXPECT_NE(log.find("invalid right brace at line #2 in pf file " + local), log.npos) << log;
}

TEST(Pfread, GoesOnPastADirectoryOfTheName)
{
    const PfPath path;
    path.site("prog.pf/x", "");
    path.local("prog.pf", "a 1\n");
    Pf *pf = nullptr;
    EXPECT_EQ(pfread("prog", &pf), -2);
    const PfPtr tree(pf);
    EXPECT_EQ(value_at(pf, "a"), "1");
    EXPECT_EQ(take_log(), "read failed in pf input routine for file " + path.dirs().path() +
                              "/site/prog.pf\n\tIs a directory\n");
}

TEST(Pfread, WithoutAPlaceForTheTreeGivesMinusOne)
{
    EXPECT_EQ(pfread("prog", nullptr), -1);
}

TEST(Pfload, ReadsTheFileThatTheDataPathLeadsTo)
{
    const TempDir dir;
    dir.file("tables/one.pf", "a 1\n");
    setenv("DATA_TEST", dir.path().c_str(), 1);
    Pf *pf = nullptr;
    EXPECT_EQ(pfload("DATA_TEST", "tables", "one", &pf), 0);
    const PfPtr tree(pf);
    EXPECT_EQ(tree->type, PFFILE);
    EXPECT_STREQ(tree->filename, "one");
    EXPECT_EQ(value_at(pf, "a"), "1");
}

TEST(Pfload, SaysThatThereIsNoFile)
{
    const TempDir dir;
    setenv("DATA_TEST", dir.path().c_str(), 1);
    Pf *pf = nullptr;
    errno = 0;
    EXPECT_EQ(pfload("DATA_TEST", "tables", "one", &pf), -1);
    const PfPtr tree(pf);
    EXPECT_EQ(tree->type, PFFILE);
    EXPECT_NE(take_log().find("Can't find parameter file tables/one\n"), std::string::npos);
}

TEST(Pfload, GivesMinusTwoForAnErrorInTheText)
{
    const TempDir dir;
    dir.file("one.pf", "a 1\n}\n");
    setenv("DATA_TEST", dir.path().c_str(), 1);
    Pf *pf = nullptr;
    EXPECT_EQ(pfload("DATA_TEST", nullptr, "one", &pf), -2);
    pffree(pf);
    elog_clear();
}

// ---- Files that exist and cannot be opened ----

namespace {

// A socket has a name like a file, and opening it fails even for the superuser.
class SocketFile {
public:
    explicit SocketFile(const std::string &path) : fd_(socket(AF_UNIX, SOCK_STREAM, 0))
    {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        path.copy(name.sun_path, sizeof name.sun_path - 1);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&name), sizeof name), 0);
    }
    ~SocketFile() { close(fd_); }
    SocketFile(const SocketFile &) = delete;
    SocketFile &operator=(const SocketFile &) = delete;

private:
    int fd_;
};

}  // namespace

TEST(Pfread, GoesOnPastAFileThatCannotBeOpenedAndClearsErrno)
{
    const PfPath path;
    path.site("prog.pf", "a 1\n");
    path.local("other.pf", "");
    const SocketFile socket(path.dirs() / "local/prog.pf");
    Pf *pf = nullptr;
    errno = E2BIG;
    EXPECT_EQ(pfread("prog", &pf), 0);
    EXPECT_EQ(errno, 0);
    const PfPtr tree(pf);
    EXPECT_EQ(value_at(pf, "a"), "1");
}

TEST(Pfload, SaysThatAFileCannotBeOpened)
{
    const TempDir dir;
    const std::string path = dir / "one.pf";
    const SocketFile socket(path);
    setenv("DATA_TEST", dir.path().c_str(), 1);
    Pf *pf = nullptr;
    EXPECT_EQ(pfload("DATA_TEST", nullptr, "one", &pf), -1);
    const PfPtr tree(pf);
    EXPECT_EQ(tree->type, PFFILE);
    EXPECT_EQ(take_log(), "can't open '" + path + "'\n\tNo such device or address\n");
}
