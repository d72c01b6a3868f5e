// Where the values of a parameter file come from, and where their references lead.

#include "pf_origin.h"

#include <algorithm>
#include <cctype>

#include "pf_tool.h"

namespace {

constexpr std::string_view kBlanks = " \t\n";

std::string trimmed(std::string_view text)
{
    text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
    return std::string(text.substr(std::min(text.find_first_not_of(kBlanks), text.size())));
}

// The last file that says something of a key of the top level decides.
Place find_top(const Sources &sources, const std::string &key)
{
    for (auto source = sources.rbegin(); source != sources.rend(); ++source)
        if (const Entry *entry = last_of(source->top, key))
            return entry->kind == Entry::Kind::undef ? Place{} : Place{&*source, entry, {}};
    return {};
}

bool is_text(const Entry *entry)
{
    return entry && !entry->is_container();
}

bool is_name_char(char c)
{
    return isalnum(static_cast<unsigned char>(c)) || c == '_';
}

}  // namespace

Place find_place(const Sources &sources, const std::vector<Step> &steps)
{
    if (steps[0].index >= 0)
        return {};
    Place place = find_top(sources, steps[0].key);
    for (size_t i = 1; place.entry && i < steps.size(); ++i) {
        place.around.push_back(place.entry);
        place.entry = take_step(*place.entry, steps[i]);
    }
    return place;
}

Place find_reference(const Sources &sources, const Place &from, const std::string &name)
{
    for (size_t depth = from.around.size(); depth > 0; --depth) {
        const Entry &table = *from.around[depth - 1];
        if (table.kind != Entry::Kind::table)
            continue;
        if (const Entry *entry = find_key(table, name); is_text(entry)) {
            const auto end = from.around.begin() + static_cast<std::ptrdiff_t>(depth);
            return {from.source, entry, {from.around.begin(), end}};
        }
    }
    Place top = find_top(sources, name);
    return is_text(top.entry) ? top : Place{};
}

std::vector<Reference> references_in(std::string_view text)
{
    std::vector<Reference> found;
    size_t at = 0;
    while ((at = text.find('&', at)) < text.size()) {
        const bool braced = text.substr(at + 1, 1) == "{";
        const size_t begin = at + (braced ? 2 : 1);
        size_t end = begin;
        while (end < text.size() && (braced ? text[end] != '}' : is_name_char(text[end])))
            ++end;
        const size_t next = std::min(end + (braced ? 1 : 0), text.size());
        if (end > begin && text.substr(next, 1) != "(")
            found.push_back({std::string(text.substr(begin, end - begin)),
                             std::string(text.substr(at, next - at)), at});
        at = next;
    }
    return found;
}

namespace {

constexpr size_t kMaxText = 1'000'000;  // of which no name of a file and no address is

std::optional<std::string> expanded(const Sources &sources, const Place &from, int depth)
{
    std::string text = from.entry->text;
    const std::vector<Reference> references = references_in(text);
    for (auto reference = references.rbegin(); reference != references.rend(); ++reference) {
        const Place to = find_reference(sources, from, reference->name);
        if (!to.entry)
            continue;
        if (depth == kMaxReferences || to.entry->kind == Entry::Kind::function)
            return {};
        const auto value = expanded(sources, to, depth + 1);
        if (!value || text.size() + value->size() > kMaxText)
            return {};
        text.replace(reference->at, reference->written.size(), *value);
    }
    return text;
}

}  // namespace

std::optional<std::string> expanded(const Sources &sources, const Place &from)
{
    return expanded(sources, from, 0);
}

std::string argument_of(std::string_view function, std::string_view prefix)
{
    if (function.substr(0, prefix.size()) != prefix)
        return {};
    const size_t close = function.rfind(')');
    return std::string(function.substr(prefix.size(), close - prefix.size()));
}

std::pair<std::string, std::string> split_argument(std::string_view argument)
{
    const size_t comma = std::min(argument.find(','), argument.size());
    return {trimmed(argument.substr(0, comma)),
            trimmed(argument.substr(std::min(comma + 1, argument.size())))};
}

Sources read_sources(const char *name)
{
    Sources sources;
    for (const std::string &file : files_of(name))
        if (auto source = read_source(file, OnError::stop))
            sources.push_back(std::move(*source));
    return sources;
}

std::string file_and_line(const Source &source, size_t place)
{
    return source.file + ":" + std::to_string(source.line_of(place));
}
