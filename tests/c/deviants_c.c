/* The services of the operating system from C. */

#include <signal.h>
#include <string.h>

#include "deviants.h"
#include "stock.h"

int main(void)
{
    char text[1024];
    int number = 0;

    if (str2sig("SIGTERM", &number) || number != SIGTERM || sig2str(SIGTERM, text) ||
        strcmp(text, "SIGTERM") || Nsig < 30)
        return 1;
    if (strcmp(signal_bysig(SIGTERM)->name, "SIGTERM") || signal_byname("TERM")->number != SIGTERM)
        return 1;
    if (!strstr(signal_desc(SIGTERM, text, sizeof text), "SIGTERM"))
        return 1;
    if (my_hostname(text) || strchr(text, '.') || strcmp(getexecname(), "deviants_c"))
        return 1;
    if (std_now() < 1e9 || now_() < 1e9 || std_set_timer(SIG_IGN, 100) || std_set_timer(SIG_DFL, 0))
        return 1;
    usermethod_init();
    return usermethod("") || std_dlopen("/nosuchfile") ? 1 : 0;
}
