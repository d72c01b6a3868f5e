// stock dump and stock undump: a file as text that can be read back, and back.
//
// Both go through their input block by block; memory does not grow with it.

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "command.h"
#include "stock.h"

namespace {

constexpr std::size_t kBlock = 64 * 1024;  // whole lines of a dump

struct CloseInput {
    void operator()(FILE *stream) const
    {
        if (stream != stdin)
            fclose(stream);
    }
};
using Input = std::unique_ptr<FILE, CloseInput>;

struct Options {
    const char *file = "-";
    bool ascii = false;
    unsigned long base = 0;
};

bool is_stdin(const char *file)
{
    return !strcmp(file, "-");
}

const char *shown_name(const char *file)
{
    return is_stdin(file) ? "standard input" : file;
}

bool parse_base(const char *text, unsigned long *base)
{
    char *end = nullptr;
    errno = 0;
    *base = strtoul(text, &end, 0);
    return !errno && end != text && !*end && !strchr(text, '-');
}

// Fills in the options; gives kDone, or kUsage when a word is wrong. Only a
// command with an address column takes a base.
int parse_options(const char *command, bool takes_base, int argc, char **argv, Options *options)
{
    int i = 1;
    for (; i < argc && argv[i][0] == '-' && argv[i][1]; ++i) {
        if (!strcmp(argv[i], "--ascii")) {
            options->ascii = true;
        } else if (!strcmp(argv[i], "--")) {
            ++i;
            break;
        } else if (!takes_base || strcmp(argv[i], "--base") != 0) {
            return wrong_usage(command, "no option '%s'", argv[i]);
        } else if (++i >= argc || !parse_base(argv[i], &options->base)) {
            return wrong_usage(command, "--base needs a number");
        }
    }
    if (i + 1 < argc)
        return wrong_usage(command, "one file at a time");
    if (i < argc)
        options->file = argv[i];
    return kDone;
}

Input open_input(const char *file)
{
    Input input(is_stdin(file) ? stdin : fopen(file, "re"));
    if (!input)
        elog_complain(1, "can't open '%s'", file);
    return input;
}

// Passes the input on block by block until it ends or the output fails.
template <class Show>
int show_blocks(const Options &options, Show show)
{
    const Input input = open_input(options.file);
    if (!input)
        return kFailed;
    std::vector<char> block(kBlock);
    while (!ferror(stdout)) {
        const std::size_t got = fread(block.data(), 1, block.size(), input.get());
        if (got == 0)
            break;
        show(block.data(), static_cast<int>(got));
    }
    if (!ferror(input.get()))
        return kDone;
    elog_complain(1, "can't read '%s'", shown_name(options.file));
    return kFailed;
}

int dump_hex(const Options &options)
{
    unsigned long at = options.base;
    return show_blocks(options, [&](const char *block, int n) {
        Hexdump(stdout, at, block, n);
        at += static_cast<unsigned long>(n);
    });
}

int dump_ascii(const Options &options)
{
    int column = 0;
    return show_blocks(
        options, [&](const char *block, int n) { asciidump_piece(stdout, block, n, &column); });
}

// Writes what `read(stream, buffer, n)` reads, up to the first call that gives less than n.
template <class Read>
int write_blocks(const Options &options, Read read)
{
    const Input input = open_input(options.file);
    if (!input)
        return kFailed;
    std::vector<unsigned char> block(kBlock);
    long total = 0;
    for (int got = kBlock; got == kBlock && !ferror(stdout); total += got) {
        got = read(input.get(), block.data(), static_cast<int>(kBlock));
        fwrite(block.data(), 1, static_cast<std::size_t>(got), stdout);
    }
    if (ferror(input.get())) {
        elog_complain(1, "can't read '%s'", shown_name(options.file));
        return kFailed;
    }
    if (!ferror(stdout) && getc(input.get()) != EOF) {
        elog_complain(0, "'%s' is no such dump behind the first %ld bytes",
                      shown_name(options.file), total);
        return kFailed;
    }
    return kDone;
}

int undump_ascii(const Options &options)
{
    int column = 0;
    return write_blocks(options, [&](FILE *stream, unsigned char *block, int n) {
        return read_asciidump_piece(stream, block, n, &column);
    });
}

constexpr const char *kDumpHelp =
    "usage: stock dump [--ascii] [--base NUMBER] [FILE]\n"
    "\n"
    "Prints the bytes of a file, or of standard input, in hexadecimal and as text,\n"
    "16 a line behind their address. --base gives the address of the first byte;\n"
    "0x starts a hexadecimal number. With --ascii the bytes are printed as text in\n"
    "which those that are not printable are escaped, in lines of 80 columns.\n"
    "'stock undump' turns both back into bytes.\n";

constexpr const char *kUndumpHelp =
    "usage: stock undump [--ascii] [FILE]\n"
    "\n"
    "Turns what 'stock dump' printed back into bytes, from a file or from standard\n"
    "input; with --ascii, what 'stock dump --ascii' printed. The exit status is 1\n"
    "when the input goes on behind what is no dump any more; the bytes before are\n"
    "written all the same.\n";

}  // namespace

int cmd_dump(int argc, char **argv)
{
    if (helped(argc, argv, kDumpHelp))
        return kDone;
    Options options;
    const int status = parse_options("stock dump", true, argc, argv, &options);
    if (status != kDone)
        return status;
    return options.ascii ? dump_ascii(options) : dump_hex(options);
}

int cmd_undump(int argc, char **argv)
{
    if (helped(argc, argv, kUndumpHelp))
        return kDone;
    Options options;
    const int status = parse_options("stock undump", false, argc, argv, &options);
    if (status != kDone)
        return status;
    return options.ascii ? undump_ascii(options) : write_blocks(options, read_hexdump);
}
