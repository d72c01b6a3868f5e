// Epoch times from and to plain numbers, and the functions for Fortran, which take addresses.

#include "stock/h2e.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "stock/epoch.h"

TEST(H2e, AddsTheTimeOfDayToTheDay)
{
    EXPECT_EQ(h2e(2008, 32, 12, 30, 15.5), 1201869015.5);
    EXPECT_EQ(h2e(1970, 1, 0, 0, 0), 0);
    EXPECT_EQ(h2e(1969, 365, 23, 59, 59), -1);
}

TEST(H2e, CarriesOver)
{
    EXPECT_EQ(h2e(1970, 1, 25, 61, -3), 25 * 3600 + 61 * 60 - 3);
    EXPECT_EQ(h2e(1970, 400, 0, 0, 0), 399 * 86400);
}

TEST(H2e, YearMinus1Day1CountsAsYear0DayMinus999)
{
    EXPECT_EQ(h2e(-1, 1, 0, 0, 0), dtoepoch(-999));
    EXPECT_EQ(h2e(-1, 1, 0, 0, 0), h2e(0, -999, 0, 0, 0));
}

TEST(H2e, TakesEveryInt)
{
    constexpr int most = std::numeric_limits<int>::max();
    constexpr int least = std::numeric_limits<int>::min();
    EXPECT_TRUE(std::isfinite(h2e(most, most, most, most, 0)));
    EXPECT_TRUE(std::isfinite(h2e(least, least, least, least, 0)));
    EXPECT_TRUE(std::isnan(h2e(1970, 1, 0, 0, NAN)));
}

TEST(E2h, GivesTheFieldsOfATime)
{
    int year = 0, doy = 0, hour = 0, minute = 0;
    double second = 0;
    EXPECT_EQ(e2h(1201869015.5, &year, &doy, &hour, &minute, &second), 0);
    EXPECT_EQ(year, 2008);
    EXPECT_EQ(doy, 32);
    EXPECT_EQ(hour, 12);
    EXPECT_EQ(minute, 30);
    EXPECT_EQ(second, 15.5);
}

TEST(E2h, AndH2eUndoEachOtherForEveryDayOfSixCenturies)
{
    for (double when = -1e10; when < 1e10; when += 86400 * 0.73) {
        int year = 0, doy = 0, hour = 0, minute = 0;
        double second = 0;
        e2h(when, &year, &doy, &hour, &minute, &second);
        ASSERT_NEAR(h2e(year, doy, hour, minute, second), when, 1e-5);
    }
}

TEST(Doy2mday, GivesMonthAndDay)
{
    int month = 0, day = 0;
    EXPECT_EQ(doy2mday(61, 2004, &month, &day), 0);
    EXPECT_EQ(month, 3);
    EXPECT_EQ(day, 1);
}

TEST(Doy2mday, Day366Of2003IsMonth12Day1)
{
    int month = 0, day = 0;
    doy2mday(366, 2003, &month, &day);
    EXPECT_EQ(month, 12);
    EXPECT_EQ(day, 1);
}

TEST(Mday2doy, CountsTheLeapDay)
{
    EXPECT_EQ(mday2doy(2004, 3, 1), 61);
    EXPECT_EQ(mday2doy(2003, 3, 1), 60);
    EXPECT_EQ(mday2doy(1900, 12, 31), 365);
    EXPECT_EQ(mday2doy(2000, 12, 31), 366);
}

TEST(H2eByPointer, CallsThePlainFunctions)
{
    const int year = 2008, doy = 32, hour = 12, minute = 30;
    const double second = 15.5;
    const double when = h2e_(&year, &doy, &hour, &minute, &second);
    EXPECT_EQ(when, 1201869015.5);

    int y = 0, d = 0, h = 0, m = 0;
    double s = 0;
    EXPECT_EQ(e2h_(&when, &y, &d, &h, &m, &s), 0);
    EXPECT_EQ(y, year);
    EXPECT_EQ(d, doy);
    EXPECT_EQ(h, hour);
    EXPECT_EQ(m, minute);
    EXPECT_EQ(s, second);

    int month = 0, day = 0;
    EXPECT_EQ(doy2mday_(&doy, &year, &month, &day), 0);
    EXPECT_EQ(month, 2);
    EXPECT_EQ(day, 1);
    EXPECT_EQ(mday2doy_(&year, &month, &day), doy);
}
