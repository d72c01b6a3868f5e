// stock tbl: what a list file holds.

#include <memory>

#include "command.h"
#include "stock.h"

namespace {

constexpr const char *kHelp =
    "usage: stock tbl FILE\n"
    "\n"
    "Prints a list file: its comment (\"-\" when it has none, \"_\" for what cannot be\n"
    "printed), the number and size of its records, its slots, how far it will grow at\n"
    "either end when they are used up, its null value, and each record in hexadecimal\n"
    "and as text.\n"
    "\n"
    "Exit status: 0, 1 when FILE cannot be read or is no list file, 2 on wrong usage.\n";

struct CloseTbl {
    void operator()(Tbl *tbl) const { freetbl(tbl, nullptr); }
};

void print_comment(const char *comment)
{
    printf("%-16s ", "comment");
    for (const char *c = comment ? comment : "-"; *c; ++c) {
        const auto byte = static_cast<unsigned char>(*c);
        putchar(byte < ' ' || byte == 127 ? '_' : byte);
    }
    putchar('\n');
}

void print_count(const char *what, int64_t n)
{
    printf("%-16s %ld\n", what, static_cast<long>(n));
}

void print_fields(const Tbl *tbl, const char *comment)
{
    print_comment(comment);
    print_count("records", tbl->count);
    print_count("record size", tbl->size);
    print_count("slots", tbl->nalloc - tbl->left);
    print_count("free in front", -tbl->left);
    print_count("free behind", tbl->nalloc - tbl->count);
    print_count("front grows by", tbl->left_grow);
    print_count("back grows by", tbl->right_grow);
    puts(tbl->null_value ? "null value" : "null value       -");
    if (tbl->null_value)
        hexdump(stdout, tbl->null_value, tbl->size);
}

void print_records(const Tbl *tbl)
{
    for (int64_t i = 0; i < tbl->count && !ferror(stdout); ++i) {
        printf("record %ld\n", static_cast<long>(i));
        hexdump(stdout, gettbl(tbl, i), tbl->size);
    }
}

}  // namespace

int cmd_tbl(int argc, char **argv)
{
    if (helped(argc, argv, kHelp))
        return kDone;
    if (argc != 2)
        return wrong_usage("stock tbl", argc < 2 ? "which file?" : "one file at a time");
    char *comment = nullptr;
    const std::unique_ptr<Tbl, CloseTbl> tbl(readtbl(argv[1], &comment, 0));
    if (!tbl) {
        elog_complain(0, "stock tbl: can't read '%s'", argv[1]);
        return kFailed;
    }
    print_fields(tbl.get(), comment);
    print_records(tbl.get());
    return kDone;
}
