// stock tbl: prints the list that a file holds.
//
// readtbl maps the file and checks it. The bytes to print are then read from the file and not
// from the mapping: if the file were cut short meanwhile, reading the mapping would raise
// SIGBUS and end the process.

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>

#include <unistd.h>

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
    "Exit status: 0, 1 when FILE cannot be read, is no list file or is cut short while it\n"
    "is printed, 2 on wrong usage.\n";

struct CloseTbl {
    void operator()(Tbl *tbl) const { freetbl(tbl, nullptr); }
};

// Reads n bytes from the place in the file that is mapped at the address. Returns fewer bytes if
// the file ends before.
std::string read_bytes(const Tbl *tbl, const void *address, size_t n)
{
    const off_t start = static_cast<const char *>(address) - static_cast<char *>(tbl->mapaddr);
    std::string bytes(n, '\0');
    size_t done = 0;
    while (done < n) {
        const ssize_t got =
            pread(tbl->fd, &bytes[done], n - done, start + static_cast<off_t>(done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        done += static_cast<size_t>(got);
    }
    bytes.resize(done);
    return bytes;
}

// The following functions return false if the file no longer has what they were to print.

bool print_comment(const Tbl *tbl, const char *comment)
{
    printf("%-16s ", "comment");
    std::string text = comment ? "" : "-";
    // In pieces, up to the zero byte: the length of the comment is not known.
    for (bool more = comment != nullptr; more;) {
        const std::string chunk = read_bytes(tbl, comment + text.size(), 256);
        const size_t end = std::min(chunk.find('\0'), chunk.size());
        text.append(chunk, 0, end);
        if (chunk.empty())
            return false;
        more = end == chunk.size();
    }
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        putchar(byte < ' ' || byte == 127 ? '_' : byte);
    }
    putchar('\n');
    return true;
}

bool print_record(const Tbl *tbl, const void *record)
{
    const std::string bytes = read_bytes(tbl, record, static_cast<size_t>(tbl->size));
    hexdump(stdout, bytes.data(), static_cast<int>(bytes.size()));
    return bytes.size() == static_cast<size_t>(tbl->size);
}

void print_count(const char *what, int64_t n)
{
    printf("%-16s %ld\n", what, static_cast<long>(n));
}

bool print_fields(const Tbl *tbl, const char *comment)
{
    if (!print_comment(tbl, comment))
        return false;
    print_count("records", tbl->count);
    print_count("record size", tbl->size);
    print_count("slots", tbl->nalloc - tbl->left);
    print_count("free in front", -tbl->left);
    print_count("free behind", tbl->nalloc - tbl->count);
    print_count("front grows by", tbl->left_grow);
    print_count("back grows by", tbl->right_grow);
    puts(tbl->null_value ? "null value" : "null value       -");
    return !tbl->null_value || print_record(tbl, tbl->null_value);
}

bool print_records(const Tbl *tbl)
{
    bool whole = true;
    for (int64_t i = 0; whole && i < tbl->count && !ferror(stdout); ++i) {
        printf("record %ld\n", static_cast<long>(i));
        whole = print_record(tbl, addrtbl(tbl, i));
    }
    return whole;
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
    if (print_fields(tbl.get(), comment) && print_records(tbl.get()))
        return kDone;
    elog_complain(0, "stock tbl: '%s' was cut short while it was read", argv[1]);
    return kFailed;
}
