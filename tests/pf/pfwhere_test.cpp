// Where a value is written: the file and line that give it its present text.

#include <algorithm>
#include <cerrno>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "stock.h"
#include "support/pf_files.h"

namespace {

constexpr int kPathSize = 1024;

// "file.pf:3", the file without its directories but the last; what was logged when there is
// no place.
std::string place_of(const std::string &address, const char *name = "rain")
{
    char path[kPathSize] = "unchanged";
    int line = -1;
    const int result = pfwhere(name, address.c_str(), path, &line);
    const std::string log = take_log();
    if (result != 0) {
        EXPECT_EQ(result, -1);
        EXPECT_STREQ(path, "unchanged");
        EXPECT_EQ(line, -1);
        return log;
    }
    EXPECT_EQ(log, "");
    const std::string whole = path;
    const size_t slash = whole.rfind('/', whole.rfind('/') - 1);
    return whole.substr(slash + 1) + ":" + std::to_string(line);
}

std::string no_entry(const std::string &address)
{
    return "no entry '" + address + "' in parameter file rain\n";
}

}  // namespace

TEST(Pfwhere, TellsTheFileAndTheLineOfAValue)
{
    const PfPath path;
    path.site("rain.pf", "# gauges\n\nnorth 12.5\nsouth 3\n");
    EXPECT_EQ(place_of("north"), "site/rain.pf:3");
    EXPECT_EQ(place_of("south"), "site/rain.pf:4");
}

TEST(Pfwhere, FollowsAnAddressIntoTablesAndLists)
{
    const PfPath path;
    path.site("rain.pf", "limits &Arr{\n"
                         "  heavy 30\n"
                         "  days &Tbl{\n"
                         "    1\n"
                         "# in the first column\n"
                         "\n"
                         "    &Arr{\n"
                         "      mm 4\n"
                         "    }\n"
                         "  }\n"
                         "}\n");
    EXPECT_EQ(place_of("limits"), "site/rain.pf:1");
    EXPECT_EQ(place_of("limits{heavy}"), "site/rain.pf:2");
    EXPECT_EQ(place_of("limits{days}"), "site/rain.pf:3");
    EXPECT_EQ(place_of("limits{days}[0]"), "site/rain.pf:4");
    EXPECT_EQ(place_of("limits{days}[1]"), "site/rain.pf:6");
    EXPECT_EQ(place_of("limits{days}[2]"), "site/rain.pf:7");
    EXPECT_EQ(place_of("limits{days}[2]{mm}"), "site/rain.pf:8");
}

TEST(Pfwhere, ALaterValueOfTheKeyReplacesTheEarlierOne)
{
    const PfPath path;
    path.site("rain.pf", "north 1\nsouth 2\nnorth 3\n");
    EXPECT_EQ(place_of("north"), "site/rain.pf:3");
    EXPECT_EQ(place_of("south"), "site/rain.pf:2");
}

TEST(Pfwhere, ALaterFileReplacesWholeValues)
{
    const PfPath path;
    path.site("rain.pf", "north 1\nsouth 2\nlimits &Arr{\n heavy 30\n light 2\n}\n"
                         "days &Tbl{\n 1\n 2\n}\n");
    path.local("rain.pf", "# ours\nsouth 4\nlimits &Arr{\n heavy 40\n}\ndays &Tbl{\n 3\n}\n");
    EXPECT_EQ(place_of("north"), "site/rain.pf:1");
    EXPECT_EQ(place_of("south"), "local/rain.pf:2");
    EXPECT_EQ(place_of("limits{heavy}"), "local/rain.pf:4");
    EXPECT_EQ(place_of("limits{light}"), no_entry("limits{light}"));
    EXPECT_EQ(place_of("days[0]"), "local/rain.pf:7");
    EXPECT_EQ(place_of("days[1]"), no_entry("days[1]"));
}

TEST(Pfwhere, AValueThatWasTakenAwayHasNoPlace)
{
    const PfPath path;
    path.site("rain.pf", "north 1\nsouth 2\nlimits &Arr{\n heavy 30\n heavy &Undef{}\n}\n");
    path.local("rain.pf", "north &Undef{}\nsouth &Undef{}\nsouth 5\n");
    EXPECT_EQ(place_of("north"), no_entry("north"));
    EXPECT_EQ(place_of("south"), "local/rain.pf:3");
    EXPECT_EQ(place_of("limits{heavy}"), no_entry("limits{heavy}"));
    EXPECT_EQ(place_of("limits"), "site/rain.pf:3");
}

TEST(Pfwhere, InAListUndefTakesTheLastElementAway)
{
    const PfPath path;
    path.site("rain.pf", "days &Tbl{\n&Undef{}\n1\n2\n&Undef{}\n3\n&Arr{\nmm 4\n}\n&Undef{}\n}\n");
    EXPECT_EQ(place_of("days[0]"), "site/rain.pf:3");
    EXPECT_EQ(place_of("days[1]"), "site/rain.pf:6");
    EXPECT_EQ(place_of("days[2]"), no_entry("days[2]"));
    EXPECT_EQ(place_of("days[2]{mm}"), no_entry("days[2]{mm}"));
}

TEST(Pfwhere, AValueOfSeveralLinesStandsInTheFirst)
{
    const PfPath path;
    path.site("rain.pf", "query &Literal{\nselect *\n}\nhere &Literal\"END\none\ntwo\n\"END\n"
                         "long one\\\ntwo\n'a\nkey' 1\nlast 2\n");
    EXPECT_EQ(place_of("query"), "site/rain.pf:1");
    EXPECT_EQ(place_of("here"), "site/rain.pf:4");
    EXPECT_EQ(place_of("long"), "site/rain.pf:8");
    EXPECT_EQ(place_of("a\nkey"), "site/rain.pf:10");
    EXPECT_EQ(place_of("last"), "site/rain.pf:12");
}

TEST(Pfwhere, AKeyIsComparedAsItIsRead)
{
    const PfPath path;
    const std::string long_key(1100, 'k');
    path.site("rain.pf", "a\\#b 1\n\"two words\" 2\ntable &Arr{\n" + long_key + " 3\n c\\ 4\n}\n");
    EXPECT_EQ(place_of("a#b"), "site/rain.pf:1");
    EXPECT_EQ(place_of("two words"), "site/rain.pf:2");
    EXPECT_EQ(place_of("table{ c }"), "site/rain.pf:5");
    EXPECT_EQ(place_of("table" + long_key.substr(0, 1023)),
              no_entry("table" + long_key.substr(0, 1023)));
}

TEST(Pfwhere, AStepAtAFunctionStaysThere)
{
    const PfPath path;
    path.site("rain.pf", "north &ref(other, table)\nsouth &env(HOME) # no function\n");
    EXPECT_EQ(place_of("north"), "site/rain.pf:1");
    EXPECT_EQ(place_of("north{mm}[3]"), "site/rain.pf:1");
    EXPECT_EQ(place_of("south{mm}"), no_entry("south{mm}"));
}

TEST(Pfwhere, StepsThatDoNotFitLeadNowhere)
{
    const PfPath path;
    path.site("rain.pf", "north 1\ntable &Arr{\n0 x\n}\ndays &Tbl{\nx\n}\n");
    for (const char *address :
         {"north{x}", "north[0]", "table[0]", "days{0}", "days{x}", "nothing"})
        EXPECT_EQ(place_of(address), no_entry(address));
}

TEST(Pfwhere, TakesAddressesAsPfresolveDoes)
{
    const PfPath path;
    path.site("rain.pf", "north 1\ntable &Arr{\nheavy &Tbl{\n30\n}\n}\n");
    EXPECT_EQ(place_of("{north}"), "site/rain.pf:1");
    EXPECT_EQ(place_of("table{ heavy }"), "site/rain.pf:3");
    EXPECT_EQ(place_of("{table}{heavy} [0]"), "site/rain.pf:4");
    EXPECT_EQ(place_of("{table}heavy[00]"), "site/rain.pf:4");
}

TEST(Pfwhere, RefusesWhatIsNoAddressOfAValue)
{
    const PfPath path;
    path.site("rain.pf", "north 1\ndays &Tbl{\nx\n}\n");
    for (const char *address : {"", " ", "north]", "north}", "{north", "}north", "[0]", "days[-1]",
                                "days[", "days[x]", "days[]", "north{", "{}", "days[99999999999]"})
        EXPECT_EQ(place_of(address), no_entry(address));
}

TEST(Pfwhere, ReachesAsDeepAsTextNests)
{
    const PfPath path;
    std::string text;
    std::string address;
    for (int i = 0; i < 11; ++i) {
        text += "a &Arr{\n";
        address += i ? "{a}" : "a";
    }
    path.site("rain.pf", text + "a 1\n");
    EXPECT_EQ(place_of(address + "{a}"), "site/rain.pf:12");
    EXPECT_EQ(place_of(address + "{a}{a}"), no_entry(address + "{a}{a}"));
    EXPECT_EQ(place_of(address + "{a}{a}{a}"), no_entry(address + "{a}{a}{a}"));
}

TEST(Pfwhere, TakesANameWithItsSuffixAndOneWithADirectory)
{
    const PfPath path;
    path.site("rain.pf", "north 1\n");
    path.dirs().file("own/rain.pf", "\nnorth 2\n");
    EXPECT_EQ(place_of("north", "rain.pf"), "site/rain.pf:1");
    EXPECT_EQ(place_of("north", (path.dirs() / "own/rain").c_str()), "own/rain.pf:2");
}

TEST(Pfwhere, WithoutAFileThereIsNoValue)
{
    const PfPath path;
    EXPECT_EQ(place_of("north"), "can't find parameter file rain\n");
    EXPECT_EQ(pfwhere(nullptr, "north", nullptr, nullptr), -1);
    EXPECT_EQ(take_log(), "can't find parameter file <null>\n");
}

TEST(Pfwhere, NullsAreTaken)
{
    const PfPath path;
    path.site("rain.pf", "\nnorth 1\n");
    int line = 0;
    EXPECT_EQ(pfwhere("rain", "north", nullptr, nullptr), 0);
    EXPECT_EQ(pfwhere("rain", "north", nullptr, &line), 0);
    EXPECT_EQ(line, 2);
    EXPECT_EQ(pfwhere("rain", nullptr, nullptr, &line), -1);
    EXPECT_EQ(take_log(), no_entry("<null>"));
}

TEST(Pfwhere, BehindASyntaxErrorNothingCountsAsForTheTree)
{
    const PfPath path;
    path.site("rain.pf", "north 1\nsouth 1\n");
    path.local("rain.pf", "north 2\n}\nsouth 2\nnorth 3\n");
    EXPECT_EQ(place_of("north"), "local/rain.pf:1");
    EXPECT_EQ(place_of("south"), "site/rain.pf:2");
}

TEST(Pfwhere, AnUnclosedTableDoesNotReachIntoTheNextFile)
{
    const PfPath path;
    path.site("rain.pf", "limits &Arr{\nheavy 1\n");
    path.local("rain.pf", "\nheavy 2\n");
    EXPECT_EQ(place_of("limits{heavy}"), "site/rain.pf:2");
    EXPECT_EQ(place_of("heavy"), "local/rain.pf:2");
}

TEST(Pfwhere, AFileThatCannotBeReadIsReportedAndPassedOver)
{
    const PfPath path;
    path.site("rain.pf", "north 1\n");
    ASSERT_EQ(mkdir((path.dirs() / "local").c_str(), 0700), 0);
    ASSERT_EQ(mkdir((path.dirs() / "local/rain.pf").c_str(), 0700), 0);
    char found[kPathSize];
    EXPECT_EQ(pfwhere("rain", "north", found, nullptr), 0);
    EXPECT_EQ(found, path.dirs() / "site/rain.pf");
    take_log();
}

TEST(Pfwhere, LeavesErrnoAlone)
{
    const PfPath path;
    path.site("rain.pf", "north 1\n");
    errno = EDOM;
    EXPECT_EQ(pfwhere("rain", "north", nullptr, nullptr), 0);
    EXPECT_EQ(pfwhere("rain", "south", nullptr, nullptr), -1);
    EXPECT_EQ(pfwhere("snow", "south", nullptr, nullptr), -1);
    EXPECT_EQ(errno, EDOM);
    take_log();
}

TEST(Pfwhere, ReadsFilesThatAreLongerThanItsBuffer)
{
    const PfPath path;
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += "day" + std::to_string(i) + " " + std::to_string(i) + " \\# mm\n";
    path.site("rain.pf", text + "long " + std::string(300000, 'x') + "\nlast 1\n");
    EXPECT_EQ(place_of("day19999"), "site/rain.pf:20000");
    EXPECT_EQ(place_of("last"), "site/rain.pf:20002");
}

TEST(PfwhereThreads, AskAtOnceWhileOthersParse)
{
    const PfPath path;
    path.site("rain.pf", "north 1\nlimits &Arr{\n heavy 30 \\# mm\n}\n");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([i] {
            for (int turn = 0; turn < 200; ++turn) {
                int line = 0;
                EXPECT_EQ(pfwhere("rain", i % 2 ? "north" : "limits{heavy}", nullptr, &line), 0);
                EXPECT_EQ(line, i % 2 ? 1 : 3);
                Pf *pf = nullptr;
                EXPECT_EQ(pfread("rain", &pf), 0);
                pffree(pf);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

namespace {

// Text whose every value names its line.
class RandomFile {
public:
    explicit RandomFile(std::mt19937 &random) : random_(random) { lines(0, false); }

    std::string text;

private:
    size_t pick(size_t n) { return random_() % n; }

    void lines(int depth, bool list)
    {
        for (size_t left = pick(6); left; --left) {
            text += list ? "" : std::string(1, "abc"[pick(3)]) + " ";
            ++line_;
            const size_t what = pick(6);
            if (what == 0) {
                text += "&Undef{}\n";
            } else if (what < 3 && depth < 3) {
                text += what == 1 ? "&Tbl{\n" : "&Arr{\n";
                lines(depth + 1, what == 1);
                text += "}\n";
                ++line_;
            } else if (what == 3) {
                text += "&Literal{\n" + std::to_string(line_) + "\n}\n";
                line_ += 2;
            } else {
                text += std::to_string(line_) + "\n";
            }
        }
    }

    std::mt19937 &random_;
    int line_ = 0;
};

// Compares the place of each text of a tree with the line that the text tells.
void compare(const Pf *pf, const std::string &address, int &texts)
{
    if (pf->type == PFSTRING) {
        EXPECT_EQ(place_of(address),
                  std::string("site/rain.pf:") + std::to_string(std::stoi(pf->value.s)));
        ++texts;
    }
    for (int64_t i = 0; i < pfmaxtbl(pf); ++i)
        compare(static_cast<Pf *>(gettbl(pf->value.tbl, i)),
                address + "[" + std::to_string(i) + "]", texts);
    Tbl *keys = pfkeys(pf);
    for (int64_t i = 0; keys && i < keys->count; ++i) {
        const char *key = static_cast<const char *>(gettbl(keys, i));
        compare(static_cast<Pf *>(getarr(pf->value.arr, key)),
                address.empty() ? key : address + "{" + key + "}", texts);
    }
    if (keys)
        freetbl(keys, nullptr);
}

}  // namespace

TEST(Pfwhere, AgreesWithTheTreeOnRandomFiles)
{
    std::mt19937 random(11);
    int texts = 0;
    for (int i = 0; i < 300; ++i) {
        const PfPath path;
        const RandomFile file(random);
        SCOPED_TRACE(file.text);
        path.site("rain.pf", file.text);
        Pf *pf = nullptr;
        pfread("rain", &pf);
        const PfPtr tree(pf);
        compare(pf, "", texts);
        for (const std::string address : {"a", "b", "c", "a{a}", "a[0]", "b[1]", "c{b}[0]"}) {
            Pf *node = nullptr;
            const bool there = pfresolve(pf, address.c_str(), 0, &node) >= 0;
            EXPECT_EQ(pfwhere("rain", address.c_str(), nullptr, nullptr) == 0, there) << address;
            elog_clear();
        }
    }
    EXPECT_GT(texts, 300);
}
