// stock signals: prints number, name and description of signals.

#include <climits>
#include <cstdlib>

#include "command.h"
#include "deviants.h"
#include "stock.h"

namespace {

void print(const Signal *signal)
{
    printf("%3d  %-10s %s\n", signal->number, signal->name, signal->description);
}

// Prints the signal with this name or number. Returns false if there is none.
bool print_signal(const char *word)
{
    char name[SIGNAL_NAME_SIZE];
    char *end = nullptr;
    const long value = strtol(word, &end, 10);
    int number = value >= 0 && value <= INT_MAX ? static_cast<int>(value) : 0;
    if ((end == word || *end) && str2sig(word, &number) != 0)
        return false;
    if (sig2str(number, name) != 0)
        return false;
    print(signal_bysig(number));
    return true;
}

}  // namespace

int cmd_signals(int argc, char **argv)
{
    if (helped(argc, argv,
               "usage: stock signals [NAME|NUMBER]...\n\n"
               "Prints number, name and description of the signals, or of those given.\n"
               "The status is 1 when one is unknown.\n"))
        return kDone;
    if (argc > 1 && argv[1][0] == '-')
        return wrong_usage("stock signals", "what is '%s'?", argv[1]);
    for (int i = 0; argc == 1 && i < Nsig; ++i) {
        char name[SIGNAL_NAME_SIZE];
        snprintf(name, sizeof name, "SIG%s", Siglist[i].name);
        print(signal_byname(name));
    }
    int status = kDone;
    for (int i = 1; i < argc; ++i)
        if (!print_signal(argv[i])) {
            elog_complain(0, "no signal is called '%s'\n", argv[i]);
            status = kFailed;
        }
    return status;
}
