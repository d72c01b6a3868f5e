// stock log: reports a message of a shell script through the message log, so that it is
// delivered and tagged like the messages of programs.

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>

#include "command.h"
#include "stock.h"

namespace {

constexpr const char *kHelp =
    "usage: stock log [-s SEVERITY] [--errno NUMBER] MESSAGE...\n"
    "\n"
    "Reports the message, its words joined by blanks, through the message log: where it\n"
    "goes and the tag in front of it are set by elog.pf, ELOG_DELIVER and ELOG_TAG. A\n"
    "MESSAGE that begins with - stands behind --.\n"
    "\n"
    "  -s SEVERITY       log, debug, notify (unless told otherwise), alert, complain,\n"
    "                    die or fault\n"
    "  --errno NUMBER    adds what the system says of this error; nothing for 0\n"
    "\n"
    "With die the exit status is 1, and with fault the command aborts, as a program does.\n"
    "A message of severity log waits for others that never come: it is seen only where\n"
    "ELOG_DELIVER sends it, such as stderr@l.\n";

struct Report {
    int severity = ELOG_NOTIFY;
    int error = 0;  // the errno to report, 0 for none
    std::string text;
};

// Reads a whole number from 0 to INT_MAX. Returns false for anything else.
bool read_number(const char *word, int &number)
{
    char *end = nullptr;
    errno = 0;
    const long value = strtol(word, &end, 10);
    if (end == word || *end || errno != 0 || value < 0 || value > INT_MAX)
        return false;
    number = static_cast<int>(value);
    return true;
}

// Reads the name of a severity. Returns false if there is none of that name.
bool read_severity(const char *word, int &severity)
{
    for (int i = 0; const char *name = elog_severity(i); ++i)
        if (!strcmp(name, word)) {
            severity = i;
            return true;
        }
    return false;
}

// Reads the options and sets i to the index of the first word of the message. Returns kDone or
// kUsage.
int read_options(int argc, char **argv, Report &report, int &i)
{
    for (i = 1; i < argc && argv[i][0] == '-' && argv[i][1]; ++i) {
        const char *option = argv[i];
        if (!strcmp(option, "--")) {
            ++i;
            break;
        }
        const bool severity = !strcmp(option, "-s");
        if (!severity && strcmp(option, "--errno") != 0)
            return wrong_usage("stock log", "what is '%s'?", option);
        if (++i == argc)
            return wrong_usage("stock log", "%s needs an argument", option);
        if (severity && !read_severity(argv[i], report.severity))
            return wrong_usage("stock log", "no severity is called '%s'", argv[i]);
        if (!severity && !read_number(argv[i], report.error))
            return wrong_usage("stock log", "'%s' is no error number", argv[i]);
    }
    return kDone;
}

// Calls elog, which takes an argument list and, unlike elog_die, always returns.
void deliver(int severity, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    elog(severity, 1, format, args);
    va_end(args);
}

void send(const Report &report)
{
    const char *text = report.text.c_str();
    errno = report.error;
    switch (report.severity) {
    case ELOG_DIE: elog_die(1, "%s", text);
    case ELOG_FAULT: elog_fault(1, "%s", text);
    default: deliver(report.severity, "%s", text);
    }
}

}  // namespace

int cmd_log(int argc, char **argv)
{
    if (helped(argc, argv, kHelp))
        return kDone;
    Report report;
    int i = 1;
    if (const int status = read_options(argc, argv, report, i); status != kDone)
        return status;
    if (i == argc)
        return wrong_usage("stock log", "which message?");
    report.text = argv[i];
    while (++i < argc)
        report.text.append(" ").append(argv[i]);
    send(report);
    int refused = 0;
    elog_query(ELOG_REFUSED, 0, &refused);
    return refused ? kFailed : kDone;
}
