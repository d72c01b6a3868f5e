// Declared parameters: every kind of value, all of them or none, and what is told of problems.

#include "stock/pfwant.h"

#include <cinttypes>
#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/comma_locale.h"
#include "support/pf_files.h"

namespace {

using testing::HasSubstr;

PfPtr tree(const std::string &text)
{
    Pf *pf = nullptr;
    EXPECT_EQ(pfcompile(text.c_str(), &pf), 0);
    return PfPtr(pf);
}

// What pfwant says of a text that is not fine, "" when it is.
std::string problems(const Pfwant *wants, const std::string &text)
{
    const PfPtr pf = tree(text);
    elog_clear();
    const int result = pfwant(pf.get(), wants);
    const std::string log = take_log();
    EXPECT_EQ(result, log.empty() ? 0 : -1) << log;
    return log;
}

// What the value of a row reads as: "= 5", or what is wrong with it.
std::string with_row(Pfwant row, const std::string &value, double low = 0, double high = 0)
{
    row.address = "x";
    row.low = low;
    row.high = high;
    const Pfwant wants[] = {row, PFWANT_END};
    const std::string text = "x &Literal{\n" + value + "}\n";
    return problems(wants, text);
}

template <class Value>
std::string shown(Value value)
{
    char text[64];
    if constexpr (std::is_integral_v<Value>)
        snprintf(text, sizeof text, "%" PRId64, static_cast<int64_t>(value));
    else
        snprintf(text, sizeof text, "%.17g", value);
    return text;
}

std::string as_int(const std::string &value, double low = 0, double high = 0)
{
    int x = -77;
    const std::string log =
        with_row({"", PFWANT_INT(&x), nullptr, 0, 0, nullptr}, value, low, high);
    return log.empty() ? shown(x) : log;
}
std::string as_int64(const std::string &value, double low = 0, double high = 0)
{
    int64_t x = -77;
    const std::string log =
        with_row({"", PFWANT_INT64(&x), nullptr, 0, 0, nullptr}, value, low, high);
    return log.empty() ? shown(x) : log;
}
std::string as_double(const std::string &value, double low = 0, double high = 0)
{
    double x = -77;
    const std::string log =
        with_row({"", PFWANT_DOUBLE(&x), nullptr, 0, 0, nullptr}, value, low, high);
    return log.empty() ? shown(x) : log;
}
std::string as_size(const std::string &value, double low = 0, double high = 0)
{
    int64_t x = -77;
    const std::string log =
        with_row({"", PFWANT_SIZE(&x), nullptr, 0, 0, nullptr}, value, low, high);
    return log.empty() ? shown(x) : log;
}
std::string as_duration(const std::string &value, double low = 0, double high = 0)
{
    double x = -77;
    const std::string log =
        with_row({"", PFWANT_DURATION(&x), nullptr, 0, 0, nullptr}, value, low, high);
    return log.empty() ? shown(x) : log;
}
std::string as_boolean(const std::string &value)
{
    int x = -77;
    const std::string log = with_row({"", PFWANT_BOOLEAN(&x), nullptr, 0, 0, nullptr}, value);
    return log.empty() ? shown(x) : log;
}
std::string as_word(const std::string &value)
{
    int x = -77;
    const std::string log =
        with_row({"", PFWANT_WORD(&x, " slow fast  fastest"), nullptr, 0, 0, nullptr}, value);
    return log.empty() ? shown(x) : log;
}
std::string as_time(const std::string &value, double low = 0, double high = 0)
{
    double x = -77;
    const std::string log =
        with_row({"", PFWANT_TIME(&x), nullptr, 0, 0, nullptr}, value, low, high);
    return log.empty() ? shown(x) : log;
}

struct Case {
    const char *text;
    const char *result;
};

// A limit of a gauge, as a program keeps it.
struct Limit {
    double mm;
    double hours;
    char *who;
};

const Pfwant kLimitWants[] = {
    {"mm", PFWANT_DOUBLE(PFWANT_AT(Limit, mm)), PFWANT_REQUIRED, 0, 1000, "rain"},
    {"hours", PFWANT_DURATION(PFWANT_AT(Limit, hours)), "1 h", 0, 0, "within"},
    {"who", PFWANT_TEXT(PFWANT_AT(Limit, who)), "nobody", 0, 0, "who is told"},
    PFWANT_END,
};

// Variables of every kind, and a table of them.
struct Station {
    int keep = 0;
    int64_t total = 0;
    double level = 0;
    int verbose = 0;
    char *state = nullptr;
    int mode = 0;
    int64_t room = 0;
    double interval = 0;
    double since = 0;
    Tbl *gauges = nullptr;
    Tbl *depths = nullptr;
    Tbl *watch = nullptr;
    Arr *numbers = nullptr;
    Arr *names = nullptr;
    Arr *limits = nullptr;
    int port = 0;

    const Pfwant wants[17] = {
        {"keep", PFWANT_INT(&keep), "100", 1, 1e6, "samples that are kept"},
        {"total", PFWANT_INT64(&total), "0", 0, 0, nullptr},
        {"level", PFWANT_DOUBLE(&level), "2.5", 0, 0, nullptr},
        {"verbose", PFWANT_BOOLEAN(&verbose), "no", 0, 0, nullptr},
        {"state", PFWANT_TEXT(&state), "&{dir}/state", 0, 0, nullptr},
        {"mode", PFWANT_WORD(&mode, "slow fast"), "fast", 0, 0, nullptr},
        {"room", PFWANT_SIZE(&room), "64 KiB", 0, 0, nullptr},
        {"interval", PFWANT_DURATION(&interval), "10 s", 0.1, 3600, nullptr},
        {"since", PFWANT_TIME(&since), "2008-02-01", 0, 0, nullptr},
        {"gauges", PFWANT_LIST(&gauges, PFWANT_TEXT), "north\nsouth", 0, 0, nullptr},
        {"depths", PFWANT_LIST(&depths, PFWANT_DOUBLE), "", 0, 100, nullptr},
        {"watch", PFWANT_WORDS(&watch, "north south"), "north", 0, 0, nullptr},
        {"numbers", PFWANT_TABLE(&numbers, PFWANT_INT), "", 0, 9, nullptr},
        {"names", PFWANT_TABLE(&names, PFWANT_TEXT), "north on the hill", 0, 0, nullptr},
        {"limits", PFWANT_RECORDS(&limits, kLimitWants, Limit), "", 0, 0, nullptr},
        {"net{port}", PFWANT_INT(&port), "80", 1, 65535, nullptr},
        PFWANT_END,
    };

    ~Station() { pfwant_free(wants); }
};

const Limit *limit(const Station &station, const char *name)
{
    return static_cast<const Limit *>(getarr(station.limits, name));
}

}  // namespace

TEST(PfwantInt, ReadsWhatIsAWholeNumberAndNothingElse)
{
    const Case cases[] = {
        {"0", "0"},
        {"  -3 ", "-3"},
        {"+4", "4"},
        {"0x1F", "31"},
        {"010", "8"},
        {"2147483647", "2147483647"},
        {"-2147483648", "-2147483648"},
        {"2147483648", "x: '2147483648' is out of range (-2147483648 to 2147483647)\n"},
        {"-2147483649", "x: '-2147483649' is out of range (-2147483648 to 2147483647)\n"},
        {"99999999999999999999",
         "x: '99999999999999999999' is out of range (-2147483648 to 2147483647)\n"},
        {"", "x: '' is not a whole number\n"},
        {"5 apples", "x: '5 apples' is not a whole number\n"},
        {"1.5", "x: '1.5' is not a whole number\n"},
        {"1e3", "x: '1e3' is not a whole number\n"},
        {"0x", "x: '0x' is not a whole number\n"},
        {"09", "x: '09' is not a whole number\n"},
        {"inf", "x: 'inf' is not a whole number\n"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(as_int(c.text), c.result) << c.text;
}

TEST(PfwantInt, KeepsToItsBounds)
{
    EXPECT_EQ(as_int("1", 1, 5), "1");
    EXPECT_EQ(as_int("5", 1, 5), "5");
    EXPECT_EQ(as_int("0", 1, 5), "x: '0' is out of range (1 to 5)\n");
    EXPECT_EQ(as_int("6", 1, 5), "x: '6' is out of range (1 to 5)\n");
    EXPECT_EQ(as_int("x", 1, 5), "x: 'x' is not a whole number (1 to 5)\n");
    EXPECT_EQ(as_int("1000000", 1, 0), "1000000");
    EXPECT_EQ(as_int("0", 1, 0), "x: '0' is out of range (at least 1)\n");
    EXPECT_EQ(as_int("0", -5, 0), "0");
    EXPECT_EQ(as_int("1", -5, 0), "x: '1' is out of range (-5 to 0)\n");
    EXPECT_EQ(as_int("-1", 0, 5), "x: '-1' is out of range (0 to 5)\n");
    EXPECT_EQ(as_int("7", -INFINITY, 5), "x: '7' is out of range (at most 5)\n");
    EXPECT_EQ(as_int("1", 0.5, 1.5), "1");
    EXPECT_EQ(as_int("2", 0.5, 1.5), "x: '2' is out of range (0.5 to 1.5)\n");
    EXPECT_EQ(as_int("99999999999", 1, 5), "x: '99999999999' is out of range (1 to 5)\n");
}

TEST(PfwantInt64, ReadsAndBoundsAllThatFitExactly)
{
    EXPECT_EQ(as_int64("9223372036854775807"), "9223372036854775807");
    EXPECT_EQ(as_int64("-9223372036854775808"), "-9223372036854775808");
    EXPECT_EQ(as_int64("9223372036854775808"),
              "x: '9223372036854775808' is out of range (-9223372036854775808 to "
              "9223372036854775807)\n");
    // As doubles these two were equal.
    EXPECT_EQ(as_int64("9007199254740992", 0, 9007199254740992.0), "9007199254740992");
    EXPECT_EQ(as_int64("9007199254740993", 0, 9007199254740992.0),
              "x: '9007199254740993' is out of range (0 to 9007199254740992)\n");
    EXPECT_EQ(as_int64("9223372036854775807", 0, 1e300), "9223372036854775807");
}

TEST(PfwantDouble, ReadsNumbersAndInfinitiesWhereNoBoundStands)
{
    const Case cases[] = {
        {"2.5", "2.5"},
        {" -1e-3\t", "-0.001"},
        {".5", "0.5"},
        {"0x1p4", "16"},
        {"inf", "inf"},
        {"-Inf", "-inf"},
        {"nan", "x: 'nan' is not a number\n"},
        {"1e400", "x: '1e400' is out of range\n"},
        {"1,5", "x: '1,5' is not a number\n"},
        {"1.5 mm", "x: '1.5 mm' is not a number\n"},
        {"abc", "x: 'abc' is not a number\n"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(as_double(c.text), c.result) << c.text;
    EXPECT_EQ(as_double("abc", 0, 1000), "x: 'abc' is not a number (0 to 1000)\n");
    EXPECT_EQ(as_double("inf", 0, 1000), "x: 'inf' is out of range (0 to 1000)\n");
    EXPECT_EQ(as_double("nan", 0, 1000), "x: 'nan' is not a number (0 to 1000)\n");
    EXPECT_EQ(as_double("inf", 1, INFINITY), "inf");
    EXPECT_EQ(as_double("-inf", 1, INFINITY), "x: '-inf' is out of range (at least 1)\n");
    EXPECT_EQ(as_double("1000.0000000001", 0, 1000),
              "x: '1000.0000000001' is out of range (0 to 1000)\n");
}

TEST(PfwantDouble, TheLocaleChangesNothing)
{
    const CommaLocale comma;
    EXPECT_EQ(as_double("2.5", 0.5, 2), "x: '2.5' is out of range (0.5 to 2)\n");
    double x = 0;
    const Pfwant wants[] = {{"x", PFWANT_DURATION(&x), "1.5 h", 0, 0, nullptr}, PFWANT_END};
    EXPECT_EQ(pfwant(nullptr, wants), 0);
    EXPECT_EQ(x, 5400);
}

TEST(PfwantBoolean, IsOneOrZero)
{
    for (const char *word : {"yes", "TRUE", "on", "ok", "y", "t", "1", " yes\t"})
        EXPECT_EQ(as_boolean(word), "1") << word;
    for (const char *word : {"no", "False", "off", "n", "f", "0"})
        EXPECT_EQ(as_boolean(word), "0") << word;
    EXPECT_EQ(as_boolean("perhaps"), "x: 'perhaps' is not yes or no\n");
    EXPECT_EQ(as_boolean(""), "x: '' is not yes or no\n");
    EXPECT_EQ(as_boolean("yes yes yes yes"), "x: 'yes yes yes yes' is not yes or no\n");
}

TEST(PfwantWord, IsTheNumberOfTheWord)
{
    EXPECT_EQ(as_word("slow"), "0");
    EXPECT_EQ(as_word(" fast"), "1");
    EXPECT_EQ(as_word("fastest"), "2");
    EXPECT_EQ(as_word("Slow"), "x: 'Slow' is none of slow, fast, fastest\n");
    EXPECT_EQ(as_word(""), "x: '' is none of slow, fast, fastest\n");
    EXPECT_EQ(as_word("slow fast"), "x: 'slow fast' is none of slow, fast, fastest\n");
}

TEST(PfwantSize, IsAWholeNumberOfBytes)
{
    const Case cases[] = {
        {"512", "512"},
        {"512 B", "512"},
        {"10 MB", "10000000"},
        {"10M", "10000000"},
        {"64 KiB", "65536"},
        {"64Ki", "65536"},
        {"1k", "1000"},
        {"1K", "1000"},
        {"1.5G", "1500000000"},
        {"0.001 k", "1"},
        {"0.5 KiB", "512"},
        {"2TiB", "2199023255552"},
        {"7 EiB", "8070450532247928832"},
        {"9.223372036 E", "9223372036000000000"},
        {"1e6", "1000000"},
        {"0x10", "16"},
        {"0", "0"},
        {"8 EiB", "x: '8 EiB' is out of range (0 to 9223372036854775807)\n"},
        {"1e30", "x: '1e30' is out of range (0 to 9223372036854775807)\n"},
        {"-1", "x: '-1' is out of range (0 to 9223372036854775807)\n"},
        {"-1k", "x: '-1k' is out of range (0 to 9223372036854775807)\n"},
        {"1.5", "x: '1.5' is not a size\n"},
        {"0.0001k", "x: '0.0001k' is not a size\n"},
        {"5m", "x: '5m' is not a size\n"},
        {"5 Mb", "x: '5 Mb' is not a size\n"},
        {"5 kib", "x: '5 kib' is not a size\n"},
        {"5 M B", "x: '5 M B' is not a size\n"},
        {"k", "x: 'k' is not a size\n"},
        {"1 k 5", "x: '1 k 5' is not a size\n"},
        {"nan", "x: 'nan' is not a size\n"},
        {"", "x: '' is not a size\n"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(as_size(c.text), c.result) << c.text;
    EXPECT_EQ(as_size("2k", 0, 1000), "x: '2k' is out of range (0 to 1000)\n");
}

TEST(PfwantDuration, IsReadExactly)
{
    const Case cases[] = {
        {"90 s", "90"},
        {"1 h 30 m", "5400"},
        {"1h30m", "5400"},
        {"2 d", "172800"},
        {"2 weeks 1 day", "1296000"},
        {"1 hour 1 minute 1 second", "3661"},
        {"5 min 3 sec", "303"},
        {"10", "10"},
        {"1e-3", "0.001"},
        {"250 ms", "0.25"},
        {"0.1 h", "360"},
        {".5 m", "30"},
        {"7us 3 ns", "7.0029999999999997e-06"},
        {"0", "0"},
        {"0.000000001 w", "0.00060479999999999996"},
        {"999999999999 w", "6.047999999993952e+17"},
        {"-1 s", "x: '-1 s' is out of range (at least 0 s)\n"},
        {"-1", "x: '-1' is out of range (at least 0 s)\n"},
        {"inf", "x: 'inf' is out of range (at least 0 s)\n"},
        {"nan", "x: 'nan' is not a duration\n"},
        {"fast", "x: 'fast' is not a duration\n"},
        {"", "x: '' is not a duration\n"},
        {"s", "x: 's' is not a duration\n"},
        {"5 x", "x: '5 x' is not a duration\n"},
        {"5 S", "x: '5 S' is not a duration\n"},
        {"30 m 1 h", "x: '30 m 1 h' is not a duration\n"},
        {"1 h 1 h", "x: '1 h 1 h' is not a duration\n"},
        {"1 h 30", "x: '1 h 30' is not a duration\n"},
        {"1 h -5 m", "x: '1 h -5 m' is not a duration\n"},
        {"1:30", "x: '1:30' is not a duration\n"},
        {"1 h,", "x: '1 h,' is not a duration\n"},
        {"1.0000000001 s", "x: '1.0000000001 s' is not a duration\n"},
        {"1234567890123 s", "x: '1234567890123 s' is not a duration\n"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(as_duration(c.text), c.result) << c.text;
    // Products and sums of doubles would be a digit off.
    for (int ms = 0; ms < 5000; ++ms) {
        const std::string text = std::to_string(ms) + " ms";
        EXPECT_EQ(as_duration(text), shown(ms / 1000.0)) << text;
    }
    EXPECT_EQ(as_duration("-1 h 30 m", -86400, 86400), "-5400");
    EXPECT_EQ(as_duration("50 ms", 0.1, 3600), "x: '50 ms' is out of range (0.1 s to 3600 s)\n");
}

TEST(PfwantTime, IsWhatTimesAre)
{
    EXPECT_EQ(as_time("2008-02-01 12:30:15.5"), "1201869015.5");
    EXPECT_EQ(as_time("1 Feb 2008"), "1201824000");
    EXPECT_EQ(as_time("32 Feb 2008"), "x: '32 Feb 2008' is not a time\n");
    EXPECT_EQ(as_time("soon"), "x: 'soon' is not a time\n");
    EXPECT_EQ(as_time("1 Feb 2008", 1.5e9, INFINITY),
              "x: '1 Feb 2008' is out of range (at least 2017-07-14 02:40:00)\n");
}

TEST(PfwantText, IsTakenAsItIsAndBoundedInBytes)
{
    char *x = nullptr;
    Pfwant wants[] = {{"x", PFWANT_TEXT(&x), nullptr, 1, 4, nullptr}, PFWANT_END};
    EXPECT_EQ(problems(wants, "x &Literal{\n a }\n"), "");
    EXPECT_STREQ(x, " a ");
    EXPECT_EQ(problems(wants, "x abcde\n"), "x: 'abcde' is too long (1 to 4 bytes)\n");
    EXPECT_EQ(problems(wants, "x\n"), "x: '' is too short (1 to 4 bytes)\n");
    EXPECT_STREQ(x, " a ");
    pfwant_free(wants);
    EXPECT_EQ(x, nullptr);
}

TEST(Pfwant, GivesEveryVariableItsDefault)
{
    Station s;
    EXPECT_EQ(problems(s.wants, "dir /tmp\n"), "");
    EXPECT_EQ(s.keep, 100);
    EXPECT_EQ(s.level, 2.5);
    EXPECT_EQ(s.verbose, 0);
    EXPECT_STREQ(s.state, "/tmp/state");
    EXPECT_EQ(s.mode, 1);
    EXPECT_EQ(s.room, 65536);
    EXPECT_EQ(s.interval, 10);
    EXPECT_EQ(s.since, 1201824000);
    ASSERT_EQ(s.gauges->count, 2);
    EXPECT_STREQ(static_cast<char *>(gettbl(s.gauges, 1)), "south");
    EXPECT_EQ(s.depths->count, 0);
    ASSERT_EQ(s.watch->count, 1);
    EXPECT_EQ(*static_cast<int *>(gettbl(s.watch, 0)), 0);
    EXPECT_EQ(cntarr(s.numbers), 0);
    EXPECT_STREQ(static_cast<char *>(getarr(s.names, "north")), "on the hill");
    EXPECT_EQ(cntarr(s.limits), 0);
    EXPECT_EQ(s.port, 80);
}

TEST(Pfwant, DefaultsStandAsIfTheyWereInTheFile)
{
    struct Pump {
        char *name, *line;
    };
    const Pfwant pump[] = {
        {"name", PFWANT_TEXT(PFWANT_AT(Pump, name)), "pump", 0, 0, nullptr},
        {"line", PFWANT_TEXT(PFWANT_AT(Pump, line)), "&{dir}/&name", 0, 0, nullptr},
        PFWANT_END,
    };
    char *state = nullptr, *log = nullptr, *dir = nullptr;
    int n = 0;
    Arr *pumps = nullptr;
    Tbl *files = nullptr;
    const Pfwant wants[] = {
        {"state", PFWANT_TEXT(&state), "&{dir}/state &{n}", 0, 0, nullptr},
        {"log{file}", PFWANT_TEXT(&log), "&dir/log", 0, 0, nullptr},
        {"dir", PFWANT_TEXT(&dir), "/tmp", 0, 0, nullptr},
        {"n", PFWANT_INT(&n), "&exec(echo 7)", 0, 0, nullptr},
        {"files", PFWANT_LIST(&files, PFWANT_TEXT), "&dir/a", 0, 0, nullptr},
        {"pumps", PFWANT_RECORDS(&pumps, pump, Pump), "one &Arr{\n}", 0, 0, nullptr},
        PFWANT_END,
    };
    for (const char *text : {"", "dir /home\n", "dir /home\nfiles &Tbl{\n&{dir}/&n\n}\n"}) {
        const std::string where = *text ? "/home" : "/tmp";
        const PfPtr pf = tree(text);
        const std::string before = tree_text(pf.get());
        EXPECT_EQ(pfwant(pf.get(), wants), 0) << take_log();
        EXPECT_EQ(tree_text(pf.get()), before);
        EXPECT_EQ(state, where + "/state 7");
        EXPECT_EQ(log, where + "/log");
        EXPECT_EQ(n, 7);
        const bool given = std::string(text).find("files") != std::string::npos;
        EXPECT_EQ(static_cast<char *>(gettbl(files, 0)), where + (given ? "/7" : "/a"));
        EXPECT_EQ(static_cast<Pump *>(getarr(pumps, "one"))->line, where + "/pump");
    }
    pfwant_free(wants);
}

TEST(Pfwant, ANullTreeHasNoValues)
{
    Station s;
    EXPECT_EQ(pfwant(nullptr, s.wants), 0);
    EXPECT_EQ(s.keep, 100);
    EXPECT_STREQ(s.state, "&{dir}/state");
    char *required = nullptr;
    const Pfwant wants[] = {{"state", PFWANT_TEXT(&required), PFWANT_REQUIRED, 0, 0, nullptr},
                            PFWANT_END};
    EXPECT_EQ(pfwant(nullptr, wants), -1);
    EXPECT_EQ(take_log(), "state: is missing (a text)\n");
    EXPECT_EQ(pfwant(nullptr, nullptr), -1);
    const PfPtr list(pfnew(PFTBL));
    EXPECT_EQ(pfwant(list.get(), wants), -1);
    EXPECT_EQ(take_log(), "pfwant: the tree is no table\n");
}

TEST(Pfwant, ReadsEveryKindFromATree)
{
    Station s;
    EXPECT_EQ(problems(s.wants, "keep 5\ntotal 5000000000\nlevel -1\nverbose yes\nstate here\n"
                                "mode slow\nroom 1 MB\ninterval 1 m\nsince 2008-02-02\n"
                                "gauges &Tbl{\nwest\n}\ndepths &Tbl{\n1.5\n2\n}\n"
                                "watch &Tbl{\nsouth\nnorth\n}\n"
                                "numbers &Arr{\na 1\nb 2\n}\nnames &Arr{\n}\n"
                                "limits &Arr{\nnorth &Arr{\nmm 3\nwho &{keep} people\n}\n}\n"
                                "net &Arr{\nport 443\n}\n"),
              "");
    EXPECT_EQ(s.keep, 5);
    EXPECT_EQ(s.total, 5000000000);
    EXPECT_EQ(s.level, -1);
    EXPECT_EQ(s.verbose, 1);
    EXPECT_STREQ(s.state, "here");
    EXPECT_EQ(s.mode, 0);
    EXPECT_EQ(s.room, 1000000);
    EXPECT_EQ(s.interval, 60);
    EXPECT_STREQ(static_cast<char *>(gettbl(s.gauges, 0)), "west");
    EXPECT_EQ(*static_cast<double *>(gettbl(s.depths, 1)), 2);
    EXPECT_EQ(*static_cast<int *>(gettbl(s.watch, 0)), 1);
    EXPECT_EQ(*static_cast<int *>(getarr(s.numbers, "b")), 2);
    EXPECT_EQ(cntarr(s.names), 0);
    ASSERT_TRUE(limit(s, "north"));
    EXPECT_EQ(limit(s, "north")->mm, 3);
    EXPECT_EQ(limit(s, "north")->hours, 3600);
    EXPECT_STREQ(limit(s, "north")->who, "5 people");
    EXPECT_EQ(s.port, 443);
}

TEST(Pfwant, AFunctionIsEvaluatedOnce)
{
    const TempDir dir;
    int x = 0;
    const Pfwant wants[] = {{"x", PFWANT_INT(&x), nullptr, 0, 0, nullptr}, PFWANT_END};
    EXPECT_EQ(problems(wants, "x &exec(echo called >> '" + dir / "calls" + "'; echo 5)\n"), "");
    EXPECT_EQ(x, 5);
    EXPECT_EQ(read_file(dir / "calls"), "called\n");
    EXPECT_EQ(problems(wants, "x &exec(echo no; exit 1)\n"), "x: the command failed: 'no'\n");
    EXPECT_EQ(problems(wants, "x &undef()\n"), "x: is missing (a whole number)\n");
    const Pfwant by_default[] = {{"x", PFWANT_INT(&x), "&exec(echo 7)", 0, 0, nullptr}, PFWANT_END};
    EXPECT_EQ(problems(by_default, ""), "");
    EXPECT_EQ(x, 7);
}

TEST(Pfwant, WithAnyProblemNoVariableChanges)
{
    Station s;
    ASSERT_EQ(problems(s.wants, "dir /tmp\n"), "");
    const char *state = s.state;
    const Tbl *gauges = s.gauges;
    EXPECT_EQ(problems(s.wants, "keep 7\nstate new\ngauges &Tbl{\nwest\n}\nlimits &Arr{\nnorth "
                                "&Arr{\nmm 1\nwho me\n}\n}\nmode faster\n"),
              "mode: 'faster' is none of slow, fast\n");
    EXPECT_EQ(s.keep, 100);
    EXPECT_EQ(s.state, state);
    EXPECT_EQ(s.gauges, gauges);
    EXPECT_EQ(cntarr(s.limits), 0);
}

TEST(Pfwant, AValueThatIsTheSameStaysWhereItIs)
{
    Station s;
    const std::string text = "state here\nlimits &Arr{\nnorth &Arr{\nmm 3\n}\n}\n";
    ASSERT_EQ(problems(s.wants, text), "");
    const char *state = s.state;
    const Tbl *gauges = s.gauges;
    const Arr *limits = s.limits;
    EXPECT_EQ(problems(s.wants, text + "keep 5\n"), "");
    EXPECT_EQ(s.keep, 5);
    EXPECT_EQ(s.state, state);
    EXPECT_EQ(s.gauges, gauges);
    EXPECT_EQ(s.limits, limits);
    EXPECT_EQ(problems(s.wants, "state here\nlimits &Arr{\nnorth &Arr{\nmm 4\n}\n}\n"), "");
    EXPECT_EQ(s.state, state);
    EXPECT_EQ(limit(s, "north")->mm, 4);
}

TEST(Pfwant, EveryProblemIsAMessage)
{
    Station s;
    EXPECT_EQ(problems(s.wants, "keep 0\ngauges north\ndepths &Tbl{\n5\nx\n&Arr{\n}\n101\n}\n"
                                "numbers &Arr{\na 10\nb &Tbl{\n}\n}\n"
                                "limits &Arr{\nnorth 5\nsouth &Arr{\nmm &Arr{\n}\n}\n"
                                "west &Arr{\nhours 5\n}\n}\n"
                                "net 5\nverbose &Tbl{\n}\n"),
              "keep: '0' is out of range (1 to 1000000)\n"
              "verbose: is a list, not yes or no\n"
              "gauges: 'north' is not a list\n"
              "depths[1]: 'x' is not a number (0 to 100)\n"
              "depths[2]: is a table, not a number\n"
              "depths[3]: '101' is out of range (0 to 100)\n"
              "numbers{a}: '10' is out of range (0 to 9)\n"
              "numbers{b}: is a list, not a whole number\n"
              "limits{north}: '5' is not a table\n"
              "limits{south}{mm}: is a table, not a number\n"
              "limits{west}{mm}: is missing (a number)\n"
              "net{port}: is missing: what it should stand in is no table\n");
}

TEST(Pfwant, AKeyThatNothingWantsIsToldWithTheNearest)
{
    Station s;
    const Case cases[] = {
        {"intreval 5\n", "intreval: nothing wants this; did you mean 'interval'?\n"},
        {"Keep 5\n", "Keep: nothing wants this; did you mean 'keep'?\n"},
        {"kepe 5\n", "kepe: nothing wants this; did you mean 'keep'?\n"},
        {"rainfall 5\n", "rainfall: nothing wants this\n"},
        {"port 5\n", "port: nothing wants this; did you mean 'net{port}'?\n"},
        {"net &Arr{\nprot 5\n}\n", "net{prot}: nothing wants this; did you mean 'net{port}'?\n"},
        {"limits &Arr{\nnorth &Arr{\nmm 3\nhour 2\n}\n}\n",
         "limits{north}{hour}: nothing wants this; did you mean 'limits{north}{hours}'?\n"},
        {"\"a{b\" 5\n", "a{b: nothing wants this\n"},
        {"\"net{port}\" 5\n", "net{port}: nothing wants this\n"},
        {"\"two words\" 5\n", "two words: nothing wants this\n"},
        {"\"tab\there\" 5\n", "tab\\there: nothing wants this\n"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(problems(s.wants, c.text), c.result) << c.text;
}

TEST(Pfwant, WhatNobodySeesInAFileIsShown)
{
    Station s;
    EXPECT_EQ(problems(s.wants, "\xef\xbb\xbfkeep 5\n"), "\\ufeffkeep: nothing wants this\n");
    EXPECT_EQ(problems(s.wants, "keep \xc3\xa9\xff\x01\xc3\n"),
              "keep: '\xc3\xa9\\xff\\x01\\xc3' is not a whole number (1 to 1000000)\n");
    // Lines that end in "\r\n": numbers and words do not mind, texts do.
    EXPECT_EQ(problems(s.wants, "keep 7\r\nmode slow\r\nverbose yes\r\ninterval 1 m\r\n"), "");
    EXPECT_EQ(s.keep, 7);
    EXPECT_EQ(problems(s.wants, "state /tmp\r\ngauges &Tbl{\r\nnorth\r\n}\r\n"),
              "state: '/tmp\\x0d' ends in a carriage return\n"
              "gauges[0]: 'north\\x0d' ends in a carriage return\n");
    EXPECT_EQ(problems(s.wants, "keep " + std::string(100, 'x') + "\n"),
              "keep: '" + std::string(80, 'x') + "...' is not a whole number (1 to 1000000)\n");
}

TEST(Pfwant, AKeyThatIsReferredToIsWanted)
{
    Station s;
    EXPECT_EQ(problems(s.wants, "dir /tmp\nstate &dir/x\n"), "");
    EXPECT_EQ(problems(s.wants, "base /tmp\nnames &Arr{\na &{base}/x\n}\n"), "");
    EXPECT_EQ(problems(s.wants, "n 5\nkeep &exec(echo &n)\n"), "");
    EXPECT_EQ(s.keep, 5);
    EXPECT_EQ(problems(s.wants, "n 5\nstate &nn\n"), "n: nothing wants this\n");
    EXPECT_EQ(problems(s.wants, "pf_revision_time 2008-02-01\n"), "");
}

TEST(Pfwant, KeysOfOthersAreAllowedWhereARowSaysSo)
{
    int x = 0;
    const Pfwant wants[] = {
        {"x", PFWANT_INT(&x), "1", 0, 0, nullptr},
        {"extra", PFWANT_ANY(), nullptr, 0, 0, nullptr},
        {"net{*}", PFWANT_ANY(), nullptr, 0, 0, nullptr},
        PFWANT_END,
    };
    EXPECT_EQ(problems(wants, "extra &Arr{\na 1\n}\nnet &Arr{\nb 1\n}\n"), "");
    EXPECT_EQ(problems(wants, "y 1\n"), "y: nothing wants this; did you mean 'x'?\n");
    const Pfwant all[] = {{"x", PFWANT_INT(&x), "1", 0, 0, nullptr},
                          {"*", PFWANT_ANY(), nullptr, 0, 0, nullptr},
                          PFWANT_END};
    EXPECT_EQ(problems(all, "y 1\nz &Tbl{\n}\n"), "");
}

TEST(Pfwant, ATableOfATreeIsReadByItself)
{
    const PfPtr pf = tree("site &Arr{\nnorth &Arr{\nx five\n}\n}\n");
    Pf *north = nullptr;
    pfresolve(pf.get(), "site{north}", 0, &north);
    int x = 0;
    const Pfwant wants[] = {{"x", PFWANT_INT(&x), "1", 0, 0, nullptr}, PFWANT_END};
    EXPECT_EQ(pfwant(north, wants), -1);
    EXPECT_EQ(take_log(), "site{north}{x}: 'five' is not a whole number\n");
}

TEST(Pfwant, ProblemsNameFileAndLine)
{
    const PfPath path;
    Station s;
    const std::string site = path.site("gauge.pf", "keep 5\n\n\nlevel high\n");
    const std::string local = path.local("gauge.pf", "# mine\nkeep\t0\nlimits &Arr{\n north &Arr{\n"
                                                     "  hours 5\n }\n south &Arr{\n mm abc\n }\n}\n"
                                                     "depths &Tbl{\n1\n\n}\nintreval 5\n");
    Pf *pf = nullptr;
    ASSERT_EQ(pfread("gauge", &pf), 0);
    const PfPtr owner(pf);
    EXPECT_EQ(pfwant(pf, s.wants), -1);
    EXPECT_EQ(take_log(), local + ":2: keep: '0' is out of range (1 to 1000000)\n" + site +
                              ":4: level: 'high' is not a number\n" + local +
                              ":13: depths[1]: '' is not a number (0 to 100)\n" + local +
                              ":4: limits{north}{mm}: is missing (a number)\n" + local +
                              ":8: limits{south}{mm}: 'abc' is not a number (0 to 1000)\n" + local +
                              ":15: intreval: nothing wants this; did you mean 'interval'?\n");
    // What is missing altogether belongs at the end of the last file.
    char *state = nullptr;
    const Pfwant wants[] = {{"station", PFWANT_TEXT(&state), PFWANT_REQUIRED, 0, 0, nullptr},
                            {"*", PFWANT_ANY(), nullptr, 0, 0, nullptr},
                            PFWANT_END};
    EXPECT_EQ(pfwant(pf, wants), -1);
    EXPECT_EQ(take_log(), local + ":15: station: is missing (a text)\n");
}

TEST(Pfwant, ABadFileDoesNotFillTheLog)
{
    std::string text;
    for (int i = 0; i < 100; ++i)
        text += "rain" + std::to_string(i) + " 1\n";
    Station s;
    const PfPtr pf = tree(text);
    elog_clear();
    EXPECT_EQ(pfwant(pf.get(), s.wants), -1);
    EXPECT_EQ(elog_mark(), 21);
    EXPECT_THAT(take_log(), HasSubstr("and 80 problems more\n"));
    // 50 messages may wait, and the next one ends the process.
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(pfwant(pf.get(), s.wants), -1);
    EXPECT_LT(elog_mark(), 50);
    elog_clear();
}

TEST(Pfwant, MistakesOfTheTableAreTold)
{
    int x = 0;
    Tbl *list = nullptr;
    Arr *arr = nullptr;
    const struct {
        Pfwant row;
        const char *message;
    } cases[] = {
        {{"x", 0, 0, &x, nullptr, nullptr, 0, "1", 0, 0, nullptr}, "has no kind"},
        {{"x", 99, 0, &x, nullptr, nullptr, 0, "1", 0, 0, nullptr}, "has no kind"},
        {{"x", PFWANT_INT, 0, nullptr, nullptr, nullptr, 0, "1", 0, 0, nullptr}, "has no variable"},
        {{"x", PFWANT_WORD, 0, &x, nullptr, nullptr, 0, "a", 0, 0, nullptr}, "has no words"},
        {{"x", PFWANT_LIST(&list, PFWANT_LIST), "", 0, 0, nullptr},
         "is a list or table of no kind"},
        {{"x", PFWANT_RECORDS(&arr, nullptr, Limit), "", 0, 0, nullptr},
         "has no rows for its records"},
        {{"x", PFWANT_INT(&x), "1", 5, 1, nullptr}, "has bounds that nothing is between"},
        {{"x", PFWANT_INT(&x), "1", NAN, 1, nullptr}, "has bounds that nothing is between"},
        {{"x", PFWANT_INT(&x), "one", 0, 0, nullptr}, "has a default that it would refuse"},
        {{"x", PFWANT_INT(&x), "0", 1, 2, nullptr}, "has a default that it would refuse"},
    };
    for (const auto &c : cases) {
        const Pfwant wants[] = {c.row, PFWANT_END};
        EXPECT_EQ(problems(wants, "x 1\n"),
                  std::string("the program's row 'x' ") + c.message + "\n");
    }
    const Pfwant wants[] = {{"list", PFWANT_LIST(&list, PFWANT_INT), "1\ntwo", 0, 0, nullptr},
                            PFWANT_END};
    EXPECT_EQ(problems(wants, ""),
              "the program's default of list[1]: 'two' is not a whole number\n");
}

TEST(Pfwant, RecordsMayHoldRecords)
{
    struct Node {
        int depth;
        Arr *below;
    };
    static Pfwant wants[3];
    wants[0] = {"depth", PFWANT_INT(PFWANT_AT(Node, depth)), "0", 0, 0, nullptr};
    wants[1] = {"below", PFWANT_RECORDS(PFWANT_AT(Node, below), wants, Node), "", 0, 0, nullptr};
    wants[2] = PFWANT_END;
    Arr *nodes = nullptr;
    const Pfwant top[] = {{"nodes", PFWANT_RECORDS(&nodes, wants, Node), "", 0, 0, nullptr},
                          PFWANT_END};
    EXPECT_EQ(problems(top, "nodes &Arr{\na &Arr{\nbelow &Arr{\nb &Arr{\ndepth 2\n}\n}\n}\n}\n"),
              "");
    const auto *a = static_cast<const Node *>(getarr(nodes, "a"));
    const auto *b = static_cast<const Node *>(getarr(a->below, "b"));
    EXPECT_EQ(b->depth, 2);
    EXPECT_EQ(cntarr(b->below), 0);
    EXPECT_EQ(problems(top, "nodes &Arr{\na &Arr{\nbelow &Arr{\nb &Arr{\ndepth x\n}\n}\n}\n}\n"),
              "nodes{a}{below}{b}{depth}: 'x' is not a whole number\n");
    pfwant_free(top);
    EXPECT_EQ(nodes, nullptr);
}

TEST(PfwantThreads, EachThreadHasItsOwnTable)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            Station s;
            for (int i = 1; i <= 50; ++i) {
                const PfPtr pf = tree("keep " + std::to_string(100 * t + i) + "\nstate s\n");
                EXPECT_EQ(pfwant(pf.get(), s.wants), 0);
                EXPECT_EQ(s.keep, 100 * t + i);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}
