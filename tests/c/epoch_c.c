/* Calendar arithmetic called from plain C. */

#include "stock/epoch.h"
#include "stock/h2e.h"

int main(void)
{
    Caltime time = {0};
    time.epoch = epoch(2008032) + 45015.5;
    if (etoh(&time) != 0 || time.month != 2 || time.day != 1 || time.second != 15.5)
        return 1;
    time.epoch = 0;
    if (htoe(&time) != 0 || time.epoch != h2e(2008, 32, 12, 30, 15.5))
        return 2;
    char buf[OUTSIDE_RANGE_SIZE];
    return outside_range(buf, 1e12) != 1 || days_in_month[1] != 28 || month_name[1][0] != 'F';
}
