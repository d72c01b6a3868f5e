/* The number converters from plain C: a record there and back. */

#include <string.h>

#include "stock/convert.h"

int main(void)
{
    const double value = 2.5;
    const unsigned int count = 3000000000u;
    char record[12];
    char *cursor = record;
    if (hd2md(&value, &cursor, 1) != 0 || uhi2mi(&count, &cursor, 1) != 0 || cursor != record + 12)
        return 1;
    if (memcmp(record, "\x40\x04\0\0\0\0\0\0\xb2\xd0\x5e\0", 12) != 0)
        return 2;

    int whole = 0;
    unsigned long again = 0;
    cursor = record;
    if (md2hi(&cursor, &whole, 1) != -1 || whole != 2)
        return 3;
    if (umi2hl(&cursor, &again, 1) != 0 || again != 3000000000u)
        return 4;
    return 0;
}
