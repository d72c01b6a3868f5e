// stock dump and stock undump: print the bytes of a file as text, and turn that text back into
// bytes.
//
// Both read their input block by block or line by line, so memory does not grow with the input.
// undump checks each line: its address must follow from the lines before, and its text must be
// that of its bytes. So a damaged dump is noticed.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/ascii.h"
#include "command.h"
#include "stock.h"

namespace {

constexpr std::size_t kBlock = 64 * 1024;  // bytes; a multiple of the 16 of a line

// Closes a stream, but not standard input.
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
    unsigned long base = 0;  // the address of the first byte
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

// Reads the options. Returns kDone, or kUsage if a word is wrong. Only dump takes --base.
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

// Opens the file. Complains and returns null if it cannot.
Input open_input(const char *file)
{
    Input input(is_stdin(file) ? stdin : fopen(file, "re"));
    if (!input)
        elog_complain(1, "can't open '%s'", file);
    return input;
}

// The exit status at the end of the input: complains if the input ended with a read error.
int ended(const Options &options, FILE *input)
{
    if (!ferror(input))
        return kDone;
    elog_complain(1, "can't read '%s'", shown_name(options.file));
    return kFailed;
}

// Calls show(block, n) for each block of the input until the input ends or the output fails.
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
    return ended(options, input.get());
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

int undump_ascii(const Options &options)
{
    const Input input = open_input(options.file);
    if (!input)
        return kFailed;
    std::vector<unsigned char> block(kBlock);
    long total = 0;
    int column = 0;
    for (int got = kBlock; got == kBlock && !ferror(stdout); total += got) {
        got = read_asciidump_piece(input.get(), block.data(), static_cast<int>(kBlock), &column);
        fwrite(block.data(), 1, static_cast<std::size_t>(got), stdout);
    }
    // The reader also stops at an invalid escape: then the input goes on.
    if (ferror(input.get()) || ferror(stdout) || getc(input.get()) == EOF)
        return ended(options, input.get());
    elog_complain(0, "'%s' is no such dump behind the first %ld bytes", shown_name(options.file),
                  total);
    return kFailed;
}

// ---- Lines of hexadecimal ----

constexpr std::size_t kWords = 8;        // words in a line, at most
constexpr std::size_t kTextColumn = 40;  // where the text begins, counted from the first word
constexpr std::size_t kMaxAddress = 16;  // digits of an address, at most
constexpr std::size_t kFullAddress = 8;  // digits that dump prints, at least
constexpr std::string_view kGap = "  ";  // what dump prints after the address

struct DumpLine {
    unsigned long address = 0;
    std::string bytes;
    bool has_text = false;    // the line has a text that is more than blanks
    bool lacks_text = false;  // the line has no text, but its bytes would show one
};

std::string_view without_blanks_at_end(std::string_view text)
{
    while (!text.empty() && stock::is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Returns the next word and removes it, with the blanks before it, from the text.
std::string_view next_word(std::string_view &text)
{
    const auto begin = std::ranges::find_if_not(text, stock::is_blank);
    const auto end = std::find_if(begin, text.end(), stock::is_blank);
    text = {end, text.end()};
    return {begin, end};
}

// The value 0 to 15 of each hexadecimal digit, -1 for any other character.
constexpr auto kValues = [] {
    std::array<signed char, 256> values{};
    values.fill(-1);
    for (std::size_t i = 0; i < 16; ++i) {
        values[static_cast<unsigned char>("0123456789abcdef"[i])] = static_cast<signed char>(i);
        values[static_cast<unsigned char>("0123456789ABCDEF"[i])] = static_cast<signed char>(i);
    }
    return values;
}();

int value_of(char digit)
{
    return kValues[static_cast<unsigned char>(digit)];
}

// Returns false if the word is not a hexadecimal number of at most kMaxAddress digits.
bool read_address(std::string_view word, unsigned long &address)
{
    address = 0;
    for (const char digit : word) {
        if (value_of(digit) < 0)
            return false;
        address = address * 16 + static_cast<unsigned long>(value_of(digit));
    }
    return !word.empty() && word.size() <= kMaxAddress;
}

// Adds the one or two bytes that a word shows. Returns false if it is not such a word.
bool add_word(std::string &bytes, std::string_view word)
{
    if (word.size() != 2 && word.size() != 4)
        return false;
    char shown[2];
    for (std::size_t i = 0; i < word.size(); i += 2) {
        if (value_of(word[i]) < 0 || value_of(word[i + 1]) < 0)
            return false;
        shown[i / 2] = static_cast<char>(value_of(word[i]) * 16 + value_of(word[i + 1]));
    }
    bytes.append(shown, word.size() / 2);
    return true;
}

// The character for a byte in the text of a dump.
char text_of(char byte)
{
    return stock::is_printable(static_cast<unsigned char>(byte)) ? byte : '_';
}

// Whether the text is the text of the bytes. Blanks at the end are ignored.
bool is_text_of(std::string_view text, std::string_view bytes)
{
    text = without_blanks_at_end(text);
    bytes = bytes.substr(0, bytes.find_last_not_of(' ') + 1);
    return std::ranges::equal(text, bytes, {}, {}, text_of);
}

// Reads a line: an address, up to kWords words, and the text of their bytes, which may be
// missing. Returns false if the line has anything else.
bool read_line(std::string_view text, DumpLine &line)
{
    const std::string_view address = next_word(text);
    if (!read_address(address, line.address))
        return false;

    // In a line that dump printed, the text begins in its column, even if there are few words.
    // So a short text that looks like a word is not read as one.
    const bool in_columns = address.size() >= kFullAddress && text.starts_with(kGap) &&
                            text.size() > kGap.size() + kTextColumn;
    std::string_view words = in_columns ? text.substr(0, kGap.size() + kTextColumn) : text;
    line.bytes.clear();
    for (std::size_t i = 0; i < kWords; ++i) {
        std::string_view rest = words;
        if (!add_word(line.bytes, next_word(rest)))
            break;
        words = rest;
    }
    const bool only_words = without_blanks_at_end(words).empty();
    if (line.bytes.empty() || (in_columns && !only_words))
        return false;
    const std::string_view shown = in_columns   ? text.substr(kGap.size() + kTextColumn)
                                   : only_words ? std::string_view()
                                                : words.substr(1);
    line.has_text = !without_blanks_at_end(shown).empty();
    // If there are blanks in the column of the text, they are the text of blanks.
    line.lacks_text = !in_columns && !line.has_text && !is_text_of(shown, line.bytes);
    return line.lacks_text || is_text_of(shown, line.bytes);
}

enum class Taken {
    line,
    blank,
    end,
    cut  // the line is too long for a dump or contains a zero byte
};

// Reads the next line into text, without its newline and a "\r" before that. The text is valid
// until the next call.
Taken take_line(FILE *stream, std::string_view &text, bool &has_newline)
{
    static char line[HEXDUMP_MAX_LINE];
    memset(line, '\n', sizeof line);  // a zero byte after the text then shows one in the input
    if (!fgets(line, sizeof line, stream))
        return Taken::end;
    text = line;
    has_newline = text.ends_with('\n');
    const std::size_t after = text.size() + 1;
    if (!has_newline && (!feof(stream) || memchr(line + after, 0, sizeof line - after)))
        return Taken::cut;
    text.remove_suffix(has_newline);
    text.remove_suffix(text.ends_with('\r'));
    return without_blanks_at_end(text).empty() ? Taken::blank : Taken::line;
}

int damaged(const Options &options, long number, const char *what)
{
    elog_complain(0, "line %ld of '%s' %s", number, shown_name(options.file), what);
    return kFailed;
}

int undump_hex(const Options &options)
{
    const Input input = open_input(options.file);
    if (!input)
        return kFailed;
    DumpLine line;
    unsigned long next = 0;  // the address that the next line must have ...
    bool any = false;        // ... if there was a line before
    bool with_text = false;  // a line before had a text: then each line must have one
    std::string_view text;
    bool has_newline = false;
    for (long number = 1; !ferror(stdout); ++number) {
        const Taken taken = take_line(input.get(), text, has_newline);
        if (taken == Taken::end)
            break;
        if (taken == Taken::blank)
            continue;
        if (taken == Taken::cut || !read_line(text, line))
            return damaged(options, number, "is no line of a dump, or is damaged");
        if (any && line.address != next)
            return damaged(options, number, "has another address than the one that follows");
        with_text = with_text || line.has_text;
        if (line.lacks_text && (with_text || !has_newline))
            return damaged(options, number, "is cut");
        fwrite(line.bytes.data(), 1, line.bytes.size(), stdout);
        next = line.address + line.bytes.size();
        any = true;
    }
    return ended(options, input.get());
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
    "when a line is none of a dump, was damaged or cut, does not follow the one before\n"
    "or shows another text than its bytes; the bytes before are written all the same.\n";

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
    return options.ascii ? undump_ascii(options) : undump_hex(options);
}
