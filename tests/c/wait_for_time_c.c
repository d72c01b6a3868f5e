/* A pause in plain C. */

#include "stock/wait_for_time.h"

int main(void)
{
    snooze(0.001);
    wait_for_time(1, 0);
    return 0;
}
