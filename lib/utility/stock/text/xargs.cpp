// xargs: runs a command over a list of arguments, as many at a time as fit in a line.

#include "stock/xargs.h"

#include <cstdlib>
#include <cstring>

#include "stock/elog.h"
#include "stock/pushstr.h"

namespace {

int64_t length_of(const char *text)
{
    return text ? static_cast<int64_t>(std::strlen(text)) : 0;
}

// Completes the line with the trailer, runs it, and leaves it empty.
void run(void **line, const char *trailer, int verbose)
{
    pushstr(line, trailer);
    char *command = popstr(line, 1);
    if (verbose)
        elog_notify(0, "%s", command);
    // xargs has no result that could tell the exit status.
    [[maybe_unused]] const int status = std::system(command);
    std::free(command);
}

}  // namespace

void xargs(const char *command, const Tbl *arguments, const char *trailer, int verbose)
{
    void *line = nullptr;
    int64_t length = 0;  // of the line
    const int64_t count = arguments ? arguments->count : 0;
    for (int64_t i = 0; i < count; ++i) {
        const auto *argument = static_cast<const char *>(gettbl(arguments, i));
        // Meant: a first argument of 513 characters has the trailer alone run first.
        if (length_of(trailer) + length + length_of(argument) > XARGS_MAX) {
            run(&line, trailer, verbose);
            length = 0;
        }
        if (length == 0) {
            pushstr(&line, command);
            pushstrc(&line, ' ');
        }
        pushstr(&line, argument);
        length = pushstrc(&line, ' ');
    }
    run(&line, trailer, verbose);
}
