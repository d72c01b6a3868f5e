// Epoch times from and to plain numbers: the functions of epoch.h for callers without a
// Caltime. Those whose names end in "_" are for Fortran, which passes every argument by address.

#include "stock/h2e.h"

#include "stock/epoch.h"

double h2e(int year, int doy, int hour, int minute, double second)
{
    return dtoepoch(year * 1000L + doy) + hour * 3600.0 + minute * 60.0 + second;
}

int e2h(double when, int *year, int *doy, int *hour, int *minute, double *second)
{
    Caltime time;
    time.epoch = when;
    etoh(&time);
    *year = time.year;
    *doy = time.doy;
    *hour = time.hour;
    *minute = time.minute;
    *second = time.second;
    return 0;
}

int doy2mday(int doy, int year, int *month, int *day)
{
    Caltime time;
    time.year = year;
    time.doy = doy;
    month_day(&time);
    *month = time.month;
    *day = time.day;
    return 0;
}

int mday2doy(int year, int month, int day)
{
    Caltime time;
    time.year = year;
    time.month = month;
    time.day = day;
    mdtodate(&time);
    return time.doy;
}

double h2e_(const int *year, const int *doy, const int *hour, const int *minute,
            const double *second)
{
    return h2e(*year, *doy, *hour, *minute, *second);
}

int e2h_(const double *when, int *year, int *doy, int *hour, int *minute, double *second)
{
    return e2h(*when, year, doy, hour, minute, second);
}

int doy2mday_(const int *doy, const int *year, int *month, int *day)
{
    return doy2mday(*doy, *year, month, day);
}

int mday2doy_(const int *year, const int *month, const int *day)
{
    return mday2doy(*year, *month, *day);
}
