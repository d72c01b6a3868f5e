// What the commands of "stock pf" share: finding and reading files, and trees in JSON.
//
// A tree is written in JSON as it was read: tables are objects, lists are arrays, and texts
// and functions are strings. References are not expanded.

#include "pf_tool.h"

#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "base/ascii.h"

bool parse_file(const char *path, Pf **pf)
{
    const bool is_stdin = !strcmp(path, "-");
    const int fd = is_stdin ? STDIN_FILENO : open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        elog_complain(1, "can't open parameter file '%s'", path);
        return false;
    }
    Pffilename = is_stdin ? "standard input" : path;
    const bool parsed = pfinfd(fd, pf) == 0;
    if (!parsed)
        elog_complain(0, "can't parse parameter file '%s'", path);
    if (!is_stdin)
        close(fd);
    return parsed;
}

std::vector<std::string> files_of(const char *name)
{
    Tbl *list = pffiles(name, 0);
    std::vector<std::string> files;
    for (int64_t i = 0; i < list->count; ++i)
        files.emplace_back(static_cast<const char *>(gettbl(list, i)));
    freetbl(list, free);
    return files;
}

bool read_name(const char *name, PfPtr &tree)
{
    const std::vector<std::string> files = files_of(name);
    if (files.empty())
        elog_complain(0, "there is no parameter file '%s'\n", name);
    Pf *top = nullptr;
    bool parsed = !files.empty();
    for (const std::string &file : files)
        parsed = parse_file(file.c_str(), &top) && parsed;
    tree.reset(top);
    if (top)
        top->filename = name;
    return parsed;
}

std::vector<std::string> keys_of(const Pf *table)
{
    Tbl *list = pfkeys(table);
    std::vector<std::string> keys;
    for (int64_t i = 0; list && i < list->count; ++i)
        keys.emplace_back(static_cast<const char *>(gettbl(list, i)));
    if (list)
        freetbl(list, nullptr);
    return keys;
}

Pf *child_of(const Pf *table, const std::string &key)
{
    return static_cast<Pf *>(getarr(table->value.arr, key.c_str()));
}

std::string escaped(std::string_view text)
{
    std::string out;
    for (const char c : text) {
        char escape[8] = {c};
        if (c == '\n')
            strcpy(escape, "\\n");
        else if (c == '\t')
            strcpy(escape, "\\t");
        else if (static_cast<unsigned char>(c) < ' ' || c == 127)
            snprintf(escape, sizeof escape, "\\%03o", static_cast<unsigned>(c));
        out += escape;
    }
    return out;
}

std::string quoted(std::string_view text)
{
    return "'" + escaped(text) + "'";
}

// ---- JSON ----

namespace {

// How many bytes the first character of the text has in UTF-8; 0 when the text does not begin
// with a valid one.
size_t utf8_length(std::string_view text)
{
    const auto byte = [&](size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned first = byte(0);  // which tells the length
    const size_t length = first < 0x80   ? 1
                          : first < 0xC2 ? 0
                          : first < 0xE0 ? 2
                          : first < 0xF0 ? 3
                          : first < 0xF5 ? 4
                                         : 0;
    for (size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    const unsigned second = byte(1);
    const bool refused = (first == 0xE0 && second < 0xA0)      // written too long
                         || (first == 0xED && second > 0x9F)   // a surrogate
                         || (first == 0xF0 && second < 0x90)   // written too long
                         || (first == 0xF4 && second > 0x8F);  // behind the last character
    return refused ? 0 : length;
}

// Begins a new line, four blanks for each level.
void add_newline(std::string &out, int level)
{
    out += '\n';
    out.append(static_cast<size_t>(level) * 4, ' ');
}

// The text of a node that is no container; of a function as it was written, without the blanks
// and the newline behind it.
std::string_view text_of(const Pf *pf)
{
    const char *text = pf->type == PFFUNCTION ? pf->value.pffunct->text : pf->value.s;
    std::string_view view = text ? text : "";
    if (pf->type == PFFUNCTION)
        while (!view.empty() && stock::is_white(view.back()))
            view.remove_suffix(1);
    return view;
}

void add_json_table(std::string &out, const Pf *pf, int level)
{
    const char *separator = "";
    out += '{';
    for (const std::string &key : keys_of(pf)) {
        out += separator;
        separator = ",";
        add_newline(out, level + 1);
        add_json_string(out, key);
        out += ": ";
        add_json(out, child_of(pf, key), level + 1);
    }
    if (*separator)
        add_newline(out, level);
    out += '}';
}

void add_json_list(std::string &out, const Pf *pf, int level)
{
    out += '[';
    for (int64_t i = 0; i < pfmaxtbl(pf); ++i) {
        out += i ? "," : "";
        add_newline(out, level + 1);
        add_json(out, static_cast<Pf *>(gettbl(pf->value.tbl, i)), level + 1);
    }
    if (pfmaxtbl(pf))
        add_newline(out, level);
    out += ']';
}

}  // namespace

void add_json_string(std::string &out, std::string_view text)
{
    out += '"';
    while (!text.empty()) {
        const size_t length = utf8_length(text);
        const char c = text[0];
        char escape[8];
        if (length == 0)
            out += "\\ufffd";  // stands for a byte that is not UTF-8
        else if (c == '"' || c == '\\')
            (out += '\\') += c;
        else if (c == '\n')
            out += "\\n";
        else if (c == '\t')
            out += "\\t";
        else if (length == 1 && (c < ' ' || c == 127))
            out.append(escape, static_cast<size_t>(snprintf(escape, sizeof escape, "\\u%04x",
                                                            static_cast<unsigned>(c))));
        else
            out += text.substr(0, length);
        text.remove_prefix(length ? length : 1);
    }
    out += '"';
}

void add_json(std::string &out, const Pf *pf, int level)
{
    switch (pf->type) {
    case PFFILE:
    case PFARR: return add_json_table(out, pf, level);
    case PFTBL: return add_json_list(out, pf, level);
    default: return add_json_string(out, text_of(pf));
    }
}
