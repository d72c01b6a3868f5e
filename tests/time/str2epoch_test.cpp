// Reading times: every row of the table and the texts just beside it, what the fields mean
// together, zones, and texts that are no times at all.

#include "stock/str2epoch.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "deviants.h"
#include "stock/epoch.h"
#include "stock/h2e.h"
#include "stock/time.h"
#include "support/child.h"
#include "support/logged.h"
#include "support/owners.h"

namespace {

struct Parsed {
    double epoch = -77;
    int result = -77;
    std::string log;
};

Parsed parse(const std::string &text)
{
    Parsed parsed;
    elog_clear();
    parsed.result = zstr2epoch(text.c_str(), &parsed.epoch);
    parsed.log = take_log();
    return parsed;
}

// Returns the time of a text, which must be read without a problem.
double good(const std::string &text)
{
    const Parsed parsed = parse(text);
    EXPECT_EQ(parsed.result, 0) << text << ": " << parsed.log;
    EXPECT_EQ(parsed.log, "") << text;
    return parsed.epoch;
}

double at(int year, int month, int day, int hour = 0, int minute = 0, double second = 0)
{
    return h2e(year, mday2doy(year, month, day), hour, minute, second);
}

// A text, the time that it gives, how many problems it has and what zstr2epoch logs.
struct Problem {
    const char *text;
    int problems;
    const char *log;
};

void expect_problems(std::initializer_list<Problem> cases)
{
    for (const Problem &c : cases) {
        SCOPED_TRACE(c.text);
        const Parsed parsed = parse(c.text);
        EXPECT_EQ(parsed.result, -c.problems);
        EXPECT_EQ(parsed.log, c.log);
    }
}

// Expects the time to be that of the clock and the offset, but for the seconds that the test
// takes.
void expect_from_now(const char *text, double offset)
{
    const double before = std_now();
    const double epoch = good(text);
    EXPECT_GE(epoch, before + offset - 1e-3) << text;
    EXPECT_LE(epoch, std_now() + offset + 1e-3) << text;
}

const char *const kAbbreviations[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                      "jul", "aug", "sep", "oct", "nov", "dec"};

std::string upper(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(toupper(c));
    return text;
}

struct Zone {
    explicit Zone(const char *name)
    {
        setenv("TZ", name, 1);
        tzset();
    }
    ~Zone()
    {
        unsetenv("TZ");
        tzset();
    }
};

}  // namespace

TEST(Str2epoch, FiveFormsOfOneTimeAgree)
{
    for (const char *text :
         {"2008-02-01 12:30:15.5", "2/1/2008 12:30:15.5", "2008032 12:30:15.5",
          "2008-032 12:30:15.5", "2008:032:12:30:15.5", "2008032:12:30:15.5",
          "2008:32:12:30:15:500", "2008:feb:1:12:30:15.5", "2008/2/1 12:30:15.5",
          "February 1, 2008 12:30:15.5", "1 Feb 2008 12:30:15.5", "friday feb 1 2008 12:30:15.5",
          "1201869015.5", "1.2018690155e9", "2008-02-01\t\n12:30:15.5 UTC"}) {
        EXPECT_EQ(good(text), 1201869015.5) << text;
    }
}

TEST(Str2epoch, EveryFunctionGivesTheSameTime)
{
    double epoch = 0;
    EXPECT_EQ(str2epoch("2008-02-01"), at(2008, 2, 1));
    EXPECT_EQ(is_epoch_string("2008-02-01", &epoch), 1);
    EXPECT_EQ(epoch, at(2008, 2, 1));
    EXPECT_EQ(_zstr2epoch("2008-02-01", &epoch, 0), 0);
    EXPECT_EQ(time_string2epoch("2008-02-01", &epoch), 1);
    EXPECT_EQ(epoch, at(2008, 2, 1));
    EXPECT_EQ(time_string2epoch("foo", &epoch), 1);
    EXPECT_EQ(is_epoch_string("foo", &epoch), 0);
    EXPECT_EQ(is_epoch_string("", &epoch), 0);
    EXPECT_EQ(is_epoch_string(nullptr, &epoch), 0);
}

TEST(Str2epoch, OnlyTheLoggingFunctionLogs)
{
    elog_clear();
    double epoch = 0;
    str2epoch("!");
    is_epoch_string("!", &epoch);
    _zstr2epoch("!", &epoch, 0);
    EXPECT_EQ(take_log(), "");
    EXPECT_EQ(_zstr2epoch("!", &epoch, 1), -2);
    EXPECT_EQ(take_log(), "str2epoch: can't interpret '!'\n");
}

TEST(Str2epochRow1, TakesMonthOrDayFirstAsTheFormatsSay)
{
    EXPECT_EQ(good("1/2/2008"), at(2008, 1, 2));
    EXPECT_EQ(good("2008/2/1"), at(2008, 2, 1));
    EXPECT_EQ(good("32/2/1"), at(2032, 2, 1));
    EXPECT_EQ(good("12/31/69"), at(1969, 12, 31));
    const Ended ended = in_child([] {
        setenv("EUROPEAN_DATE", "1", 1);
        set_time_formats();
        const bool right =
            str2epoch("1/2/2008") == at(2008, 2, 1) && str2epoch("2008/2/1") == at(2008, 2, 1) &&
            str2epoch("1-2-3") == at(1970, 1, 1) && str2epoch("13-2-3") == at(1970, 1, 13);
        exit(right ? 0 : 1);
    });
    EXPECT_EQ(ended.status, 0);
}

TEST(Str2epochRow1, RefusesMonth13AndDay32AndCountsThemAgainAtTheEnd)
{
    expect_problems({
        {"13/13/2008", 2, "str2epoch: Bad date format:'13/13/2008'\n"},
        {"12/32/2008", 2, "str2epoch: Bad date format:'12/32/2008'\n"},
        {"2008/13/1", 2, "str2epoch: Bad date format:'2008/13/1'\n"},
    });
    EXPECT_EQ(good("12/31/2008"), at(2008, 12, 31));
}

TEST(Str2epochRow1, AZeroAsMonthOrDayIsTakenAsGiven)
{
    EXPECT_EQ(good("0/5/2008"), at(2008, 1, 5));
    EXPECT_EQ(good("1/0/2008"), at(2007, 12, 31));
}

TEST(Str2epochRow2, IsADateOfFourTwoAndTwoDigits)
{
    EXPECT_EQ(good("2008-02-01"), at(2008, 2, 1));
    EXPECT_EQ(good("2008-12-31"), at(2008, 12, 31));
    EXPECT_EQ(good("0099-12-31"), at(1999, 12, 31));
    expect_problems({
        {"2008-13-01", 2, "str2epoch: Bad date format:'2008-13-01'\n"},
        {"2008-12-32", 2, "str2epoch: Bad date format:'2008-12-32'\n"},
    });
}

TEST(Str2epochRow3, IsAYearAndDayOfTheYear)
{
    EXPECT_EQ(good("2008-366"), at(2008, 12, 31));
    EXPECT_EQ(good("2007-366"), at(2008, 1, 1));
    expect_problems({{"2008-367", 2, "str2epoch: Bad date format:'2008-367'\n"}});
}

TEST(Str2epochRow3, Day000IsUnsetAndGives1January)
{
    EXPECT_EQ(good("2008-000"), at(2008, 1, 1));
}

TEST(Str2epochRow3, MatchesThreeDigitsOfALongerRun)
{
    // 2008-031, then a loose 5: the day of the year still counts.
    EXPECT_EQ(good("2008-0315"), at(2008, 1, 31));
}

TEST(Str2epochRow4, Date2008Hyphen1Hyphen1IsRefused)
{
    expect_problems({{"2008-1-1", 2, "str2epoch: Bad date format:'2008-1-1'\n"}});
    expect_problems({{"2008-02-011", 2, "str2epoch: Bad date format:'2008-02-011'\n"}});
    expect_problems({{"2008-032-1", 2, "str2epoch: Bad date format:'2008-032-1'\n"}});
}

TEST(Str2epochRow4, Date1Hyphen2Hyphen3Is1January1970)
{
    EXPECT_EQ(good("1-2-3"), at(1970, 1, 1));
    EXPECT_EQ(good("5-2-3"), at(1970, 5, 1));
    expect_problems({{"13-2-3", 2, "str2epoch: Bad date format:'13-2-3'\n"}});
}

TEST(Str2epochRows5To16, TakeMonthNamesInAnyCase)
{
    const char *names[] = {"january", "february", "march",     "april",   "may",      "june",
                           "july",    "august",   "september", "october", "november", "december"};
    for (int i = 0; i < 12; ++i) {
        const std::string name = names[i];
        std::string mixed = kAbbreviations[i];
        mixed[1] = static_cast<char>(toupper(mixed[1]));
        for (const std::string &month : {name, upper(name), std::string(kAbbreviations[i]), mixed})
            EXPECT_EQ(good(month + " 5 2008"), at(2008, i + 1, 5)) << month;
    }
}

TEST(Str2epochRows5To16, APartOfANameIsAZone)
{
    expect_problems({
        {"janu 5", 1, "str2epoch: no timezone 'janu'\n"},
        {"sept 5", 1, "str2epoch: no timezone 'sept'\n"},
        {"feb1 5", 1, "str2epoch: no timezone 'feb1'\n"},
        {"jan-5 7", 1, "str2epoch: no timezone 'jan-5'\n"},
        {"feb/2008 7", 1, "str2epoch: no timezone 'feb/2008'\n"},
    });
}

TEST(Str2epochRow17, NowIsTheClock)
{
    expect_from_now("now", 0);
    expect_from_now("NOW", 0);
    expect_from_now(" nOw\n", 0);
    expect_problems({{"nowhere 5", 1, "str2epoch: no timezone 'nowhere'\n"}});
}

TEST(Str2epochRows18To24, WeekdaysAreReadAndIgnored)
{
    for (const char *name :
         {"monday", "tuesday", "wednesday", "thursday", "friday", "saturday", "sunday"}) {
        const std::string full = name;
        for (const std::string &day : {full, upper(full), full.substr(0, 3)}) {
            EXPECT_EQ(good(day + " feb 5 2008"), at(2008, 2, 5)) << day;
            EXPECT_EQ(good(day), 0) << day;
        }
    }
    expect_problems({{"tues 5", 1, "str2epoch: no timezone 'tues'\n"}});
}

TEST(Str2epochRow25, ANumberWithACommaIsTheDay)
{
    EXPECT_EQ(good("feb 5, 2008"), at(2008, 2, 5));
    EXPECT_EQ(good("feb 5,2008"), at(2008, 2, 5));
    expect_problems({
        {"feb 32, 2008", 1, "str2epoch: day = 32 is too large\n"},
        {"feb 5 , 2008", 1, "str2epoch: can't interpret ','\n"},
    });
}

TEST(Str2epochRow25, ADayAndALooseNumberAloneAreAnEpochTime)
{
    EXPECT_EQ(good("5, 2008"), 2008);
}

TEST(Str2epochRow26, SevenDigitsFrom19Or20AreYearAndDay)
{
    EXPECT_EQ(good("2008032"), at(2008, 2, 1));
    EXPECT_EQ(good("1999365"), at(1999, 12, 31));
    expect_problems({{"2008367", 2, "str2epoch: Bad jdate format:'2008367'\n"}});
}

TEST(Str2epochRow26, OtherLengthsAndBeginningsAreLooseNumbers)
{
    EXPECT_EQ(good("20080325"), 20080325);
    EXPECT_EQ(good("200803"), 200803);
    EXPECT_EQ(good("2108032"), 2108032);
    EXPECT_EQ(good("2108032 12:00"), at(2108, 2, 1, 12));
    EXPECT_EQ(good("2008032.5"), 2008032.5);
}

TEST(Str2epochRow27, ANumberInParenthesesIsTheDayOfTheYear)
{
    EXPECT_EQ(good("feb 2008 (33)"), at(2008, 2, 2));
    EXPECT_EQ(good("(33)"), at(1970, 2, 2));
    expect_problems({
        {"(367)", 1, "str2epoch: Doy = 367 is too large\n"},
        {"(33 ", 1, "str2epoch: can't interpret '('\n"},
        {"()", 3, "str2epoch: can't interpret '('\n"},
    });
    EXPECT_EQ(parse("(33 ").epoch, 33);
}

TEST(Str2epochRow28, ColonsBeforeTwoNumbersAreMinuteAndSecond)
{
    EXPECT_EQ(good(":30:15"), 30 * 60 + 15);
    EXPECT_EQ(good(":30:15.25"), 30 * 60 + 15.25);
    EXPECT_EQ(good(":60:60"), 3660);
    expect_problems({
        {":61:00", 1, "str2epoch: Minute = 61 is too large\n"},
        {":00:60.5", 1, "str2epoch: Second = 60.50000 is too large\n"},
    });
}

TEST(Str2epochRow29, IsATimeOfDay)
{
    EXPECT_EQ(good("12:30:15"), 45015);
    EXPECT_EQ(good("12:30:15.125"), 45015.125);
    EXPECT_EQ(good("24:59:59.5"), 24 * 3600 + 59 * 60 + 59.5);
    EXPECT_EQ(good("1:2:3"), 3723);
    expect_problems({
        {"25:00:00", 2, "str2epoch: bad input '25:00:00'\n"},
        {"100:00:00", 2, "str2epoch: bad input '100:00:00'\n"},
        {"12:60:00", 2, "str2epoch: bad input '12:60:00'\n"},
        {"12:00:60", 2, "str2epoch: bad input '12:00:60'\n"},
    });
}

TEST(Str2epochRow29, IsYearDayHourAndMinuteWhenTheFirstNumberIsOne)
{
    EXPECT_EQ(good("2008032:12:30"), at(2008, 2, 1, 12, 30));
    EXPECT_EQ(good("2008032:24:59.9"), at(2008, 2, 1, 24, 59));
    EXPECT_EQ(good("1970001:1:0"), 3600);
    EXPECT_EQ(good("2099365:0:1"), at(2099, 12, 31, 0, 1));
    expect_problems({
        {"1970000:1:0", 2, "str2epoch: bad input '1970000:1:0'\n"},
        {"2100000:1:0", 2, "str2epoch: bad input '2100000:1:0'\n"},
        {"2008032:25:0", 2, "str2epoch: bad input '2008032:25:0'\n"},
        {"2008032:12:60", 2, "str2epoch: bad input '2008032:12:60'\n"},
        {"2008400:12:30", 1, "str2epoch: Doy = 400 is too large\n"},
    });
}

TEST(Str2epochRow30, IsYearDayAndTime)
{
    EXPECT_EQ(good("2008032:12:30:15"), at(2008, 2, 1, 12, 30, 15));
    EXPECT_EQ(good("2508032:12:30:15.25"), at(2508, 2, 1, 12, 30, 15.25));
    // Six digits are hour, minute and second, and a minute.
    expect_problems({{"200832:12:30:15", 1, "str2epoch: bad input '200832:12:30'\n"}});
}

TEST(Str2epochRow31, IsYearDayOfYearAndTime)
{
    EXPECT_EQ(good("2008:032:12:30:15"), at(2008, 2, 1, 12, 30, 15));
    EXPECT_EQ(good("8:32:12:30:15.5"), at(2008, 2, 1, 12, 30, 15.5));
    expect_problems({
        {"2008:367:0:0:0", 1, "str2epoch: Doy = 367 is too large\n"},
        {"2008:1:25:0:0", 1, "str2epoch: Hour = 25 is too large\n"},
        {"2008:1:0:61:0", 1, "str2epoch: Minute = 61 is too large\n"},
        {"2008:1:0:0:61", 1, "str2epoch: Second = 61.00000 is too large\n"},
    });
}

TEST(Str2epochRow32, AddsMilliseconds)
{
    EXPECT_EQ(good("2008:032:12:30:15:250"), at(2008, 2, 1, 12, 30, 15.25));
    EXPECT_EQ(good("2008:032:12:30:15:2500"), at(2008, 2, 1, 12, 30, 17.5));
    EXPECT_EQ(good("2008:032:12:30:15:25"), at(2008, 2, 1, 12, 30, 15.025));
}

TEST(Str2epochRows33To44, TakeTheMonthsAbbreviationBetweenColons)
{
    for (int i = 0; i < 12; ++i) {
        const std::string month = kAbbreviations[i];
        EXPECT_EQ(good("2008:" + month + ":5:12:30:15"), at(2008, i + 1, 5, 12, 30, 15));
        EXPECT_EQ(good("2008:" + upper(month) + ":5:12:30:15.5"), at(2008, i + 1, 5, 12, 30, 15.5));
    }
}

TEST(Str2epochRows33To44, AnUnfinishedOneFallsIntoItsParts)
{
    // 2008, ":", feb, ":5:12" as minute and second, ":30" as the minute.
    const Parsed parsed = parse("2008:feb:5:12:30");
    EXPECT_EQ(parsed.result, -1);
    EXPECT_EQ(parsed.log, "str2epoch: can't interpret ':'\n");
    EXPECT_EQ(parsed.epoch, at(2008, 2, 1, 0, 30, 12));
}

TEST(Str2epochRow45, AColonBeforeANumberIsTheMinute)
{
    EXPECT_EQ(good(":30"), 1800);
    EXPECT_EQ(good("5 feb 2008 :30"), at(2008, 2, 5, 0, 30));
}

TEST(Str2epochRow46, IsHourAndMinute)
{
    EXPECT_EQ(good("12:30"), 45000);
    EXPECT_EQ(good("2008-02-01 24:00"), at(2008, 2, 2));
    expect_problems({{"2008-02-01 25:00", 1, "str2epoch: Hour = 25 is too large\n"}});
}

TEST(Str2epochRow46, UpTo168HoursWithoutADate)
{
    EXPECT_EQ(good("100:00"), 360000);
    EXPECT_EQ(good("168:00"), 168 * 3600);
    EXPECT_EQ(good("1/1/1970 100:00"), 360000);
    expect_problems({
        {"169:00", 1, "str2epoch: Hour = 169 is too large\n"},
        {"170:00", 1, "str2epoch: Hour = 170 is too large\n"},
        {"1/2/1970 100:00", 1, "str2epoch: Hour = 100 is too large\n"},
        {"(1) 100:00", 1, "str2epoch: Hour = 100 is too large\n"},
    });
}

TEST(Str2epochRows47To49, GoBackFromNow)
{
    expect_from_now("-:5", -300);
    expect_from_now("-1:00", -3600);
    expect_from_now("-1:30", -5400);
    expect_from_now("-0:0:10", -10);
    expect_from_now("-2:03:04", -7384);
}

TEST(Str2epochRow50, DaysAgoAreCountedFromTheCurrentDay)
{
    for (;;) {
        const double today = std::floor(std_now() / 86400) * 86400;
        const double two = good("-2days");
        const double one = good("-1day 12:30");
        const double none = good("-0DAYS");
        if (std::floor(std_now() / 86400) * 86400 != today)
            continue;  // midnight went by
        EXPECT_EQ(two, today - 2 * 86400);
        EXPECT_EQ(one, today - 86400 + 45000);
        EXPECT_EQ(none, today);
        break;
    }
}

TEST(Str2epochRow51, TwoDaysIs3January1970NotTheDayAfterTomorrow)
{
    EXPECT_EQ(good("2days"), at(1970, 1, 3));
    EXPECT_EQ(good("1day 1:00"), at(1970, 1, 2, 1));
    expect_problems({{"2 days", 1, "str2epoch: no timezone 'days'\n"}});
}

TEST(Str2epochRows52To54, GoForwardFromNow)
{
    expect_from_now("+:5", 300);
    expect_from_now("+1:00", 3600);
    expect_from_now("+1:30", 5400);
    expect_from_now("+0:0:10", 10);
    expect_from_now("+2:03:04", 7384);
    expect_problems({{"+5 7", 1, "str2epoch: can't interpret '+'\n"}});
}

TEST(Str2epochRow55, AnyNumberWithAPointIsAnEpochTime)
{
    EXPECT_EQ(good("1.5"), 1.5);
    EXPECT_EQ(good(".5"), .5);
    EXPECT_EQ(good("-1.5"), -1.5);
    EXPECT_EQ(good("-.5"), -.5);
    EXPECT_EQ(good("5."), 5);
    EXPECT_EQ(good("0.0"), 0);
    EXPECT_EQ(good("1234567890.5"), 1234567890.5);
    EXPECT_EQ(good("1201869015.123456"), 1201869015.123456);
}

TEST(Str2epochRow55, ALonePointSetsNothing)
{
    expect_problems({{".", 1, ""}, {"-.", 1, ""}});
    EXPECT_EQ(good("12:30 ."), 45000);
}

TEST(Str2epochRow56, AMinusMakesAnEpochTime)
{
    EXPECT_EQ(good("-5"), -5);
    EXPECT_EQ(good("-1234567890"), -1234567890);
    EXPECT_EQ(good("-0"), 0);
}

TEST(Str2epochRow57, TakesAnExponentBehindAFraction)
{
    EXPECT_EQ(good("1.5e9"), 1.5e9);
    EXPECT_EQ(good("1.5E+9"), 1.5e9);
    EXPECT_EQ(good("15.0e-1"), 1.5);
    EXPECT_EQ(good("1.0e300"), 1e300);
    expect_problems({
        {"1e9", 1, "str2epoch: no timezone 'e9'\n"},
        {"1.5e", 1, "str2epoch: can't interpret 'e'\n"},
        {"1.5e+", 1, "str2epoch: no timezone 'e+'\n"},
    });
    // Row 55 takes the minus and the fraction, but no exponent.
    expect_problems({{"-1.5e9", 1, "str2epoch: no timezone 'e9'\n"}});
}

TEST(Str2epochRow58, ALoneNumberIsAnEpochTime)
{
    EXPECT_EQ(good("1234567890"), 1234567890);
    EXPECT_EQ(good("2008"), 2008);
    EXPECT_EQ(good("5"), 5);
    EXPECT_EQ(good("12345678901234567890"), 12345678901234567890.0);
}

TEST(Str2epochRow58, TwoNumbersAreYearAndDay)
{
    EXPECT_EQ(good("08 5"), at(2008, 1, 5));
    EXPECT_EQ(good("feb 5 2008"), at(2008, 2, 5));
    EXPECT_EQ(good("2008 feb 5"), at(2008, 2, 5));
    EXPECT_EQ(good("70 5"), at(1970, 1, 5));
    expect_problems({
        {"32 2008", 2, "str2epoch: number 32 not understood\n"},
        {"feb 5 2008 7", 1, "str2epoch: extra number '7'\n"},
        {"5 99999999999", 1, "str2epoch: number 99999999999.000000 not understood\n"},
    });
}

TEST(Str2epochRow58, OneNumberBesideOthersIsDayYearDayOrYear)
{
    EXPECT_EQ(good("feb 5"), at(1970, 2, 5));
    EXPECT_EQ(good("feb 31"), at(1970, 3, 3));
    EXPECT_EQ(good("feb 32"), at(2032, 2, 1));
    EXPECT_EQ(good("feb 2008"), at(2008, 2, 1));
    EXPECT_EQ(good("feb 2199"), at(2199, 2, 1));
    EXPECT_EQ(good("12:00 1900001"), at(1900, 1, 1, 12));
    EXPECT_EQ(good("12:00 2200000"), at(2200, 1, 1, 12));
    expect_problems({
        {"feb 2200", 1, "str2epoch: number 2200.000000 not understood\n"},
        {"12:00 01900000", 1, "str2epoch: number 1900000.000000 not understood\n"},
        {"12:00 2200001", 1, "str2epoch: number 2200001.000000 not understood\n"},
        {"feb 1234567890", 1, "str2epoch: number 1234567890.000000 not understood\n"},
    });
}

TEST(Str2epochRow58, ALoose0LeavesItsPlaceFree)
{
    EXPECT_EQ(good("0 0 0 feb 5 0 2008"), at(2008, 2, 5));
    expect_problems(
        {{"0", 1, ""}, {"0 0", 1, ""}, {"feb 5 2008 0", 1, "str2epoch: extra number '0'\n"}});
}

TEST(Str2epochRows59And60, AmAndPmShiftTheHour)
{
    EXPECT_EQ(good("12:15 am"), 15 * 60);
    EXPECT_EQ(good("12:15am"), 15 * 60);
    EXPECT_EQ(good("11:15 AM"), 11 * 3600 + 900);
    EXPECT_EQ(good("12:15 pm"), 12 * 3600 + 900);
    EXPECT_EQ(good("1:15 Pm"), 13 * 3600 + 900);
    EXPECT_EQ(good("13:15 pm"), 13 * 3600 + 900);
    EXPECT_EQ(good("Feb 1, 2008 12:30 pm"), at(2008, 2, 1, 12, 30));
    EXPECT_EQ(good("pm"), 12 * 3600);
    EXPECT_EQ(good("am"), 0);
}

TEST(Str2epochRows61To63, BlanksNewlinesAndTabsSeparate)
{
    EXPECT_EQ(good(" \t\n2008-02-01\n\n\t 12:30 "), at(2008, 2, 1, 12, 30));
    expect_problems({
        {"12:30\r", 1, "str2epoch: can't interpret character 0xd\n"},
        {"12:30\v", 1, "str2epoch: can't interpret character 0xb\n"},
    });
}

TEST(Str2epochRow64, AZoneMakesTheFieldsCountThere)
{
    EXPECT_EQ(good("2008-02-01 12:30 US/Pacific"), at(2008, 2, 1, 20, 30));
    EXPECT_EQ(good("2008-07-01 12:30 US/Pacific"), at(2008, 7, 1, 19, 30));
    EXPECT_EQ(good("US/Pacific 2008-02-01 12:30:15.25"), at(2008, 2, 1, 20, 30, 15.25));
    EXPECT_EQ(good("2008-02-01 12:30 UTC"), at(2008, 2, 1, 12, 30));
    EXPECT_EQ(good("2008-02-01 12:30 Etc/GMT+5"), at(2008, 2, 1, 17, 30));
    EXPECT_EQ(good("1201897800 US/Pacific"), 1201897800 + 8 * 3600);
    EXPECT_EQ(good("-1.5 Etc/GMT+5"), 5 * 3600 - 1.5);
}

TEST(Str2epochRow64, LocalIsTheSystemsOwnZoneWhateverTZSays)
{
    const Zone zone("US/Pacific");
    struct tm fields = {};
    fields.tm_year = 108;
    fields.tm_mon = 1;
    fields.tm_mday = 1;
    fields.tm_isdst = -1;
    unsetenv("TZ");
    tzset();
    const auto local = static_cast<double>(mktime(&fields));
    setenv("TZ", "US/Pacific", 1);
    tzset();
    EXPECT_EQ(good("2008-02-01 LOCAL"), local);
    EXPECT_STREQ(getenv("TZ"), "US/Pacific");
    expect_problems({{"2008-02-01 local", 1, "str2epoch: no timezone 'local'\n"}});
}

TEST(Str2epochRow64, AnUnknownZoneIsOneProblemAndClearsTheOneBefore)
{
    expect_problems({
        {"12:30 foo", 1, "str2epoch: no timezone 'foo'\n"},
        {"2008-02-01 US/Pacific foo", 1, "str2epoch: no timezone 'foo'\n"},
        {"foo", 2, "str2epoch: no timezone 'foo'\n"},
        {"US 5", 1, "str2epoch: no timezone 'US'\n"},
        {"us/pacific 5", 1, "str2epoch: no timezone 'us/pacific'\n"},
    });
    EXPECT_EQ(parse("2008-02-01 US/Pacific foo").epoch, at(2008, 2, 1));
}

TEST(Str2epochRow64, ANameIsKeptUpTo256Characters)
{
    const std::string name(300, 'x');
    EXPECT_EQ(parse("5 " + name).log, "str2epoch: no timezone '" + name.substr(0, 256) + "'\n");
}

TEST(Str2epochRow64, NamesThatLeaveTheDirectoryOfZonesAreNone)
{
    expect_problems({
        {"5 a/../UTC", 2, "str2epoch: no timezone 'a/'\n"},
        {"5 US//Pacific", 1, "str2epoch: no timezone 'US//Pacific'\n"},
        {"5 US/Pacific/", 1, "str2epoch: no timezone 'US/Pacific/'\n"},
    });
}

TEST(Str2epochRow65, RefusesOneCharacterAndGoesOn)
{
    expect_problems({
        {"12:30 !", 1, "str2epoch: can't interpret '!'\n"},
        {"12:30 ?!", 2, "str2epoch: can't interpret '?'\n"},
        {"12:30 x", 1, "str2epoch: can't interpret 'x'\n"},
        {"12:30 %s%n", 4, "str2epoch: can't interpret '%'\n"},
        {"2008-02-01T12:30", 1, "str2epoch: no timezone 'T12'\n"},
    });
}

TEST(Str2epochRow65, StopsAtACharacterThatDoesNotPrint)
{
    expect_problems({
        {"12:30 \x07 ! ! !", 1, "str2epoch: can't interpret character 0x7\n"},
        {"12:30 \xe9t\xe9", 1, "str2epoch: can't interpret character 0xe9\n"},
        {"\x7f", 2, "str2epoch: can't interpret character 0x7f\n"},
    });
    EXPECT_EQ(parse("12:30 \x07 2008-02-01").epoch, 45000);
}

TEST(Str2epoch, TextsThatSetNothingCountWithoutAMessage)
{
    expect_problems({
        {"", 2, ""},
        {"   ", 2, ""},
        {" \t\n", 2, ""},
        {"0", 1, ""},
        {"00:00", 1, ""},
        {"00:00:00", 1, ""},
        {"(0)", 1, ""},
    });
}

TEST(Str2epoch, OnlyTheFirstProblemIsLogged)
{
    expect_problems({
        {"! 13/13/2008 foo", 4, "str2epoch: can't interpret '!'\n"},
        {" \v", 2, "str2epoch: can't interpret character 0xb\n"},
    });
}

TEST(Str2epoch, Years69To99AreThoseOf1900AndYearsBelowThoseOf2000)
{
    EXPECT_EQ(good("1/1/69"), at(1969, 1, 1));
    EXPECT_EQ(good("1/1/99"), at(1999, 1, 1));
    EXPECT_EQ(good("1/1/68"), at(2068, 1, 1));
    EXPECT_EQ(good("1/1/0"), at(2000, 1, 1));
    EXPECT_EQ(good("1/1/100"), at(100, 1, 1));
}

TEST(Str2epoch, YearMinus200ByDaysAgoGains2000)
{
    // Some 800,000 days ago was before the year 0.
    const double epoch = good("-800000days");
    EXPECT_GT(epoch, at(1830, 1, 1));
    EXPECT_LT(epoch, at(2000, 1, 1));
}

TEST(Str2epoch, TheFirstRangeThatFailsIsTheOneReported)
{
    expect_problems({
        {"feb 32, :61:61", 1, "str2epoch: day = 32 is too large\n"},
        {":61:61", 1, "str2epoch: Minute = 61 is too large\n"},
        {"(367) :61", 2, "str2epoch: Minute = 61 is too large\n"},
    });
}

TEST(Str2epoch, IntegersOutOfRangeAreProblems)
{
    const std::string long_number(400, '9');
    const struct {
        std::string text, log;
    } cases[] = {
        {"99999999999/1/1", "str2epoch: bad input '99999999999/1/1'\n"},
        {"1/1/99999999999", "str2epoch: bad input '1/1/99999999999'\n"},
        {"1/" + long_number + "/1", "str2epoch: Bad date format:'1/" + long_number + "/1'\n"},
        {long_number, "str2epoch: bad input '" + long_number + "'\n"},
        {"-" + long_number, "str2epoch: bad input '-" + long_number + "'\n"},
        {"-99999999999days", "str2epoch: bad input '-99999999999days'\n"},
        {"99999999999days", "str2epoch: bad input '99999999999days'\n"},
        {"+99999999999:0", "str2epoch: bad input '+99999999999:0'\n"},
        {":" + long_number, "str2epoch: bad input ':" + long_number + "'\n"},
        {"(" + long_number + ")", "str2epoch: bad input '(" + long_number + ")'\n"},
        {long_number + ",", "str2epoch: bad input '" + long_number + ",'\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const Parsed parsed = parse(c.text);
        EXPECT_LT(parsed.result, 0);
        EXPECT_EQ(parsed.log, c.log);
    }
}

// A number too small for a double used to be a problem.
TEST(Str2epoch, RealNumbersBeyondTheRangeOfADoubleAreZeroOrInfinite)
{
    constexpr double kInf = std::numeric_limits<double>::infinity();
    const std::string zeros(400, '0');
    const struct {
        std::string text;
        double epoch;
    } cases[] = {
        {"1.0e-400", 0},
        {"1.0e-99999999999999999999", 0},
        {"0." + zeros + "1", 0},
        {"-." + zeros + "1", 0},
        {"1" + zeros + ".0e-800", 0},
        {"0." + zeros + "1e500", 1e99},
        {"1.0e999", kInf},
        {"1.0e99999999999999999999", kInf},
        {"1" + zeros + ".5", kInf},
        {"-1" + zeros + ".5", -kInf},
        {"0." + zeros + "1e800", kInf},
        {"12:30:15.0" + zeros + "1", 12 * 3600 + 30 * 60 + 15},
        {"1.0e-310", 1.0e-310},
    };
    for (const auto &c : cases)
        EXPECT_EQ(good(c.text), c.epoch) << c.text;
}

TEST(Str2epoch, TakesLongTextsOfEveryKind)
{
    const std::string texts[] = {
        std::string(1000000, '9'),       std::string(1000000, ' '), std::string(1000000, ':'),
        std::string(1000000, 'x'),       std::string(1000000, '-'), std::string(1000000, '.'),
        "1:" + std::string(999999, '1'), std::string(1000000, '!'),
    };
    for (const std::string &text : texts)
        EXPECT_LT(parse(text).result, 0);
    std::string many;
    while (many.size() < 1000000)
        many += "1:jan:1:1:1:";
    EXPECT_LT(parse(many).result, 0);
}

TEST(Str2epoch, SurvivesRandomBytes)
{
    std::mt19937 random(7);
    const std::string likely = "0123456789:-/.,()+ eE\n\tjanfebdaysnowUTCpm";
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (auto length = random() % 40; length > 0; --length)
            text +=
                i % 2 ? likely[random() % likely.size()] : static_cast<char>(random() % 255 + 1);
        double epoch = 0;
        const int result = _zstr2epoch(text.c_str(), &epoch, 0);
        ASSERT_LE(result, 0);
        ASSERT_EQ(std::isnan(epoch), false) << text;
    }
}

TEST(Str2epoch, DoesNotDependOnTheLocale)
{
    setlocale(LC_ALL, "de_DE.UTF-8");
    EXPECT_EQ(good("2008-02-01 12:30:15.5"), 1201869015.5);
    EXPECT_EQ(good("1.5"), 1.5);
    setlocale(LC_ALL, "tr_TR.UTF-8");
    EXPECT_EQ(good("FRIDAY 2008-02-01"), at(2008, 2, 1));
    setlocale(LC_ALL, "C");
}

TEST(Str2epoch, PrintedTimesReadBackInEveryFormThatHoldsThemWhole)
{
    const char *formats[] = {"%G %T",
                             "%g %T",
                             "%Y-%m-%d %H:%M:%S.%u",
                             "%Y%j %T",
                             "%Y:%j:%T",
                             "%Y%j:%T",
                             "%Y:%b:%d:%T",
                             "%B %d, %Y %T",
                             "%d %b %Y %T",
                             "%a %m/%d/%Y %I:%M:%S.%u %p",
                             "%E",
                             "%G %T UTC",
                             "%Y:%j:%H:%M:%S:%s"};
    std::mt19937_64 random(3);
    std::uniform_int_distribution<long> milliseconds(-2177452800000,
                                                     4102444799000);  // 1901 to 2099
    for (int i = 0; i < 2000; ++i) {
        const double when = static_cast<double>(milliseconds(random)) / 1000;
        for (const char *format : formats) {
            const Text text(epoch2str(format, when));
            double back = 0;
            // %s may print 1000, which the row reads as milliseconds, too.
            ASSERT_EQ(_zstr2epoch(text.get(), &back, 0), 0) << text.get();
            ASSERT_NEAR(back, when, 1e-5) << text.get();
        }
    }
}

TEST(Str2epochZones, AgreeWithThePlatformOverTheChangesOfTenZones)
{
    const char *zones[] = {"US/Pacific",       "America/New_York",    "America/St_Johns",
                           "Europe/London",    "Europe/Berlin",       "Asia/Tehran",
                           "Asia/Kolkata",     "Australia/Lord_Howe", "Pacific/Apia",
                           "America/Sao_Paulo"};
    for (const char *zone : zones) {
        for (int day = 1; day <= 366; ++day) {
            for (const int minute : {0, 90, 150, 210, 1439}) {
                const double wall = h2e(2008, day, 0, minute, 0);
                const Text text(epoch2str("%G %T ", wall));
                const double ours = str2epoch((text.get() + std::string(zone)).c_str());
                const Zone set(zone);
                struct tm fields = {};
                fields.tm_year = 108;
                fields.tm_mday = day;
                fields.tm_min = minute;
                fields.tm_isdst = -1;
                ASSERT_EQ(ours, static_cast<double>(mktime(&fields))) << text.get() << zone;
            }
        }
    }
}

TEST(Str2epochZones, TheLastSecondOf1969IsRefused)
{
    expect_problems({{"1969-12-31 23:59:59 UTC", 1,
                      "str2epoch: Can't convert to local timezone before 1970\n"}});
    EXPECT_EQ(good("1969-12-31 23:59:58 UTC"), -2);
}

TEST(Str2epochZones, ADifferenceOfMoreThanADayIsRefused)
{
    // The calendar gives times so far away a wrong day.
    const Parsed parsed = parse("1.0e12 UTC");
    EXPECT_EQ(parsed.result, -1);
    EXPECT_EQ(parsed.log.rfind("str2epoch: invalid timezone difference = ", 0), 0U) << parsed.log;
    EXPECT_EQ(parsed.epoch, 1e12);
    expect_problems(
        {{"1.0e300 UTC", 1, "str2epoch: invalid timezone difference = -3.17098e+292 years  \n"}});
}

TEST(Str2epochZones, LeaveTheEnvironmentAsItWas)
{
    unsetenv("TZ");
    good("2008-02-01 US/Pacific");
    EXPECT_EQ(getenv("TZ"), nullptr);
    const Zone zone("Asia/Tokyo");
    good("2008-02-01 US/Pacific");
    EXPECT_STREQ(getenv("TZ"), "Asia/Tokyo");
    EXPECT_STREQ(tzname[0], "JST");
}

TEST(Str2epochZones, EveryReadingPutsBackTheZoneOfBeforeTheFirstSwitch)
{
    for (const char *text : {"2008-02-01", "5", "", "2008-02-01 US/Pacific", "nonsense"}) {
        const Zone zone("Asia/Tokyo");
        switchTZ("US/Eastern");
        str2epoch(text);
        EXPECT_STREQ(getenv("TZ"), "Asia/Tokyo") << text;
        EXPECT_STREQ(tzname[0], "JST") << text;
    }
}

TEST(SwitchTZ, InstallsAZoneUntilItIsRestored)
{
    unsetenv("TZ");
    EXPECT_EQ(mygetTZ(), nullptr);
    switchTZ("US/Pacific");
    EXPECT_EQ(errno, 0);
    EXPECT_STREQ(mygetTZ(), "TZ=US/Pacific");
    EXPECT_STREQ(tzname[1], "PDT");
    switchTZ("Europe/Berlin");
    EXPECT_STREQ(mygetTZ(), "TZ=Europe/Berlin");
    restoreTZ();
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(mygetTZ(), nullptr);
    restoreTZ();
    EXPECT_EQ(mygetTZ(), nullptr);
}

TEST(SwitchTZ, PutsBackTheZoneOfBeforeTheFirstSwitch)
{
    const Zone zone("Asia/Tokyo");
    switchTZ("US/Pacific");
    switchTZ("");
    EXPECT_EQ(getenv("TZ"), nullptr);
    restoreTZ();
    EXPECT_STREQ(mygetTZ(), "TZ=Asia/Tokyo");
    EXPECT_STREQ(tzname[0], "JST");
    switchTZ(nullptr);
    EXPECT_EQ(getenv("TZ"), nullptr);
    restoreTZ();
}

TEST(SwitchTZ, SetsErrnoForAZoneThatThePlatformDoesNotHave)
{
    switchTZ("No/Such_Zone");
    EXPECT_NE(errno, 0);
    restoreTZ();
    EXPECT_EQ(errno, 0);
}

TEST(SwitchTZ, KeepsAtMost61Characters)
{
    const std::string name(100, 'Q');
    switchTZ(name.c_str());
    EXPECT_EQ(mygetTZ(), "TZ=" + name.substr(0, 61));
    restoreTZ();
}

TEST(MygetTZ, IsNullForAnEmptyZone)
{
    const Zone zone("");
    EXPECT_EQ(mygetTZ(), nullptr);
}

TEST(IsTimezone, KnowsTheFilesOfTheZones)
{
    errno = 77;
    for (const char *name : {"UTC", "US/Pacific", "America/Argentina/Buenos_Aires", "Etc/GMT+5"})
        EXPECT_EQ(is_timezone(name), 1) << name;
    for (const char *name : {"foo", "US", "America/Argentina", "utc", "LOCAL"})
        EXPECT_EQ(is_timezone(name), 0) << name;
    EXPECT_EQ(errno, 77);
}

TEST(IsTimezone, RefusesNamesThatWouldLeaveTheDirectory)
{
    for (const char *name :
         {"", "/", "/etc/passwd", "../../etc/passwd", "../zoneinfo/UTC", "US/../UTC",
          "US/./Pacific", "US//Pacific", "UTC/", ".", "..", "US/.."})
        EXPECT_EQ(is_timezone(name), 0) << name;
    EXPECT_EQ(is_timezone(nullptr), 0);
    EXPECT_EQ(is_timezone(std::string(5000, 'x').c_str()), 0);
}

// GoogleTest runs suites named DeathTest first: before another test makes the process find its
// directory.
TEST(IsTimezoneDeathTest, LooksWhereZoneinfoSaysAndRemembersIt)
{
    const Ended ended = in_child([] {
        setenv("ZONEINFO", "/usr/share/zoneinfo/US", 1);
        if (is_timezone("Pacific") != 1 || is_timezone("UTC") != 0)
            exit(1);
        setenv("ZONEINFO", "/usr/share/zoneinfo", 1);
        exit(is_timezone("Pacific") == 1 ? 0 : 2);
    });
    EXPECT_EQ(ended.status, 0);
    const Ended overlong = in_child([] {
        setenv("ZONEINFO", std::string(2000, '/').c_str(), 1);
        exit(is_timezone("UTC"));
    });
    EXPECT_EQ(overlong.status, 0);
}

TEST(Str2epochThreads, EightThreadsReadWithAndWithoutZonesAtOnce)
{
    std::vector<std::thread> threads;
    std::vector<int> wrong(8, 0);
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([t, &wrong] {
            for (int i = 0; i < 100; ++i) {
                const int day = (t * 37 + i) % 28 + 1;
                const std::string date = "2008-02-" + std::string(day < 10 ? "0" : "") +
                                         std::to_string(day) + " 12:30:15.25";
                const double utc = at(2008, 2, day, 12, 30, 15.25);
                wrong[static_cast<size_t>(t)] += str2epoch(date.c_str()) != utc;
                if (t % 2)
                    wrong[static_cast<size_t>(t)] +=
                        str2epoch((date + " US/Pacific").c_str()) != utc + 8 * 3600;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, std::vector<int>(8, 0));
}
