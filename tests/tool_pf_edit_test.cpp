// stock pf set and del, as a user runs them.

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "support/child.h"
#include "support/temp_dir.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

class ToolPfEdit : public testing::Test {
protected:
    static Ended pf(std::vector<std::string> words)
    {
        words.insert(words.begin(), {tool_path(), "pf"});
        return run_program(words);
    }

    // The text of a file once the command has changed it.
    std::string edited(const std::string &text, std::vector<std::string> words)
    {
        const std::string path = dir_.file("x.pf", text);
        words.insert(words.begin() + 1, path);
        const Ended ended = pf(words);
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.status, 0);
        return read_file(path);
    }

    std::string set(const std::string &text, const std::string &address, const std::string &value)
    {
        return edited(text, {"set", address, value});
    }

    std::string del(const std::string &text, const std::string &address)
    {
        return edited(text, {"del", address});
    }

    // What is said of a command that changes nothing.
    std::string refused(const std::string &text, std::vector<std::string> words)
    {
        const std::string path = dir_.file("x.pf", text);
        words.insert(words.begin() + 1, path);
        const Ended ended = pf(words);
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(read_file(path), text);
        return ended.err;
    }

    TempDir dir_;
};

using ToolPfSet = ToolPfEdit;
using ToolPfDel = ToolPfEdit;

}  // namespace

// ---- set ----

TEST_F(ToolPfSet, ChangesNothingButTheValue)
{
    const std::string before = "# top\n\n z   1   # one\n\nt  &Arr{ # table\n\tb 2# two\n"
                               "  l &Tbl{\n# c\n   x\n\n y  # why\n  } # l\n} # t\na 3";
    const struct {
        const char *address, *was, *is;
    } cases[] = {
        {"z", "z   1   #", "z   new v   #"}, {"t{b}", "b 2#", "b new v#"},
        {"t{l}[0]", "   x\n", "   new v\n"}, {"t{l}[1]", "x\n\n", "x\nnew v\n"},
        {"t{l}[2]", " y  #", " new v  #"},   {"a", "a 3", "a new v"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.address);
        std::string after = before;
        after.replace(after.find(c.was), std::string(c.was).size(), c.is);
        EXPECT_EQ(set(before, c.address, "new v"), after);
    }
}

TEST_F(ToolPfSet, WritesValuesSoThatTheyReadBack)
{
    for (const char *value :
         {"a#b", "x}", " lead", "two\nlines", "\\n", "&Tbl{", "{", "\"q\"", ""}) {
        SCOPED_TRACE(value);
        const std::string text = set("k 1 # c\nl 2\n", "k", value);
        EXPECT_THAT(text, HasSubstr("# c\nl 2\n"));
        EXPECT_EQ(run_program({tool_path(), "pf", "get", "--type", "string", dir_ / "x.pf", "k"},
                              "", {"PFPATH="})
                      .out,
                  std::string(value) + "\n");
    }
}

TEST_F(ToolPfSet, GivesAKeyWithoutAValueOne)
{
    EXPECT_EQ(set("k\n", "k", "v"), "k\tv\n");
    EXPECT_EQ(set("k   # c\n", "k", "v"), "k\tv   # c\n");
    EXPECT_EQ(set("k#c\n", "k", "v"), "k\tv#c\n");
    EXPECT_EQ(set("k#c\n", "k", ""), "k#c\n");
}

TEST_F(ToolPfSet, AnElementInTheFirstColumnCanBecomeEmpty)
{
    EXPECT_EQ(set("l &Tbl{\n1# c\n}\n", "l[0]", ""), "l &Tbl{\n&Literal{\n}# c\n}\n");
}

TEST_F(ToolPfSet, ChangesTheLastOfAKeyThatIsGivenTwice)
{
    EXPECT_EQ(set("k 1\nk 2\n", "k", "3"), "k 1\nk 3\n");
}

TEST_F(ToolPfSet, ReplacesListsTablesLiteralsAndFunctionsWhole)
{
    EXPECT_EQ(set("k &Tbl{\n 1\n} # c\nl 2\n", "k", "v"), "k v # c\nl 2\n");
    EXPECT_EQ(set("k &Arr{\n a 1\n} junk\nl 2\n", "k", "v"), "k v\nl 2\n");
    EXPECT_EQ(set("k &Literal{\n{}\n}\nl 2\n", "k", "v"), "k v\nl 2\n");
    EXPECT_EQ(set("k &exec(date)  \nl 2\n", "k", "v"), "k v  \nl 2\n");
}

TEST_F(ToolPfSet, WritesFunctions)
{
    EXPECT_EQ(set("k 1\n", "k", "&exec(date)"), "k &exec(date)\n");
    EXPECT_EQ(set("k 1", "k", "&exec(date)"), "k &exec(date)\n");
    EXPECT_EQ(set("", "k", "&exec(date)"), "k\t&exec(date)\n");
}

TEST_F(ToolPfSet, RefusesAFunctionBeforeAComment)
{
    EXPECT_THAT(refused("k 1 # c\n", {"set", "k", "&exec(date)"}),
                HasSubstr("can't change 'k' in '" + dir_ / "x.pf"));
}

TEST_F(ToolPfSet, AddsWhatIsNotThere)
{
    EXPECT_EQ(set("", "k", "v"), "k\tv\n");
    EXPECT_EQ(set("a 1", "k", "v"), "a 1\nk\tv\n");
    EXPECT_EQ(set("a 1\n\n# end\n", "k", "v"), "a 1\n\n# end\nk\tv\n");
    EXPECT_EQ(set("a 1\n__END__\ntext\n", "k", "v"), "a 1\nk\tv\n__END__\ntext\n");
    EXPECT_EQ(set("t &Arr{\n  a 1\n}\n", "t{k}", "v"), "t &Arr{\n  a 1\n  k\tv\n}\n");
    EXPECT_EQ(set("t &Arr{\n}\n", "t{k}", "v"), "t &Arr{\n    k\tv\n}\n");
    EXPECT_EQ(set("l &Tbl{\n  1\n}\n", "l[1]", "v"), "l &Tbl{\n  1\n  v\n}\n");
    EXPECT_EQ(set("k 1\nk &Undef{}\n", "k", "v"), "k 1\nk &Undef{}\nk\tv\n");
    EXPECT_EQ(set("", "a b", "v"), "\"a b\"\tv\n");
}

TEST_F(ToolPfSet, AddsTheTablesAndListsAroundIt)
{
    EXPECT_EQ(set("a 1\n", "x{y}[0]", "v"), "a 1\nx\t&Arr{\n    y\t&Tbl{\n        v\n    }\n}\n");
}

TEST_F(ToolPfSet, RefusesAnAddressThatDoesNotFit)
{
    const std::string text = "k 1\nl &Tbl{\n 1\n}\nt &Arr{\n a 1\n}\n";
    for (const char *address : {"k{a}", "k[0]", "l{a}", "l[2]", "t[0]", "x[1]"}) {
        SCOPED_TRACE(address);
        EXPECT_THAT(refused(text, {"set", address, "v"}), HasSubstr("does not fit"));
    }
}

TEST_F(ToolPfSet, RefusesAFileWithErrors)
{
    EXPECT_EQ(refused("k 1\n}\n", {"set", "k", "2"}),
              "stock: '" + dir_ / "x.pf" + "' has errors, try 'stock pf check'\n");
    EXPECT_EQ(pf({"set", dir_ / "no.pf", "k", "v"}).status, 1);
}

TEST_F(ToolPfSet, GoesThroughSymbolicLinksAndKeepsTheMode)
{
    const std::string path = dir_.file("d/x.pf", "k 1\n");
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    std::filesystem::create_symlink("d/x.pf", dir_ / "link");
    EXPECT_EQ(pf({"set", dir_ / "link", "k", "2"}).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(dir_ / "link"));
    EXPECT_EQ(read_file(path), "k 2\n");
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    const auto files = std::filesystem::directory_iterator(dir_ / "d");
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST_F(ToolPfSet, KeepsTheOwner)
{
    const uid_t owner = geteuid() == 0 ? 1 : geteuid();
    const std::string path = dir_.file("x.pf", "k 1\n");
    ASSERT_EQ(chown(path.c_str(), owner, static_cast<gid_t>(-1)), 0);
    ASSERT_EQ(chmod(path.c_str(), 04750), 0);
    EXPECT_EQ(pf({"set", path, "k", "2"}).status, 0);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, owner);
    EXPECT_EQ(status.st_mode & 07777, 04750U);
    EXPECT_EQ(read_file(path), "k 2\n");
}

TEST_F(ToolPfSet, KeepsExtendedAttributes)
{
    const std::string path = dir_.file("x.pf", "k 1\n");
    if (setxattr(path.c_str(), "user.stock", "kept", 4, 0) != 0)
        GTEST_SKIP() << "the file system has no attributes";
    const Ended ended = pf({"set", path, "k", "2"});
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(read_file(path), "k 2\n");
    char value[8] = "";
    EXPECT_EQ(getxattr(path.c_str(), "user.stock", value, sizeof value), 4);
    EXPECT_STREQ(value, "kept");
}

TEST_F(ToolPfSet, WritesAFileWithSeveralNamesInPlace)
{
    const std::string path = dir_.file("x.pf", "k one\n# end\n");
    std::filesystem::create_hard_link(path, dir_ / "other");
    EXPECT_EQ(pf({"set", path, "k", "a longer text"}).status, 0);
    EXPECT_EQ(read_file(dir_ / "other"), "k a longer text\n# end\n");
    EXPECT_EQ(pf({"del", dir_ / "other", "k"}).status, 0);
    EXPECT_EQ(read_file(path), "# end\n");
    EXPECT_EQ(std::filesystem::hard_link_count(path), 2U);
}

TEST_F(ToolPfSet, RefusesWhatIsNoRegularFile)
{
    const std::string path = dir_ / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    for (const std::string &file : {path, dir_.path()}) {
        const Ended ended = pf({"set", file, "k", "2"});
        EXPECT_EQ(ended.err, "stock: '" + file + "' is no regular file\n");
        EXPECT_EQ(ended.status, 1);
    }
}

TEST_F(ToolPfSet, WhatIsAlreadySoIsNotWritten)
{
    const std::string path = dir_.file("x.pf", "k 1\n");
    struct stat before {
    }, after{};
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    EXPECT_EQ(pf({"set", path, "k", "1"}).status, 0);
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

// ---- del ----

TEST_F(ToolPfDel, TakesOutTheLinesOfTheValueAndNoOther)
{
    const std::string text = "# top\nk 1 # c\n\nt &Arr{\n  a 1\n  b &Tbl{\n    x\n    y\n  }\n}\n";
    EXPECT_EQ(del(text, "k"), "# top\n\nt &Arr{\n  a 1\n  b &Tbl{\n    x\n    y\n  }\n}\n");
    EXPECT_EQ(del(text, "t"), "# top\nk 1 # c\n\n");
    EXPECT_EQ(del(text, "t{b}"), "# top\nk 1 # c\n\nt &Arr{\n  a 1\n}\n");
    EXPECT_EQ(del(text, "t{b}[0]"), "# top\nk 1 # c\n\nt &Arr{\n  a 1\n  b &Tbl{\n    y\n  }\n}\n");
}

TEST_F(ToolPfDel, TakesOutAKeyThatIsGivenTwice)
{
    EXPECT_EQ(del("k 1\na 2\nk 3", "k"), "a 2\n");
}

TEST_F(ToolPfDel, CountsTheElementsThatAreLeft)
{
    EXPECT_EQ(del("l &Tbl{\n 1\n 2\n &Undef{}\n 3\n}\n", "l[1]"),
              "l &Tbl{\n 1\n 2\n &Undef{}\n}\n");
    EXPECT_EQ(del("l &Tbl{\n 1\n 2\n &Undef{}\n}\n", "l[0]"), "l &Tbl{\n 2\n &Undef{}\n}\n");
}

TEST_F(ToolPfDel, SaysWhenThereIsNoSuchValue)
{
    EXPECT_EQ(refused("k 1\n", {"del", "a"}),
              "stock: no entry 'a' in parameter file " + dir_ / "x.pf" + "\n");
    EXPECT_THAT(refused("k 1\nk &Undef{}\n", {"del", "k"}), HasSubstr("no entry 'k'"));
    EXPECT_THAT(refused("k 1\n", {"del", "k{a}"}), HasSubstr("no entry 'k{a}'"));
}

// ---- Both ----

TEST_F(ToolPfEdit, HelpsAndRefusesWrongUsage)
{
    EXPECT_THAT(pf({"set", "--help"}).out, StartsWith("usage: stock pf set FILE ADDRESS VALUE"));
    EXPECT_THAT(pf({"del", "--help"}).out, StartsWith("usage: stock pf del FILE ADDRESS"));
    const std::vector<std::vector<std::string>> cases = {
        {"set"}, {"set", "x", "k"}, {"set", "x", "k{", "v"}, {"set", "x", "k", "v", "w"},
        {"del"}, {"del", "x"},      {"del", "x", ""},        {"del", "x", "k", "l"},
    };
    for (const auto &words : cases)
        EXPECT_EQ(pf(words).status, 2);
}
