// stock complete, against what the help of each command shows.

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <regex.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock/convert.h"
#include "support/child.h"
#include "support/temp_dir.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAreArray;

namespace {

using Words = std::vector<std::string>;

std::string printed(Words words, const Words &settings = {})
{
    words.insert(words.begin(), tool_path());
    const Ended ended = run_program(words, "", settings);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.status, 0);
    return ended.out;
}

// The candidates, without what they mean; what the shell is to look for has a tab in front.
Words offered(Words words, const Words &settings = {})
{
    words.insert(words.begin(), {"complete", "stock"});
    std::istringstream lines(printed(words, settings));
    Words candidates;
    for (std::string line; std::getline(lines, line);)
        candidates.push_back(line.substr(0, line.find('\t', 1)));
    return candidates;
}

// What the part in parentheses matches in the text, each once.
Words all_of(const std::string &text, const char *pattern)
{
    regex_t regex;
    EXPECT_EQ(regcomp(&regex, pattern, REG_EXTENDED), 0);
    std::set<std::string> found;
    regmatch_t match[2];
    for (const char *at = text.c_str(); regexec(&regex, at, 2, match, 0) == 0; at += match[1].rm_eo)
        found.emplace(at + match[1].rm_so, at + match[1].rm_eo);
    regfree(&regex);
    return {found.begin(), found.end()};
}

// Every command with the commands of families in it, such as {"pf", "get"}.
std::vector<Words> all_commands(const Words &family = {})
{
    Words ask = family;
    ask.push_back("--help");
    const std::string help = printed(ask);
    if (all_of(help, "^usage: stock[ a-z]* (COMMAND) ").empty())
        return {family};
    std::vector<Words> commands;
    for (const std::string &name : all_of(help, "\n  ([a-z][a-z0-9]*) ")) {
        Words command = family;
        command.push_back(name);
        for (const Words &below : all_commands(command))
            commands.push_back(below);
    }
    return commands;
}

Words joined(Words words, const Words &more)
{
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

}  // namespace

TEST(ToolComplete, OffersEveryCommandThatHelpShows)
{
    for (const Words &family : {Words{}, Words{"pf"}, Words{"path"}}) {
        const Words names = all_of(printed(joined(family, {"--help"})), "\n  ([a-z][a-z0-9]*) ");
        EXPECT_THAT(names, SizeIs(testing::Gt(2)));
        EXPECT_THAT(offered(joined(family, {""})), UnorderedElementsAreArray(names));
    }
}

TEST(ToolComplete, OffersEveryOptionThatHelpShows)
{
    std::size_t options = 0;
    for (const Words &command : all_commands()) {
        SCOPED_TRACE(command.back());
        const std::string help = printed(joined(command, {"--help"}));
        const std::string usage = help.substr(0, help.find("\n\n"));
        Words shown = all_of(usage, "[ []([-]{1,2}[a-z][a-z-]*)");
        for (const std::string &listed : all_of(help, "\n  ([-]{1,2}[a-z][a-z-]*)"))
            EXPECT_THAT(shown, Contains(listed));
        options += shown.size();
        shown.push_back("--help");
        EXPECT_THAT(offered(joined(command, {"-"})), UnorderedElementsAreArray(shown));
    }
    EXPECT_GE(options, 18U);
}

TEST(ToolComplete, OffersOnlyWhatGoesOnFromTheWord)
{
    EXPECT_THAT(offered({"d"}), ElementsAre("dump"));
    EXPECT_THAT(offered({"pf", "s"}), ElementsAre("set", "shell", "show"));
    EXPECT_THAT(offered({"--v"}), ElementsAre("--version"));
    EXPECT_THAT(offered({"--h"}), ElementsAre("--help"));
    EXPECT_THAT(offered({"-h"}), IsEmpty());
    EXPECT_THAT(offered({"pf", "-"}), ElementsAre("--help"));
}

TEST(ToolComplete, TellsWhatACommandDoes)
{
    EXPECT_EQ(printed({"complete", "stock", "ro"}), "root\tprint the installation root\n");
    EXPECT_EQ(printed({"complete", "stock", "tim"}),
              "time\tread times in any form and print them\n");
}

TEST(ToolComplete, OffersTheParameterFilesAlongPFPATH)
{
    const TempDir dir;
    dir.file("a/stations.pf", "");
    dir.file("a/both.pf", "");
    dir.file("b/both.pf", "");
    dir.file("b/note.txt", "");
    const Words path = {"PFPATH=" + dir / "a" + ":" + dir / "missing" + ":" + dir / "b"};
    EXPECT_THAT(offered({"pf", "get", ""}, path), ElementsAre("both", "stations"));
    EXPECT_THAT(offered({"pf", "get", "--type", "int", "s"}, path), ElementsAre("stations"));
    EXPECT_THAT(offered({"pf", "show", ""}, path), ElementsAre("both", "stations", "\tfiles"));
    EXPECT_THAT(offered({"pf", "show", "x", "--", "b"}, path), ElementsAre("both", "\tfiles"));
    EXPECT_THAT(offered({"pf", "show", "./b"}, path), ElementsAre("\tfiles"));
    EXPECT_THAT(offered({"pf", "shell", "both", ""}, path), IsEmpty());
}

TEST(ToolComplete, OffersTheParameterFilesOfTheRootWithoutPFPATH)
{
    EXPECT_THAT(offered({"pf", "explain", ""}, {"PFPATH", "TALUVINE=" + source_path(".")}),
                IsSupersetOf({"elog", "time_formats"}));
}

TEST(ToolComplete, LeavesOutWhatWouldNotStayOnItsLine)
{
    const TempDir dir;
    dir.file("north\n\tcommands.pf", "");
    dir.file("nor\tth.pf", "");
    dir.file("north east.pf", "");
    EXPECT_THAT(offered({"pf", "get", "n"}, {"PFPATH=" + dir.path()}), ElementsAre("north east"));
}

TEST(ToolComplete, OffersEveryConverter)
{
    const Words names = offered({"convert", ""});
    EXPECT_THAT(names, SizeIs(408));
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), 408U);
    ASSERT_EQ(dlsym(RTLD_DEFAULT, "ms2hd"), reinterpret_cast<void *>(&ms2hd));
    for (const std::string &name : names)
        EXPECT_NE(dlsym(RTLD_DEFAULT, name.c_str()), nullptr) << name;
    EXPECT_THAT(offered({"convert", "ums2h"}),
                ElementsAre("ums2hb", "ums2hs", "ums2hi", "ums2hl", "ums2hf", "ums2hd"));
}

TEST(ToolComplete, OffersTypesThatPfGetTakes)
{
    const TempDir dir;
    const std::string file = dir.file("x.pf", "a 1\n");
    const Words types = offered({"pf", "get", "--type", ""});
    EXPECT_THAT(types, IsSupersetOf({"int", "double", "boolean", "tbl", "arr"}));
    for (const std::string &type : types)
        EXPECT_THAT(run_program({tool_path(), "pf", "get", "--type", type, file, "a"}).status,
                    testing::Ne(2));
}

TEST(ToolComplete, LeavesToTheShellWhatItKnowsBest)
{
    EXPECT_THAT(offered({"dump", "--ascii", ""}), ElementsAre("\tfiles"));
    EXPECT_THAT(offered({"path", "rel", ""}), ElementsAre("\tdirectories"));
    EXPECT_THAT(offered({"find", "--path", ""}), ElementsAre("\tvariables"));
    EXPECT_THAT(offered({"time", "--until", "tomorrow", ""}), ElementsAre("\tcommands"));
}

TEST(ToolComplete, OffersAddressesStepByStep)
{
    const TempDir dir;
    const std::string file =
        dir.file("x.pf", "a &Arr{\n  b 1\n  c &Tbl{\n    one\n    two\n  }\n}\n"
                         "az 2\n\"two words\" 3\nl &Tbl{\n  v\n}\n");
    const Words path = {"PFPATH=" + dir.path()};
    EXPECT_THAT(offered({"pf", "get", "x", ""}, path), ElementsAre("a", "az", "l"));
    EXPECT_THAT(offered({"pf", "explain", "x", "a{"}, path), ElementsAre("a{b}", "a{c}"));
    EXPECT_THAT(offered({"pf", "get", "--type", "int", "x", "a{c}["}, path),
                ElementsAre("a{c}[0]", "a{c}[1]"));
    EXPECT_THAT(offered({"pf", "set", file, "l["}), ElementsAre("l[0]"));
    EXPECT_THAT(offered({"pf", "del", file, "a"}), ElementsAre("a", "az"));
    EXPECT_THAT(offered({"pf", "set", dir / "missing.pf", ""}), IsEmpty());
    EXPECT_THAT(offered({"pf", "set", file, "az", ""}), IsEmpty());
}

TEST(ToolComplete, OffersSignalsSeveritiesAndZones)
{
    EXPECT_THAT(offered({"log", "-s", "d"}), ElementsAre("debug", "die"));
    EXPECT_THAT(offered({"signals", "HU"}), ElementsAre("HUP"));
    EXPECT_THAT(offered({"signals", "HUP", "TER"}), ElementsAre("TERM"));
    EXPECT_THAT(offered({"time", "-z", "LO"}), ElementsAre("LOCAL"));
}

TEST(ToolComplete, LeavesOutOptionsOfOtherWaysToUseTheCommand)
{
    EXPECT_THAT(offered({"time", "-e", "-"}), Not(Contains("--delta")));
    EXPECT_THAT(offered({"time", "-e", "-"}), Contains("-z"));
    EXPECT_THAT(offered({"time", "--delta", "-"}), IsEmpty());
}

TEST(ToolComplete, OffersAnArgumentAgainWhereItRepeats)
{
    EXPECT_THAT(offered({"path", "split", "a", "b", ""}), ElementsAre("\tfiles"));
    EXPECT_THAT(offered({"tbl", "a", ""}), IsEmpty());
}

TEST(ToolComplete, OffersNothingBehindWhatIsNoCommand)
{
    EXPECT_THAT(offered({"nosuch", ""}), IsEmpty());
    EXPECT_THAT(offered({"pf", "nosuch", "-"}), IsEmpty());
    EXPECT_THAT(offered({"root", ""}), IsEmpty());
    EXPECT_THAT(offered({"pf", "get", "--nosuch", ""}), IsEmpty());
}

TEST(ToolComplete, HelpsAndRefuses)
{
    EXPECT_THAT(printed({"complete", "--help"}), StartsWith("usage: stock complete WORD..."));
    for (const Words &words : {Words{"complete"}, Words{"complete", "stock"}}) {
        const Ended ended = run_program(joined({tool_path()}, words));
        EXPECT_EQ(ended.status, 2);
        EXPECT_EQ(ended.out, "");
        EXPECT_THAT(ended.err, HasSubstr("try 'stock complete --help'\n"));
    }
}
