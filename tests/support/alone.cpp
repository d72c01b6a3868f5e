// alone COMMAND [ARGUMENT...]: runs a command in the environment that all tests start from.

#include <cstdio>

#include <unistd.h>

#include "support/environment.h"

int main(int argc, char **argv)
{
    start_from_own_environment();
    if (argc > 1)
        execvp(argv[1], argv + 1);
    perror("alone");
    return 127;
}
