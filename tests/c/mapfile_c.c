/* Mapped files, from plain C. */

#include "stock/mapfile.h"

#include <string.h>

#include "stock/is_file.h"

int main(int argc, char **argv)
{
    void *first, *second;
    const Mapdata *mapped;
    if (argc < 1 || mapfile(argv[0], &first, NULL) != filesize(argv[0]))
        return 1;
    if (mapfile(argv[0], &second, NULL) < 0 || first != second)
        return 2;
    mapped = vmapfile(argv[0], NULL);
    if (mapped == NULL || mapped->address != first)
        return 3;
    if (lmapfile(argv[0], &second, 0, 4) != 4 || memcmp(first, second, 4) != 0)
        return 4;
    return unmapfile(argv[0], NULL) == 0 && unmaparr(NULL) == 0 ? 0 : 5;
}
