/* The dumps, the special values and number text, called from plain C. */

#include "stock/asciidump.h"
#include "stock/fix_strtod.h"
#include "stock/hexdump.h"
#include "stock/ieee754.h"
#include "stock/strdbl.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures = 0;

static void check(int right, const char *what)
{
    if (!right) {
        printf("wrong: %s\n", what);
        ++failures;
    }
}

static void check_dumps(void)
{
    unsigned char bytes[16];
    char text[PRINTABLE_CHAR_SIZE];
    char escaped[80];
    char *dump = hexdump_string(0, "Hello", 5);
    FILE *stream = tmpfile();
    check(!strcmp(dump, "\t00000000  4865 6c6c 6f                            Hello\n"),
          "hexdump_string");
    free(dump);
    hexdump(stream, "Hello", 5);
    rewind(stream);
    check(read_hexdump(stream, bytes, 16) == 5 && !memcmp(bytes, "Hello", 5), "read_hexdump");
    rewind(stream);
    check(asciidump(stream, "a\001", 2) == 6, "asciidump");
    rewind(stream);
    check(read_asciidump(stream, bytes, 2) == 2 && bytes[1] == 1, "read_asciidump");
    fclose(stream);
    check(!strcmp(printable_string(escaped, 80, "a\n", 2), "a\\n"), "printable_string");
    check(!strcmp(printable_char(1, text), "\\0x01"), "printable_char");
    check(printable("abc", 3) == 2, "printable");
}

static void check_numbers(void)
{
    char text[STRDBL_SIZE];
    char *end = NULL;
    check(!strcmp(strdbl(text, 1.5e12), "1.5e12"), "strdbl");
    check(is_infinity(fix_strtod("Infinity", &end)) && !strcmp(end, "inity"), "fix_strtod");
    check(is_negative_infinity(-an_infinity()), "is_negative_infinity");
    check(is_denormalized(0), "is_denormalized");
}

int main(void)
{
    check_dumps();
    check_numbers();
    return failures != 0;
}
