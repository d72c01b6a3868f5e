// stock fs: prints the host, size and free space of the file system that contains a path.

#include <memory>

#include "base/limits.h"
#include "command.h"
#include "deviants.h"
#include "stock.h"

namespace {

constexpr const char *kHelp =
    "usage: stock fs PATH\n"
    "\n"
    "Says of the file system that holds PATH which host it comes from (\"-\" for this\n"
    "one) and what is mounted there, its size and what ordinary users may still take\n"
    "of it (a Gbyte is 1,000,000,000 bytes), the same for files, and whether it is\n"
    "mounted over the network. A PATH that begins with ~ is expanded.\n"
    "\n"
    "Exit status: 0, 1 when PATH cannot be examined, 2 on wrong usage.\n";

// The word for 1, 0 and, if the question could not be answered, -1.
const char *yes_or_no(int answer)
{
    return answer < 0 ? "unknown" : answer ? "yes" : "no";
}

void print(const Infopath &info, int nfs)
{
    printf("%-16s %s\n", "host", *info.host ? info.host : "-");
    printf("%-16s %s\n", "path", info.path);
    printf("%-16s %.3f Gbytes\n", "size", Gbytes(info.bytes_total));
    printf("%-16s %.3f Gbytes\n", "available", Gbytes(info.bytes_avail));
    printf("%-16s %.0f\n", "files", info.files_total);
    printf("%-16s %.0f\n", "files available", info.files_avail);
    printf("%-16s %s\n", "nfs", yes_or_no(nfs));
}

// Expands a "~" at the beginning, as infopath does, and asks is_nfs: 1, 0, or -1.
int nfs_of(const char *path)
{
    char clean[stock::kPathSize];
    if (*path == '~')
        cleanpath(path, 0, clean);
    return is_nfs(*path == '~' ? clean : path);
}

}  // namespace

int cmd_fs(int argc, char **argv)
{
    if (helped(argc, argv, kHelp))
        return kDone;
    if (argc != 2)
        return wrong_usage("stock fs", argc < 2 ? "which path?" : "one path at a time");
    const std::unique_ptr<Infopath, decltype(&free)> info(infopath(argv[1]), free);
    if (!info) {
        elog_complain(0, "stock fs: can't examine '%s'", argv[1]);
        return kFailed;
    }
    print(*info, nfs_of(argv[1]));
    return kDone;
}
