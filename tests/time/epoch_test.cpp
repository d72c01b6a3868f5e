// Calendar arithmetic: epoch times, year-day integers and the broken-down record.

#include "stock/epoch.h"

#include <chrono>
#include <cmath>
#include <cstring>
#include <ctime>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "stock/h2e.h"
#include "support/child.h"
#include "support/comma_locale.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

Caltime fields_of(double when)
{
    Caltime time = {};
    time.epoch = when;
    EXPECT_EQ(etoh(&time), 0);
    return time;
}

// The arithmetic of the calendar written down once more, with doubles only.
struct Steps {
    double year, doy;

    explicit Steps(double days)
    {
        year = 1970 + std::floor(days / 365);
        double d = days - year2days(year);
        const auto length = [](double y) { return isleap(static_cast<int>(y)) ? 366 : 365; };
        if (d < -366)
            d = 0;
        if (d < 0) {
            year -= 1;
            d += length(year);
        } else if (d >= 730) {
            d = 0;
        } else if (d > length(year) - 1) {
            d -= length(year);
            year += 1;
        }
        doy = d + 1;
    }
};

double day_number(int year)
{
    using namespace std::chrono;
    const sys_days first = std::chrono::year(year) / January / 1;
    return static_cast<double>(first.time_since_epoch().count());
}

std::string range_text(double when)
{
    char buf[OUTSIDE_RANGE_SIZE];
    EXPECT_EQ(outside_range(buf, when), 1);
    return buf;
}

}  // namespace

TEST(Epoch, TheTablesHoldLengthsAndNamesOfTheMonths)
{
    const int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const char *names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(days_in_month[i], lengths[i]);
        EXPECT_STREQ(month_name[i], names[i]);
    }
}

TEST(Epoch, LeapYearsFollowTheGregorianRuleForEveryYear)
{
    for (const int year : {2004, 2000, 1600, 0, -4, -400, -2000, 2147483644})
        EXPECT_EQ(isleap(year), 1) << year;
    for (const int year : {1900, 2001, 2100, 1, -1, -100, -2147483647, 2147483647})
        EXPECT_EQ(isleap(year), 0) << year;
}

TEST(Epoch, YearDayIntegersGiveTheStartOfTheirDay)
{
    EXPECT_EQ(epoch(1970001), 0);
    EXPECT_EQ(epoch(2000001), 946684800);
    EXPECT_EQ(epoch(2008032), 1201824000);
    EXPECT_EQ(epoch(1969365), -86400);
    EXPECT_EQ(dtoepoch(2008032), 1201824000);
}

TEST(Epoch, Day0IsTheDayBeforeTheYearAndDay400CountsOn)
{
    EXPECT_EQ(dtoepoch(2008000), dtoepoch(2008001) - 86400);
    EXPECT_EQ(dtoepoch(2008000), dtoepoch(2007365));
    EXPECT_EQ(dtoepoch(2008400), dtoepoch(2009034));
}

TEST(Epoch, NegativeYearDaysAreTakenApartByTruncation)
{
    // -999 is year 0, day -999.
    EXPECT_EQ(dtoepoch(-999), dtoepoch(1) - 1000 * 86400.0);
    // -1001 is year -1, day -1.
    EXPECT_EQ(dtoepoch(-1001), (day_number(-1) - 2) * 86400);
}

TEST(Epoch, TheLargestYearDaysGiveFiniteTimes)
{
    EXPECT_TRUE(std::isfinite(dtoepoch(std::numeric_limits<long>::max())));
    EXPECT_TRUE(std::isfinite(dtoepoch(std::numeric_limits<long>::min())));
    EXPECT_GT(epoch(std::numeric_limits<int>::max()), 6e13);
    EXPECT_LT(epoch(std::numeric_limits<int>::min()), -6e13);
}

TEST(Epoch, EveryYearStartsWhereAnIndependentCalendarSays)
{
    for (int year = 1; year <= 9999; ++year) {
        ASSERT_EQ(year2days(year), day_number(year)) << year;
        ASSERT_EQ(dtoepoch(year * 1000L + 1), day_number(year) * 86400) << year;
    }
    EXPECT_EQ(year2days(-9999), day_number(-9999));
    EXPECT_TRUE(std::isnan(year2days(kNan)));
    EXPECT_GT(year2days(1e300), 3e302);
}

TEST(Etoh, EveryDayFrom500To3440IsThatOfAnIndependentCalendar)
{
    using namespace std::chrono;
    const sys_days end = year(3440) / December / 31;
    for (sys_days day = year(500) / January / 1; day <= end; day += days(1)) {
        const year_month_day date(day);
        const Caltime time =
            fields_of(static_cast<double>(sys_seconds(day).time_since_epoch().count()));
        const auto doy = (day - sys_days(date.year() / January / 1)).count() + 1;
        ASSERT_EQ(time.year, static_cast<int>(date.year()));
        ASSERT_EQ(time.month, static_cast<int>(static_cast<unsigned>(date.month())));
        ASSERT_EQ(time.day, static_cast<int>(static_cast<unsigned>(date.day())));
        ASSERT_EQ(time.doy, doy);
        ASSERT_EQ(time.date, time.year * 1000L + doy);
        ASSERT_STREQ(time.mname, month_name[time.month - 1]);
        ASSERT_EQ(mday2doy(time.year, time.month, time.day), doy);
    }
}

TEST(Etoh, EveryDayFromYear1To9999FollowsTheDescribedSteps)
{
    const double last = day_number(10000);
    for (double day = day_number(1); day < last; ++day) {
        const Steps steps(day);
        const Caltime time = fields_of(day * 86400);
        ASSERT_EQ(time.year, steps.year) << day;
        ASSERT_EQ(time.doy, steps.doy) << day;
    }
}

TEST(Etoh, DaysFarBeyondTheGuardsFallOn1JanuaryOfTheEstimate)
{
    for (const double day :
         {5e6, -5e6, 1e9, -1e9, 123456789012.0, -123456789012.0, 99999999999.0}) {
        const Steps steps(day);
        EXPECT_EQ(fields_of(day * 86400).year, steps.year) << day;
        EXPECT_EQ(fields_of(day * 86400).doy, steps.doy) << day;
    }
    EXPECT_EQ(fields_of(1e12).date, 33679001);
}

TEST(Etoh, OneSecondBefore1970IsTheLastOf1969)
{
    const Caltime time = fields_of(-1);
    EXPECT_EQ(time.date, 1969365);
    EXPECT_EQ(time.month, 12);
    EXPECT_EQ(time.day, 31);
    EXPECT_EQ(time.hour, 23);
    EXPECT_EQ(time.minute, 59);
    EXPECT_EQ(time.second, 59);
}

TEST(Etoh, MinusOneE20LeavesARestOf86400WhichIsHour24)
{
    const Caltime time = fields_of(-1e-20);
    EXPECT_EQ(time.date, 1969365);
    EXPECT_EQ(time.hour, 24);
    EXPECT_EQ(time.minute, 0);
    EXPECT_EQ(time.second, 0);
}

TEST(Etoh, TheTimeJustBeforeMidnightBelongsToTheEndingDay)
{
    for (const double midnight : {86400.0, 16384 * 86400.0, 1209600000.0, -86400.0 * 4096}) {
        SCOPED_TRACE(midnight);
        const Caltime time = fields_of(std::nextafter(midnight, -kInf));
        EXPECT_EQ(time.hour, 23);
        EXPECT_EQ(time.minute, 59);
        EXPECT_LT(time.second, 60);
        EXPECT_EQ(fields_of(midnight).hour, 0);
    }
}

TEST(Etoh, TheFieldsOfRandomTimesAddUpToTheTime)
{
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> times(-2e10, 2e10);
    for (int i = 0; i < 200000; ++i) {
        Caltime time = fields_of(times(random));
        const double when = time.epoch;
        ASSERT_GE(time.second, 0);
        ASSERT_LT(time.second, 60);
        ASSERT_LT(time.minute, 60);
        ASSERT_LT(time.hour, 24);
        htoe(&time);
        ASSERT_NEAR(time.epoch, when, 1e-5);
    }
}

TEST(Etoh, TimesThatAreNoTimesGiveDefinedFields)
{
    for (const double when : {kInf, -kInf, kNan, 1e300, -1e300, 1.7e308, 5e-324}) {
        SCOPED_TRACE(when);
        const Caltime time = fields_of(when);
        EXPECT_GE(time.hour, 0);
        EXPECT_LE(time.hour, 24);
        EXPECT_EQ(time.doy, 1);
        EXPECT_EQ(time.month, 1);
        EXPECT_EQ(time.day, 1);
        EXPECT_EQ(time.second,
                  std::isnormal(when) || std::isnan(when) || std::isinf(when) ? 0 : 5e-324);
    }
    EXPECT_EQ(fields_of(1e300).year, std::numeric_limits<int>::max());
    EXPECT_EQ(fields_of(-kInf).year, std::numeric_limits<int>::min());
    EXPECT_EQ(fields_of(kNan).year, 0);
    EXPECT_EQ(yearday(1e300), std::numeric_limits<int>::max());
    EXPECT_EQ(yearday(-1e300), std::numeric_limits<int>::min());
}

TEST(Htoe, ReadsOnlyDateAndTimeOfDay)
{
    Caltime time = {};
    time.date = 2008032;
    time.year = 1;
    time.month = 99;
    time.day = 99;
    time.doy = 99;
    time.hour = 12;
    time.minute = 30;
    time.second = 15.5;
    EXPECT_EQ(htoe(&time), 0);
    EXPECT_EQ(time.epoch, 1201869015.5);
}

TEST(Htoe, LetsFieldsCarryOver)
{
    Caltime time = {};
    time.date = 1970001;
    time.hour = 25;
    time.minute = -1;
    time.second = -3;
    htoe(&time);
    EXPECT_EQ(time.epoch, 25 * 3600 - 60 - 3);
}

TEST(Today, IsTheDayOfTheClock)
{
    for (;;) {
        const auto before = std::time(nullptr);
        const long date = todaysdate();
        Caltime today;
        EXPECT_EQ(zh_today(&today), 0);
        if (before / 86400 != std::time(nullptr) / 86400)
            continue;  // midnight went by
        EXPECT_EQ(date, yearday(static_cast<double>(before)));
        EXPECT_EQ(today.date, date);
        EXPECT_EQ(today.epoch, static_cast<double>(before / 86400 * 86400));
        EXPECT_EQ(today.hour + today.minute, 0);
        EXPECT_EQ(today.second, 0);
        break;
    }
}

TEST(MonthDay, FindsEveryDayOfBothKindsOfYear)
{
    for (const int year : {2003, 2004}) {
        int doy = 0;
        for (int month = 1; month <= 12; ++month)
            for (int day = 1; day <= days_in_month[month - 1] + (month == 2 && year == 2004);
                 ++day) {
                Caltime time = {};
                time.year = year;
                time.doy = ++doy;
                ASSERT_EQ(month_day(&time), 0);
                ASSERT_EQ(time.month, month);
                ASSERT_EQ(time.day, day);
                ASSERT_STREQ(time.mname, month_name[month - 1]);
            }
        EXPECT_EQ(doy, year == 2004 ? 366 : 365);
    }
}

TEST(MonthDay, CountsOnInDecemberFromTheYearsEnd)
{
    Caltime time = {};
    time.year = 2003;
    time.doy = 400;
    month_day(&time);
    EXPECT_EQ(time.month, 12);
    EXPECT_EQ(time.day, 35);
    EXPECT_STREQ(time.mname, "Dec");
}

TEST(MonthDay, LeavesDaysBeforeTheYearInJanuary)
{
    Caltime time = {};
    time.year = 2003;
    for (const int doy : {0, -5, std::numeric_limits<int>::min()}) {
        time.doy = doy;
        month_day(&time);
        EXPECT_EQ(time.month, 1);
        EXPECT_EQ(time.day, doy);
    }
}

TEST(Mdtodate, FillsDayOfYearAndDate)
{
    Caltime time = {};
    time.year = 2004;
    time.month = 3;
    time.day = 1;
    EXPECT_EQ(mdtodate(&time), 0);
    EXPECT_EQ(time.doy, 61);
    EXPECT_EQ(time.date, 2004061);
}

TEST(Mdtodate, TakesAnyMonthAndAnyDay)
{
    EXPECT_EQ(mday2doy(2003, 0, 5), 5);
    EXPECT_EQ(mday2doy(2003, -7, 5), 5);
    EXPECT_EQ(mday2doy(2003, 13, 5), 370);
    EXPECT_EQ(mday2doy(2003, std::numeric_limits<int>::max(), 5), 370);
    EXPECT_EQ(mday2doy(2003, 12, std::numeric_limits<int>::max()), std::numeric_limits<int>::max());
    EXPECT_EQ(mday2doy(2003, 2, -40), -9);
}

TEST(Timeprint, PrintsTheRecordOnOneLine)
{
    const Ended ended = in_child([] {
        Caltime time = fields_of(1201869015.5);
        if (timeprint(&time) != 0)
            exit(9);
        time = fields_of(0);
        timeprint(&time);
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, " 1201869015.500  2008032 Feb  1,2008 12:30:15.500\n"
                         "          0.000  1970001 Jan  1,1970  0:00:0.000\n");
}

TEST(Timeprint, DoesNotDependOnTheLocale)
{
    const CommaLocale comma;
    const Ended ended = in_child([] {
        Caltime time = fields_of(1.5);
        timeprint(&time);
    });
    EXPECT_EQ(ended.out, "          1.500  1970001 Jan  1,1970  0:00:1.500\n");
}

TEST(Timeprint, PrintsAnyRecordAsPrintfDoes)
{
    Caltime time = fields_of(-1e11);
    time.second = 59.9996;
    for (const double epoch :
         {time.epoch, 1e300, -1e300, std::numeric_limits<double>::infinity()}) {
        time.epoch = epoch;
        time.year = -5;
        char expected[1024];
        snprintf(expected, sizeof expected, "%15.3f %8ld %s %2d,%4d %2d:%02d:%02.3f\n", time.epoch,
                 time.date, time.mname, time.day, time.year, time.hour, time.minute, time.second);
        EXPECT_EQ(in_child([&] { timeprint(&time); }).out, expected);
    }
}

TEST(Timecon, ReadsHoursMinutesAndSecondsBetweenAnySeparators)
{
    const struct {
        const char *text;
        double seconds;
    } cases[] = {
        {"1:30:15.5", 5415.5},
        {"2", 7200},
        {"1h30", 5400},
        {"12:00", 43200},
        {"", 0},
        {":30", 1800},
        {"::5", 5},
        {"1:2:3.4.5", 3723.4},
        {"1:2:.5", 3720.5},
        {"1:2:.", 3720},
        {"1 2 3x9", 3723},
        {"x", 0},
        {"1:30.5", 5405},
        {"1.5", 3900},
        {"0:0:1.25e9", 1.25},
        {"9999999999999999999", 3600 * 9999999999999999999.0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(timecon(c.text), c.seconds) << c.text;
    EXPECT_EQ(timecon(nullptr), 0);
}

TEST(Timecon, ReadsAPointWhateverTheLocale)
{
    setlocale(LC_ALL, "de_DE.UTF-8");
    EXPECT_EQ(timecon("0:0:1.5"), 1.5);
    setlocale(LC_ALL, "C");
}

TEST(TimeconDeathTest, ATextOf20CharactersEndsTheProcess)
{
    const Ended ended = in_child([] { timecon("12345678901234567890"); });
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(
        ended.err.find("timecon: duration '12345678901234567890' is longer than 19 characters\n"),
        std::string::npos)
        << ended.err;
}

TEST(OutsideRange, NamesWhatIsNoTime)
{
    EXPECT_EQ(range_text(kInf), "** The End of Time (+infinity) **");
    EXPECT_EQ(range_text(-kInf), "** The Beginning of Time (-infinity) **");
    EXPECT_EQ(range_text(kNan), "** Nan **");
    EXPECT_EQ(range_text(-kNan), "** Nan **");
}

TEST(OutsideRange, CountsTheYearsAheadWithATrailingBlank)
{
    EXPECT_EQ(range_text(1e12), "**  31709 years ahead ** ");
    EXPECT_EQ(range_text(253244534401), "**   8030 years ahead ** ");
    EXPECT_EQ(range_text(1e300), "** 3.17098e+292 years ahead ** ");
    EXPECT_EQ(range_text(4e13), "** 1.26839e+06 years ahead ** ");
}

TEST(OutsideRange, Minus8031YearsAgoKeepsItsSign)
{
    EXPECT_EQ(range_text(-253244534401), "**  -8031 years ago ** ");
    EXPECT_EQ(range_text(-1e300), "** -3.17098e+292 years ago ** ");
}

TEST(OutsideRange, LeavesTheBufferAloneForTimesThatPrint)
{
    char buf[] = "as it was";
    for (const double when : {0.0, 253244534400.0, -253244534400.0, 5e-324, 1.2e9}) {
        EXPECT_EQ(outside_range(buf, when), 0);
        EXPECT_STREQ(buf, "as it was");
    }
}

TEST(NiceTimes, PickTheFirstIncrementThatTheWantedSpacingDoesNotExceed)
{
    const double bounds[] = {2,   5,    10,   15,   20,   30,    60,    120,   300,   600,
                             900, 1200, 1800, 3600, 7200, 14400, 21600, 28800, 43200, 86400};
    double below = 1;
    for (const double bound : bounds) {
        for (const double wanted : {std::nextafter(below, kInf), bound}) {
            SCOPED_TRACE(wanted);
            double start = -1;
            double increment = -1;
            EXPECT_EQ(get_nice_times(0, wanted, 1, &start, &increment), 0);
            EXPECT_EQ(increment, bound);
        }
        below = bound;
    }
}

TEST(NiceTimes, Split100SecondsInto10AtMultiplesOf10)
{
    double start = 0;
    double increment = 0;
    const double t0 = dtoepoch(2008032) + 12 * 3600 + 34 * 60;
    get_nice_times(t0 + 3, t0 + 103, 10, &start, &increment);
    EXPECT_EQ(increment, 10);
    EXPECT_EQ(start, t0 + 10);
    get_nice_times(t0 + 20, t0 + 120, 10, &start, &increment);
    EXPECT_EQ(start, t0 + 20);
}

TEST(NiceTimes, AWholeMinuteStartsOneIncrementOf10Later)
{
    double start = 0;
    double increment = 0;
    get_nice_times(120, 220, 10, &start, &increment);
    EXPECT_EQ(start, 130);
}

TEST(NiceTimes, MinutesAndHoursKeepAStartThatLiesOnThem)
{
    double start = 0;
    double increment = 0;
    get_nice_times(120, 120 + 600, 10, &start, &increment);
    EXPECT_EQ(increment, 60);
    EXPECT_EQ(start, 120);
    get_nice_times(121.5, 121.5 + 600, 10, &start, &increment);
    EXPECT_EQ(start, 180);
    get_nice_times(7200, 7200 + 36000, 10, &start, &increment);
    EXPECT_EQ(increment, 3600);
    EXPECT_EQ(start, 7200);
    get_nice_times(7260, 7260 + 36000, 10, &start, &increment);
    EXPECT_EQ(start, 10800);
}

TEST(NiceTimes, MinutesAreAlignedInTheHourAndHoursInTheDay)
{
    double start = 0;
    double increment = 0;
    get_nice_times(3600 + 61, 3600 + 61 + 3000, 10, &start, &increment);
    EXPECT_EQ(increment, 300);
    EXPECT_EQ(start, 3600 + 300);
    get_nice_times(86400 + 3600, 86400 + 3600 + 216000, 10, &start, &increment);
    EXPECT_EQ(increment, 21600);
    EXPECT_EQ(start, 86400 + 21600);
}

TEST(NiceTimes, TheDecimalLadderTakesOneHalfAndAFifth)
{
    const struct {
        double wanted, increment;
    } cases[] = {
        {1, 1},     {0.51, 1},   {0.5, 0.5},   {0.21, 0.5},   {0.2, 0.2},     {0.11, 0.2},
        {0.1, 0.1}, {0.06, 0.1}, {0.05, 0.05}, {0.011, 0.02}, {0.0004, 5e-4}, {1e-6, 1e-6},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.wanted);
        double start = -1;
        double increment = -1;
        get_nice_times(0, c.wanted, 1, &start, &increment);
        EXPECT_NEAR(increment, c.increment, c.increment * 1e-9);
    }
    double start = 0;
    double increment = 0;
    get_nice_times(7.25, 8.25, 2, &start, &increment);
    EXPECT_EQ(increment, 0.5);
    EXPECT_EQ(start, 7.5);
}

TEST(NiceTimes, TheDayLadderTakesTwoFiveAndTen)
{
    const struct {
        double wanted, increment;  // days
    } cases[] = {{1.5, 2}, {2, 2},   {2.5, 5}, {5, 5},    {6, 10},    {10, 10},
                 {11, 20}, {20, 20}, {21, 50}, {51, 100}, {120, 200}, {3000, 5000}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.wanted);
        double start = -1;
        double increment = -1;
        get_nice_times(0, c.wanted * 86400, 1, &start, &increment);
        EXPECT_NEAR(increment, c.increment * 86400, 1e-6);
    }
}

TEST(NiceTimes, DaysAreAlignedToTheDayBefore1January)
{
    // Day 1 at noon counts as one and a half days: the next multiple of five is day 5.
    double start = 0;
    double increment = 0;
    get_nice_times(43200, 43200 + 50 * 86400.0, 10, &start, &increment);
    EXPECT_EQ(increment, 5 * 86400);
    EXPECT_EQ(start, 4 * 86400);
    // Day 42 at noon: the next one is day 45.
    get_nice_times(41.5 * 86400, 91.5 * 86400, 10, &start, &increment);
    EXPECT_EQ(start, 44 * 86400);
}

TEST(NiceTimes, TakeTheDistanceEitherWay)
{
    double start = 0;
    double increment = 0;
    get_nice_times(103, 3, 10, &start, &increment);
    EXPECT_EQ(increment, 10);
    EXPECT_EQ(start, 110);
}

TEST(NiceTimes, GiveNoTicksWithoutADistanceOrACount)
{
    const struct {
        double t0, t1;
        int n;
    } cases[] = {{5, 5, 10},     {0, 100, 0},  {0, 100, -3},     {kNan, 5, 3},
                 {0, kNan, 3},   {0, kInf, 3}, {-kInf, kInf, 3}, {-1.7e308, 1.7e308, 1},
                 {0, 5e-324, 10}};
    for (const auto &c : cases) {
        double start = 77;
        double increment = 77;
        EXPECT_EQ(get_nice_times(c.t0, c.t1, c.n, &start, &increment), 0);
        EXPECT_EQ(start, 0);
        EXPECT_EQ(increment, 77);
    }
}

TEST(NiceTimes, EndForTheSmallestAndLargestDistances)
{
    double start = 0;
    double increment = 0;
    get_nice_times(0, 5e-324, 1, &start, &increment);
    EXPECT_GE(increment, 0);
    get_nice_times(0, 1e308, 1, &start, &increment);
    EXPECT_GE(increment, 1e308);
}
