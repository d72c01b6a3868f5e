/* The repeated system calls, from plain C. */

#include "stock/restat.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    struct stat by_path, by_fd;
    char first[4];
    const int fd = reopen(argv[0], O_RDONLY);
    if (argc < 1 || fd < 0 || restat(argv[0], &by_path) != 0 || refstat(fd, &by_fd) != 0)
        return 1;
    if (by_path.st_ino != by_fd.st_ino || relseek(fd, 1, SEEK_SET) != 1)
        return 2;
    if (reread(fd, first, sizeof first) != (ssize_t)sizeof first)
        return 3;
    return reclose(fd) == 0 && reclose(fd) == -1 ? 0 : 4;
}
