// Printing times: every code, the default formats, zones, styles, intervals.

#include "stock/time.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stock/epoch.h"
#include "stock/h2e.h"
#include "stock/str2epoch.h"
#include "support/child.h"
#include "support/logged.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kTime = 1201869015.25;  // 2008-02-01 12:30:15.25, a Friday

std::string taken(char *text)
{
    const Text owner(text);
    return text;
}

std::string utc(const char *format, double when = kTime)
{
    return taken(epoch2str(format, when));
}

std::string in_zone(const char *format, const char *zone, double when = kTime)
{
    return taken(zepoch2str(format, zone, when));
}

std::string styled(int style, const char *zone, double when = kTime)
{
    char buf[FMTTIME_SIZE];
    EXPECT_EQ(fmttime(buf, style, zone, when), 0);
    return buf;
}

std::string delta(double seconds)
{
    return taken(strtdelta(seconds));
}

std::string printf_text(const char *format, double value)
{
    char text[400];
    snprintf(text, sizeof text, format, value);
    return text;
}

// Prints a day, given by its year and day of the year, with a format.
std::string of_fields(const char *format, int year, int doy, int month, int day, int hour,
                      int minute, double second)
{
    return taken(ztime2str(format, year, doy, month, day, hour, minute, "ZONE", 1.5, second));
}

struct ZoneSet {
    explicit ZoneSet(const char *name)
    {
        setenv("TZ", name, 1);
        tzset();
    }
    ~ZoneSet()
    {
        unsetenv("TZ");
        tzset();
    }
};

const double kNoTimes[] = {kInf, -kInf, kNan, 1e300, -1e300, 1e15, -1e15};

}  // namespace

TEST(TimeCodes, EachPrintsItsField)
{
    const struct {
        const char *format, *text;
    } cases[] = {
        {"%A", "Friday"},     {"%a", "Fri"},      {"%B", "February"},     {"%b", "Feb"},
        {"%D", " 2/01/08"},   {"%d", "01"},       {"%e", " 1"},           {"%E", " 1201869015.250"},
        {"%G", "2008-02-01"}, {"%g", "2008-032"}, {"%H", "12"},           {"%k", "12"},
        {"%I", "12"},         {"%l", "12"},       {"%j", "032"},          {"%L", " 2"},
        {"%m", "02"},         {"%M", "30"},       {"%n", "\n"},           {"%t", "\t"},
        {"%O", "32nd"},       {"%o", "1st"},      {"%p", "PM"},           {"%S", "15"},
        {"%s", "250"},        {"%u", "25000"},    {"%T", "12:30:15.250"}, {"%Y", "2008"},
        {"%y", "08"},         {"%Z", "UTC"},      {"%z", "UTC"},          {"%%", "%"},
        {"%q", "q"},          {"% ", " "},        {"%\xe9", "\xe9"},      {"", ""},
        {"plain", "plain"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(utc(c.format), c.text) << c.format;
}

TEST(TimeCodes, APercentAtTheEndIsDropped)
{
    EXPECT_EQ(utc("%"), "");
    EXPECT_EQ(utc("%Y%"), "2008");
    EXPECT_EQ(utc("%Y%%%"), "2008%");
}

TEST(TimeCodes, EpochZeroIsAThursdayThe1st)
{
    EXPECT_EQ(utc("%A %O %%", 0), "Thursday 1st %");
}

TEST(TimeCodes, HoursOf12Have12ForMidnightAndNoon)
{
    EXPECT_EQ(utc("%I%p", 0), "12AM");
    EXPECT_EQ(utc("%I%p", 43200), "12PM");
    EXPECT_EQ(utc("%I%p", 46800), "01PM");
    EXPECT_EQ(utc("%l%p", 46800), " 1PM");
    EXPECT_EQ(utc("%k|%H", 3600), " 1|01");
}

TEST(TimeCodes, Second0Point9996Prints1000Milliseconds)
{
    EXPECT_EQ(utc("%s", 0.9996), "1000");
    EXPECT_EQ(utc("%s", 0.9994), "999");
    EXPECT_EQ(utc("%s", 0.0004), "000");
}

TEST(TimeCodes, HundredThousandthsStopAt99999)
{
    EXPECT_EQ(utc("%u", 0.999999), "99999");
    EXPECT_EQ(utc("%u", 0.123456), "12346");
    EXPECT_EQ(utc("%u", 0.000001), "00000");
}

TEST(TimeCodes, WholeSecondsAreCutAndFractionsOfTimesRounded)
{
    EXPECT_EQ(utc("%S", 59.9999), "59");
    EXPECT_EQ(utc("%T", 59.9996), "00:00:60.000");
    EXPECT_EQ(utc("%T", 5.0625), "00:00:05.062");
    EXPECT_EQ(utc("%T", 5.1875), "00:00:05.188");
}

TEST(TimeCodes, WeekdaysFollowThePlatformForEveryDayFrom1901To2099)
{
    for (double day = -25202; day < 47482; ++day) {
        const auto clock = static_cast<time_t>(day * 86400);
        struct tm fields = {};
        gmtime_r(&clock, &fields);
        char expected[64];
        strftime(expected, sizeof expected, "%A %a %B %b %d %e %H %j %m %M %Y %y", &fields);
        ASSERT_EQ(utc("%A %a %B %b %d %e %H %j %m %M %Y %y", day * 86400), expected);
    }
}

TEST(TimeCodes, TakeAnyFields)
{
    constexpr int most = std::numeric_limits<int>::max();
    constexpr int least = std::numeric_limits<int>::min();
    EXPECT_EQ(of_fields("%B|%b|%m", 2008, 1, 13, 1, 0, 0, 0), "||13");
    EXPECT_EQ(of_fields("%B|%b|%m", 2008, 1, 0, 1, 0, 0, 0), "||00");
    EXPECT_EQ(of_fields("%Y|%y|%d|%e|%j", -5, -5, 1, -5, 0, 0, 0), "  -5|-5|-5|-5|-05");
    EXPECT_EQ(of_fields("%H|%I|%k", 0, 0, 0, 0, 100, 0, 0), "100|04|100");
    EXPECT_EQ(of_fields("%z %E", 0, 0, 0, 0, 0, 0, 0), "ZONE           1.500");
    EXPECT_EQ(of_fields("%S|%s|%T", 1970, 1, 1, 1, 0, 0, -0.5), "00|-499|00:00:-0.500");
    for (const double second : {kInf, -kInf, kNan, 1e300, -1e300})
        for (const int field : {most, least})
            EXPECT_NE(of_fields("%A%a%D%G%g%I%O%o%S%s%u%T%y", field, field, field, field, field,
                                field, second),
                      "");
    EXPECT_EQ(of_fields("%S %s %u", 0, 0, 0, 0, 0, 0, kNan), "00 000 00000");
    EXPECT_EQ(taken(ztime2str("%z|", 0, 0, 0, 0, 0, 0, nullptr, 0, 0)), "|");
}

TEST(TimeCodes, NumbersComeOutAsThoseOfPrintf)
{
    std::mt19937_64 random(5);
    for (int i = 0; i < 100000; ++i) {
        const double second = static_cast<double>(random() % 60000000) / 1e6;
        ASSERT_EQ(of_fields("%T", 0, 0, 0, 0, 0, 0, second),
                  "00:00:" + printf_text("%06.3f", second));
        const double tie = static_cast<double>(random() % 60000) / 1000 + 0.0005;
        ASSERT_EQ(of_fields("%T", 0, 0, 0, 0, 0, 0, tie), "00:00:" + printf_text("%06.3f", tie));
        const double when = (static_cast<double>(random() % 2000000000000) - 1e12) / 7;
        ASSERT_EQ(utc("%E", when), printf_text("%15.3f", when));
    }
    for (const double when :
         {0.0, -0.0, 0.0005, 0.0015, 1e14, 123456789012345.0, 1e300, kInf, -kInf, kNan})
        EXPECT_EQ(utc("%E", when), printf_text("%15.3f", when));
}

TEST(TimeCodes, TheTextIsCutAt1023Characters)
{
    EXPECT_EQ(utc(std::string(2000, 'x').c_str()), std::string(1023, 'x'));
    std::string codes;
    for (int i = 0; i < 200; ++i)
        codes += "%A%T";
    EXPECT_EQ(utc(codes.c_str()).size(), 1023U);
    EXPECT_EQ(utc((std::string(1020, 'x') + "%Y%Y").c_str()), std::string(1020, 'x') + "200");
}

// A zone's name used to be cut after 63 characters, and the text with it after 1023.
TEST(TimeZones, ANameIsPrintedWholeHoweverLong)
{
    for (const size_t length : {3U, 63U, 64U, 500U, 1023U, 5000U}) {
        const std::string name(length, 'N');
        setenv("TZ", ("<" + name + ">-1").c_str(), 1);
        tzset();
        EXPECT_EQ(in_zone("%H %z|%Z.", ""), "13 " + name + "|" + name + ".");
        EXPECT_EQ(in_zone((std::string(1000, 'x') + "%Z.").c_str(), ""),
                  std::string(1000, 'x') + name + ".")
            << length;
        int number = 0;
        double second = 0;
        char *zone = nullptr;
        e2hz("", &number, &number, &number, &number, &number, &number, &second, &zone, kTime);
        EXPECT_EQ(taken(zone), name);
        EXPECT_EQ(taken(ztime2str("%z", 0, 0, 0, 0, 0, 0, name.c_str(), 0, 0)), name);
        EXPECT_EQ(styled(1, ""), ("2008-02-01 13:30:15.250 " + name).substr(0, FMTTIME_SIZE - 1));
    }
    unsetenv("TZ");
    tzset();
}

TEST(TimeCodes, DoNotDependOnTheLocale)
{
    setlocale(LC_ALL, "de_DE.UTF-8");
    EXPECT_EQ(utc("%A %B %E %T"), "Friday February  1201869015.250 12:30:15.250");
    EXPECT_EQ(delta(1.5), "  1.500 seconds      ");
    setlocale(LC_ALL, "C");
}

TEST(TimeCodes, AnyTimePrintsSomething)
{
    for (const double when : kNoTimes)
        EXPECT_NE(utc("%A %B %D %E %G %T", when), "") << when;
}

TEST(TimePrinters, UseTheMonthFirstDefaults)
{
    unsetenv("EUROPEAN_DATE");
    set_time_formats();
    EXPECT_EQ(Unset_formats, 0);
    EXPECT_EQ(is_month_first(), 1);
    EXPECT_STREQ(Strtime_format, "%m/%d/%Y  %H:%M:%S.%s");
    EXPECT_STREQ(Strydtime_format, "%m/%d/%Y  (%j) %H:%M:%S.%s");
    EXPECT_STREQ(UStrydtime_format, "%m/%d/%Y  (%j) %H:%M:%S.%u");
    EXPECT_STREQ(Strdate_format, "%m/%d/%Y");
    EXPECT_STREQ(ZStrtime_format, "%m/%d/%Y  %H:%M:%S.%s %z");
    EXPECT_STREQ(ZStrydtime_format, "%m/%d/%Y  (%j) %H:%M:%S.%s %z");
    EXPECT_STREQ(UZStrydtime_format, "%m/%d/%Y  (%j) %H:%M:%S.%u %z");
    EXPECT_STREQ(ZStrdate_format, "%m/%d/%Y %z");
    EXPECT_EQ(taken(strtime(0)), "01/01/1970  00:00:00.000");
    EXPECT_EQ(taken(strydtime(0)), "01/01/1970  (001) 00:00:00.000");
    EXPECT_EQ(taken(strdate(kTime)), "02/01/2008");
}

TEST(TimePrinters, UseTheDayFirstDefaultsWhenAskedFor)
{
    setenv("EUROPEAN_DATE", "", 1);
    set_time_formats();
    EXPECT_EQ(is_month_first(), 0);
    EXPECT_STREQ(Strtime_format, "%d/%m/%Y  %H:%M:%S.%s");
    EXPECT_STREQ(Strydtime_format, "%d/%m/%Y  (%j) %H:%M:%S.%s");
    EXPECT_STREQ(UStrydtime_format, "%d/%m/%Y  (%j) %H:%M:%S.%u");
    EXPECT_STREQ(Strdate_format, "%d/%m/%Y");
    EXPECT_STREQ(ZStrtime_format, "%d/%m/%Y  %H:%M:%S.%s %z");
    EXPECT_STREQ(ZStrydtime_format, "%d/%m/%Y  (%j) %H:%M:%S.%s %z");
    EXPECT_STREQ(UZStrydtime_format, "%d/%m/%Y  (%j) %H:%M:%S.%u %z");
    EXPECT_STREQ(ZStrdate_format, "%d/%m/%Y %z");
    EXPECT_EQ(taken(strdate(kTime)), "01/02/2008");
    EXPECT_EQ(utc("%D"), " 1/02/08");
    unsetenv("EUROPEAN_DATE");
    set_time_formats();
    EXPECT_EQ(utc("%D"), " 2/01/08");
}

// GoogleTest runs suites named DeathTest first: before another test makes the process read its
// formats.
TEST(TimePrintersDeathTest, LoadTheFormatsOnceOnFirstUse)
{
    const Ended ended = in_child([] {
        if (Unset_formats != 1)
            exit(1);
        free(strtime(0));
        if (Unset_formats != 0)
            exit(2);
        setenv("EUROPEAN_DATE", "1", 1);
        exit(is_month_first() == 1 ? 0 : 3);
    });
    EXPECT_EQ(ended.status, 0);
}

namespace {

// Runs the body in a child process that finds the text as its time_formats.pf.
Ended with_file(const std::string &text, const std::function<void()> &body)
{
    const TempDir dir;
    dir.file("time_formats.pf", text);
    return in_child([&] {
        setenv("PFPATH", dir.path().c_str(), 1);
        unsetenv("EUROPEAN_DATE");
        body();
    });
}

const char kPlain[] = "time T%Y\nydtime Y%j\nuydtime U%u\ndate D%d\nmonth_first no\n";
const char kTables[] =
    "location here\n"
    "here &Arr{\ntime HT\nydtime HY\nuydtime HU\ndate HD\nmonth_first yes\n}\n"
    "european &Arr{\ntime ET\nydtime EY\nuydtime EU\ndate ED\nmonth_first no\n}\n";

void print_formats()
{
    set_time_formats();
    for (const char *format :
         {Strtime_format, Strydtime_format, UStrydtime_format, Strdate_format, ZStrtime_format,
          ZStrydtime_format, UZStrydtime_format, ZStrdate_format})
        printf("%s|", format);
    printf("%d", is_month_first());
}

}  // namespace

TEST(TimeFormatsFile, GivesThePlainKeys)
{
    EXPECT_EQ(with_file(kPlain, print_formats).out,
              "T%Y|Y%j|U%u|D%d|T%Y %z|Y%j %z|U%u %z|D%d %z|0");
}

TEST(TimeFormatsFile, GivesTheKeysOfTheArrayThatItsLocationNames)
{
    EXPECT_EQ(with_file(kTables, print_formats).out, "HT|HY|HU|HD|HT %z|HY %z|HU %z|HD %z|1");
}

// The location used to be read after it had been freed.
TEST(TimeFormatsFile, AFormatMayReferToTheLocation)
{
    const char text[] = "where here\nlocation &where\n"
                        "here &Arr{\ntime &location\nydtime HY\nuydtime HU\ndate HD\n"
                        "month_first yes\n}\n";
    const Ended ended = with_file(text, print_formats);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "here|HY|HU|HD|here %z|HY %z|HU %z|HD %z|1");
}

TEST(TimeFormatsFile, IsEuropeanWhenTheEnvironmentSaysSoWhateverItsLocation)
{
    const auto european = [] {
        setenv("EUROPEAN_DATE", "", 1);
        print_formats();
    };
    EXPECT_EQ(with_file(kTables, european).out, "ET|EY|EU|ED|ET %z|EY %z|EU %z|ED %z|0");
    const Ended missing = with_file(kPlain, european);
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.err,
                testing::HasSubstr("Could not read 'european{time}' from time_formats.pf\n"));
}

TEST(TimeFormatsFile, AMissingFormatEndsTheProcessAndUydtimeIsToldAsYdtime)
{
    const struct {
        const char *text, *message;
    } cases[] = {
        {"ydtime a\nuydtime b\ndate c\n", "Could not read 'time' from time_formats.pf\n"},
        {"time a\nuydtime b\ndate c\n", "Could not read 'ydtime' from time_formats.pf\n"},
        {"time a\nydtime b\ndate c\n", "Could not read 'ydtime' from time_formats.pf\n"},
        {"time a\nydtime b\nuydtime c\n", "Could not read 'date' from time_formats.pf\n"},
        {"location x\ntime a\n", "Could not read 'x{time}' from time_formats.pf\n"},
        {"location x\nx &Arr{\ntime a\nydtime b\n}\n",
         "Could not read 'x{uydtime}' from time_formats.pf\n"},
    };
    for (const auto &c : cases) {
        const Ended ended = with_file(c.text, print_formats);
        EXPECT_EQ(ended.status, 1) << c.text;
        EXPECT_THAT(ended.err, testing::EndsWith(std::string(": ") + c.message));
    }
}

TEST(TimeFormatsFile, IsReadByWhateverNeedsAFormatFirst)
{
    const struct {
        std::string (*print)();
        const char *text;
    } cases[] = {
        {[] { return taken(strtime(0)); }, "T1970"},
        {[] { return taken(strydtime(0)); }, "Y001"},
        {[] { return taken(strdate(0)); }, "D01"},
        {[] { return taken(strlocaltime(0)); }, "T1970 UTC"},
        {[] { return taken(strlocalydtime(0)); }, "Y001 UTC"},
        {[] { return taken(strlocaldate(0)); }, "D01 UTC"},
        {[] { return styled(5, nullptr, 0); }, "T1970"},
        {[] { return styled(6, nullptr, 0); }, "D01"},
        {[] { return styled(7, nullptr, 0); }, "Y001"},
        {[] { return styled(8, nullptr, 0); }, "U00000"},
        {[] { return styled(5, "Etc/UTC", 0); }, "T1970 UTC"},
        {[] { return styled(6, "Etc/UTC", 0); }, "D01 UTC"},
        {[] { return styled(7, "Etc/UTC", 0); }, "Y001 UTC"},
        {[] { return styled(8, "Etc/UTC", 0); }, "U00000 UTC"},
        {[] { return utc("%D"); }, " 1/02/08"},
        {[] { return std::to_string(is_month_first()); }, "0"},
        {[] { return utc("%D", str2epoch("3/4/2008")); }, " 3/04/08"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(with_file(kPlain,
                            [&] {
                                const ZoneSet zone("UTC");
                                Unset_formats = 1;
                                printf("%s", c.print().c_str());
                            })
                      .out,
                  c.text);
}

TEST(TimeFormatsFile, IsReadOnceByThePrintersAndAgainByAnExplicitCall)
{
    const Ended ended = with_file(kPlain, [] {
        Unset_formats = 1;
        const Text first(strdate(0));
        const char *const before = Strdate_format;
        const std::string path = getenv("PFPATH") + std::string("/time_formats.pf");
        std::ofstream(path) << "time a\nydtime b\nuydtime c\ndate NEW\n";
        const Text second(strdate(0));
        set_time_formats();
        const Text third(strdate(0));
        printf("%s %s %s %s", first.get(), second.get(), third.get(), before);
    });
    EXPECT_EQ(ended.out, "D01 D01 NEW D%d");
}

TEST(TimeFormatsFile, AsInstalledChangesNothing)
{
    const Ended built_in = in_child([] {
        setenv("PFPATH", "/none/there", 1);
        print_formats();
    });
    const Ended installed = in_child([] {
        setenv("PFPATH", source_path("data/pf").c_str(), 1);
        print_formats();
    });
    EXPECT_EQ(installed.out, built_in.out);
    EXPECT_EQ(installed.status, 0);
}

TEST(TimeFormatsFile, ThatCannotBeReadIsAsIfThereWereNone)
{
    EXPECT_EQ(with_file("", print_formats).out.substr(0, 23), "%m/%d/%Y  %H:%M:%S.%s|%");
}

TEST(TimePrinters, RoundToTheMillisecondExceptDates)
{
    EXPECT_EQ(taken(strtime(0.9996)), "01/01/1970  00:00:01.000");
    EXPECT_EQ(taken(strtime(86399.9999)), "01/02/1970  00:00:00.000");
    EXPECT_EQ(taken(strydtime(86399.9999)), "01/02/1970  (002) 00:00:00.000");
    EXPECT_EQ(taken(strdate(86399.9999)), "01/01/1970");
}

TEST(TimePrinters, PrintWhatIsNoDateAsItsText)
{
    for (const auto printer :
         {strtime, strydtime, strdate, strlocaltime, strlocalydtime, strlocaldate}) {
        EXPECT_EQ(taken(printer(kInf)), "** The End of Time (+infinity) **");
        EXPECT_EQ(taken(printer(-kInf)), "** The Beginning of Time (-infinity) **");
        EXPECT_EQ(taken(printer(kNan)), "** Nan **");
        EXPECT_EQ(taken(printer(1e12)), "**  31709 years ahead ** ");
    }
}

TEST(TimePrinters, ShowLocalTimesWithTheirZone)
{
    const ZoneSet zone("US/Pacific");
    EXPECT_EQ(taken(strlocaltime(kTime)), "02/01/2008  04:30:15.250 PST");
    EXPECT_EQ(taken(strlocalydtime(kTime)), "02/01/2008  (032) 04:30:15.250 PST");
    EXPECT_EQ(taken(strlocaldate(kTime)), "02/01/2008 PST");
    EXPECT_EQ(taken(strlocaldate(kTime + 150 * 86400.0)), "06/30/2008 PDT");
}

TEST(TimePrinters, RoundLocalTimesToTheMillisecondExceptDates)
{
    const ZoneSet zone("Asia/Tokyo");
    const double before_midnight = 15 * 3600 - 0.0001;
    EXPECT_EQ(taken(strlocaltime(before_midnight)), "01/02/1970  00:00:00.000 JST");
    EXPECT_EQ(taken(strlocalydtime(before_midnight)), "01/02/1970  (002) 00:00:00.000 JST");
    EXPECT_EQ(taken(strlocaldate(before_midnight)), "01/01/1970 JST");
}

TEST(TimeZones, AreUtcTheProcesssOwnOrNamed)
{
    const ZoneSet zone("Asia/Tokyo");
    EXPECT_EQ(in_zone("%G %T %Z", nullptr), "2008-02-01 12:30:15.250 UTC");
    EXPECT_EQ(in_zone("%G %T %z", ""), "2008-02-01 21:30:15.250 JST");
    EXPECT_EQ(in_zone("%G %T %z", "LOCAL"), "2008-02-01 21:30:15.250 JST");
    EXPECT_EQ(in_zone("%G %T %z", "US/Pacific"), "2008-02-01 04:30:15.250 PST");
    EXPECT_EQ(in_zone("%G %T %z", "UTC"), "2008-02-01 12:30:15.250 UTC");
    EXPECT_EQ(in_zone("%G %T %z", "Asia/Kolkata"), "2008-02-01 18:00:15.250 IST");
    EXPECT_STREQ(getenv("TZ"), "Asia/Tokyo");
}

TEST(TimeZones, ShowSummerTime)
{
    EXPECT_EQ(in_zone("%H %z", "US/Pacific", h2e(2008, 183, 12, 0, 0)), "05 PDT");
    EXPECT_EQ(in_zone("%H %z", "Europe/Berlin", h2e(2008, 183, 12, 0, 0)), "14 CEST");
}

TEST(TimeZones, AgreeWithThePlatformOverTheChangesOfTenZones)
{
    const char *zones[] = {"US/Pacific",       "America/New_York",    "America/St_Johns",
                           "Europe/London",    "Europe/Berlin",       "Asia/Tehran",
                           "Asia/Kolkata",     "Australia/Lord_Howe", "Pacific/Apia",
                           "America/Sao_Paulo"};
    for (const char *zone : zones)
        for (int step = 0; step < 366 * 8; ++step) {
            const double when = h2e(2008, 1, 3 * step, 30, 0);
            const std::string ours = in_zone("%Y-%m-%d %H:%M:%S %j %z", zone, when);
            const ZoneSet set(zone);
            const auto clock = static_cast<time_t>(when);
            struct tm fields = {};
            localtime_r(&clock, &fields);
            char expected[80];
            strftime(expected, sizeof expected, "%Y-%m-%d %H:%M:%S %j %Z", &fields);
            ASSERT_EQ(ours, expected) << zone;
        }
}

TEST(TimeZones, Minus0Point5IsMidnightAndMinusHalfASecondInAZone)
{
    EXPECT_EQ(in_zone("%G %T", "UTC", -0.5), "1970-01-01 00:00:-0.500");
    EXPECT_EQ(utc("%G %T", -0.5), "1969-12-31 23:59:59.500");
}

TEST(TimeZones, AnUnknownOneIsLoggedAndTheTimePrintedInTheOneInForce)
{
    const ZoneSet zone("Asia/Tokyo");
    for (const char *name :
         {"No/Such_Zone", "../../etc/passwd", "/etc/passwd", ":/etc/localtime", "US//Pacific"}) {
        elog_clear();
        EXPECT_EQ(in_zone("%T %z", name), "21:30:15.250 JST") << name;
        EXPECT_EQ(take_log(), std::string("Unrecognized timezone '") + name + "'\n");
    }
    EXPECT_STREQ(getenv("TZ"), "Asia/Tokyo");
}

TEST(E2hz, FillsEveryField)
{
    int year = 0, doy = 0, month = 0, day = 0, hour = 0, minute = 0;
    double second = 0;
    char *name = nullptr;
    EXPECT_EQ(e2hz("US/Pacific", &year, &doy, &month, &day, &hour, &minute, &second, &name, kTime),
              0);
    const Text owner(name);
    EXPECT_EQ(year, 2008);
    EXPECT_EQ(doy, 32);
    EXPECT_EQ(month, 2);
    EXPECT_EQ(day, 1);
    EXPECT_EQ(hour, 4);
    EXPECT_EQ(minute, 30);
    EXPECT_EQ(second, 15.25);
    EXPECT_STREQ(name, "PST");
}

TEST(E2hz, GivesUtcWithoutAZone)
{
    int year = 0, doy = 0, month = 0, day = 0, hour = 0, minute = 0;
    double second = 0;
    char *name = nullptr;
    EXPECT_EQ(e2hz(nullptr, &year, &doy, &month, &day, &hour, &minute, &second, &name, kTime), 0);
    EXPECT_EQ(hour, 12);
    EXPECT_EQ(taken(name), "UTC");
}

TEST(E2hz, KnowsTheProcesssOwnZone)
{
    const ZoneSet zone("Asia/Tokyo");
    for (const char *own : {"", "LOCAL"}) {
        int year = 0, doy = 0, month = 0, day = 0, hour = 0, minute = 0;
        double second = 0;
        char *name = nullptr;
        elog_clear();
        EXPECT_EQ(e2hz(own, &year, &doy, &month, &day, &hour, &minute, &second, &name, kTime), 0);
        EXPECT_EQ(taken(name), "JST");
        EXPECT_EQ(hour, 21);
        EXPECT_EQ(take_log(), "");
    }
}

TEST(E2hz, GivesMinus1ForAnUnknownZone)
{
    int year = 0, doy = 0, month = 0, day = 0, hour = 0, minute = 0;
    double second = 0;
    char *name = nullptr;
    elog_clear();
    EXPECT_EQ(e2hz("foo", &year, &doy, &month, &day, &hour, &minute, &second, &name, 0), -1);
    EXPECT_EQ(take_log(), "Unrecognized timezone 'foo'\n");
    EXPECT_EQ(errno, 0);
    free(name);
}

TEST(E2hz, TakesAnyTime)
{
    for (const double when : kNoTimes) {
        int year = 0, doy = 0, month = 0, day = 0, hour = 0, minute = 0;
        double second = 0;
        char *name = nullptr;
        EXPECT_EQ(
            e2hz("US/Pacific", &year, &doy, &month, &day, &hour, &minute, &second, &name, when), 0);
        EXPECT_NE(taken(name), "");
    }
}

TEST(Fmttime, HasEightStyles)
{
    unsetenv("EUROPEAN_DATE");
    set_time_formats();
    const struct {
        int style;
        const char *text;
    } cases[] = {
        {1, "2008-02-01 12:30:15.250"},
        {2, "2008-032 12:30:15.250"},
        {3, "2008-02-01"},
        {4, "2008-032"},
        {5, "02/01/2008  12:30:15.250"},
        {6, "02/01/2008"},
        {7, "02/01/2008  (032) 12:30:15.250"},
        {8, "02/01/2008  (032) 12:30:15.25000"},
        {0, "2008-032 12:30:15.250"},
        {-1, "2008-032 12:30:15.250"},
        {99, "2008-032 12:30:15.250"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.style);
        EXPECT_EQ(styled(c.style, nullptr), c.text);
        EXPECT_EQ(styled(c.style, "UTC"), c.text);
        std::string there = in_zone("%z", "Asia/Tokyo");
        const std::string zoned = styled(c.style, "Asia/Tokyo");
        EXPECT_EQ(zoned.substr(zoned.rfind(' ')), " " + there);
    }
    EXPECT_EQ(styled(1, "US/Pacific"), "2008-02-01 04:30:15.250 PST");
    EXPECT_EQ(styled(2, "US/Pacific"), "2008-032 04:30:15.250 PST");
    EXPECT_EQ(styled(3, "US/Pacific"), "2008-02-01 PST");
    EXPECT_EQ(styled(4, "US/Pacific"), "2008-032 PST");
    EXPECT_EQ(styled(5, "US/Pacific"), "02/01/2008  04:30:15.250 PST");
    EXPECT_EQ(styled(6, "US/Pacific"), "02/01/2008 PST");
    EXPECT_EQ(styled(7, "US/Pacific"), "02/01/2008  (032) 04:30:15.250 PST");
    EXPECT_EQ(styled(8, "US/Pacific"), "02/01/2008  (032) 04:30:15.25000 PST");
}

TEST(Fmttime, AnEmptyZoneAndLocalAreTheProcesssOwn)
{
    const ZoneSet zone("Asia/Tokyo");
    EXPECT_EQ(styled(1, "LOCAL"), "2008-02-01 21:30:15.250 JST");
    EXPECT_EQ(styled(1, ""), "2008-02-01 21:30:15.250 JST");
}

TEST(Fmttime, RoundsToTheMillisecondAndStyle8ToAHundredThousandth)
{
    EXPECT_EQ(styled(1, nullptr, 0.9996), "1970-01-01 00:00:01.000");
    EXPECT_EQ(styled(8, nullptr, 0.9996), "01/01/1970  (001) 00:00:00.99960");
    EXPECT_EQ(styled(8, nullptr, 0.999996), "01/01/1970  (001) 00:00:01.00000");
}

TEST(Fmttime, WritesTheTextForWhatIsNoDate)
{
    EXPECT_EQ(styled(1, nullptr, kInf), "** The End of Time (+infinity) **");
    EXPECT_EQ(styled(8, "US/Pacific", kNan), "** Nan **");
}

TEST(Fmttime, NeverWritesMoreThanItsMaximum)
{
    set_time_formats();
    const std::string format(3000, 'x');
    const char *const before = Strtime_format;
    Strtime_format = format.c_str();
    char buf[FMTTIME_SIZE + 8];
    memset(buf, '#', sizeof buf);
    fmttime(buf, 5, nullptr, 0);
    Strtime_format = before;
    EXPECT_EQ(strlen(buf), FMTTIME_SIZE - 1U);
    EXPECT_EQ(std::string(buf + FMTTIME_SIZE, 8), "########");
}

TEST(Strtdelta, PrintsTheLargestUnitThatFits)
{
    const struct {
        double seconds;
        const char *text;
    } cases[] = {
        {31536000, " 1 years             "},
        {31536000 + 86400, " 1 years 1 days      "},
        {31536000.0 * 40 + 86400 * 40, " 40 years 40 days    "},
        {31536000.0 * 999999, " 999999 years        "},
        {31536000.0 * 1000001, " 1e+06 years         "},
        {86400, " 1 days              "},
        {86400 + 3600 * 3.7, " 1 days 3.7 hours    "},
        {86400 + 300, " 1 days              "},
        {31535999, " 364 days 23.9 hours "},
        {3600, "  1:00 hours         "},
        {45000, " 12:30 hours         "},
        {3629, "  1:00 hours         "},
        {3630, "  1:01 hours         "},
        {86399, " 24:00 hours         "},
        {60, "  1:00 minutes       "},
        {303, "  5:03 minutes       "},
        {59.5 * 60 + 0.4, " 59:30 minutes       "},
        {3599.6, " 60:00 minutes       "},
        {1, "  1.000 seconds      "},
        {59.9999, " 60.000 seconds      "},
        {0.001, "   1.000 milliseconds"},
        {0.25, " 250.000 milliseconds"},
        {0.000001, "   1.000 microseconds"},
        {0.000025, "  25.000 microseconds"},
        {0.000000001, "   1.000 nanoseconds "},
        {0.0000000025, "   2.500 nanoseconds "},
        {0, "  0 seconds          "},
        {1e-12, " 1 picoseconds       "},
        {5e-10, " 500 picoseconds     "},
        {1e-20, " 1e-08 picoseconds   "},
    };
    for (const auto &c : cases)
        EXPECT_EQ(delta(c.seconds), c.text) << c.seconds;
}

TEST(Strtdelta, AMillionYearsIs1ePlus06AloneAnd1000000WithDays)
{
    EXPECT_EQ(delta(31536000.0 * 1000000), " 1e+06 years         ");
    EXPECT_EQ(delta(31536000.0 * 1000000 + 86400 * 2), " 1000000 years 2 days");
    EXPECT_EQ(delta(31536000.0 * 1000001 + 86400 * 2), " 1e+06 years 2 days  ");
}

TEST(Strtdelta, PutsTheSignBeforeTheFirstDigit)
{
    EXPECT_EQ(delta(-303), " -5:03 minutes       ");
    EXPECT_EQ(delta(-45000), "-12:30 hours         ");
    EXPECT_EQ(delta(-0.001), "  -1.000 milliseconds");
    EXPECT_EQ(delta(-86400), "-1 days              ");
    EXPECT_EQ(delta(-1e-12), "-1 picoseconds       ");
    EXPECT_EQ(delta(-0.0), "  0 seconds          ");
}

TEST(Strtdelta, TakesWhatIsNoNumber)
{
    EXPECT_EQ(delta(kInf), " inf years           ");
    EXPECT_EQ(delta(-kInf), "-inf years           ");
    EXPECT_EQ(delta(kNan), " nan picoseconds     ");
    EXPECT_EQ(delta(1e300), " 3.17098e+292 years  ");
    EXPECT_EQ(delta(1.7e308).size(), 21U);
}

TEST(Ordinal, FollowsTheLastDigitBelow100)
{
    const struct {
        int n;
        const char *text;
    } cases[] = {{0, "th"},   {1, "st"},  {2, "nd"},  {3, "rd"},  {4, "th"},   {11, "th"},
                 {12, "th"},  {13, "th"}, {20, "th"}, {21, "st"}, {22, "nd"},  {23, "rd"},
                 {24, "th"},  {99, "th"}, {32, "nd"}, {31, "st"}, {122, "nd"}, {121, "st"},
                 {366, "th"}, {-1, "th"}, {-21, "th"}};
    for (const auto &c : cases)
        EXPECT_STREQ(ordinal(c.n), c.text) << c.n;
}

TEST(Ordinal, From100OnEndingsOf00To20HaveThSo101IsTh)
{
    for (const int n : {100, 101, 102, 103, 111, 120, 201, 1001, 302})
        EXPECT_STREQ(ordinal(n), "th") << n;
}

TEST(TimeNames, BeginWithMondayAndJanuary)
{
    EXPECT_STREQ(Week[0], "Monday");
    EXPECT_STREQ(Week[6], "Sunday");
    EXPECT_STREQ(Month[0], "January");
    EXPECT_STREQ(Month[11], "December");
    EXPECT_STREQ(MDtime_format, "%Y-%m-%d %T");
    EXPECT_STREQ(ZMDtime_format, "%Y-%m-%d %T %z");
    EXPECT_STREQ(MD_format, "%Y-%m-%d");
    EXPECT_STREQ(ZMD_format, "%Y-%m-%d %z");
    EXPECT_STREQ(YDtime_format, "%Y-%j %T");
    EXPECT_STREQ(ZYDtime_format, "%Y-%j %T %z");
    EXPECT_STREQ(YD_format, "%Y-%j");
    EXPECT_STREQ(ZYD_format, "%Y-%j %z");
}

TEST(TimeThreads, FirstPrintersInEightThreadsGetTheSameFormats)
{
    Unset_formats = 1;
    std::vector<std::thread> threads;
    std::vector<int> wrong(8, 0);
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([t, &wrong] {
            for (int i = 0; i < 200; ++i)
                wrong[static_cast<size_t>(t)] += taken(strtime(i)).substr(0, 12) != "01/01/1970  ";
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, std::vector<int>(8, 0));
}

TEST(TimeThreads, ZonesAndReadingAndPrintingAtOnceGiveRightResults)
{
    std::vector<std::thread> threads;
    std::vector<int> wrong(8, 0);
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([t, &wrong] {
            int &bad = wrong[static_cast<size_t>(t)];
            for (int i = 0; i < 100; ++i) {
                const char *zone = t % 2 ? "US/Pacific" : "Asia/Tokyo";
                bad += in_zone("%T %z", zone) != (t % 2 ? "04:30:15.250 PST" : "21:30:15.250 JST");
                bad += utc("%T") != "12:30:15.250";
                bad += str2epoch("2008-02-01 04:30:15.25 US/Pacific") != kTime;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, std::vector<int>(8, 0));
}
