// Where the values of a parameter file come from, and where their references lead.
//
// The files of a name are kept apart, as Sources: the last one that has a key of the top
// level gives it its value, and a reference is looked up from the value outwards.

#include "pf_origin.h"

#include <algorithm>

#include "base/ascii.h"
#include "pf_tool.h"
#include "text/references.h"

namespace {

// The value of a key of the top level: what the last file that has the key gives it.
PlacedValue find_top(const Sources &sources, const std::string &key)
{
    for (auto source = sources.rbegin(); source != sources.rend(); ++source)
        if (const SourceEntry *entry = last_of(source->top, key))
            return entry->kind == SourceEntry::Kind::undef ? PlacedValue{}
                                                           : PlacedValue{&*source, entry, {}};
    return {};
}

bool is_text(const SourceEntry *entry)
{
    return entry && !entry->is_container();
}

bool is_name_character(char c)
{
    return stock::is_letter_or_digit(c) || c == '_';
}

}  // namespace

PlacedValue find_place(const Sources &sources, const std::vector<Step> &steps)
{
    if (steps[0].index >= 0)
        return {};
    PlacedValue place = find_top(sources, steps[0].key);
    for (size_t i = 1; place.entry && i < steps.size(); ++i) {
        place.around.push_back(place.entry);
        place.entry = take_step(*place.entry, steps[i]);
    }
    return place;
}

PlacedValue find_reference(const Sources &sources, const PlacedValue &from, const std::string &name)
{
    for (size_t depth = from.around.size(); depth > 0; --depth) {
        const SourceEntry &table = *from.around[depth - 1];
        if (table.kind != SourceEntry::Kind::table)
            continue;
        if (const SourceEntry *entry = find_key(table, name); is_text(entry)) {
            const auto end = from.around.begin() + static_cast<std::ptrdiff_t>(depth);
            return {from.source, entry, {from.around.begin(), end}};
        }
    }
    PlacedValue top = find_top(sources, name);
    return is_text(top.entry) ? top : PlacedValue{};
}

std::vector<WrittenReference> references_in(std::string_view text)
{
    std::vector<WrittenReference> found;
    size_t at = 0;
    while ((at = text.find('&', at)) < text.size()) {
        const stock::Reference read = stock::reference_at(text.substr(at), is_name_character);
        if (!read.name.empty() && !read.rest.starts_with('('))  // "&name(" is a function
            found.push_back({std::string(read.name), std::string(read.text), at});
        at += read.text.size();
    }
    return found;
}

namespace {

// No name of a file and no address is as long: references that name each other many times
// would fill the memory.
constexpr size_t kMaxExpandedBytes = 1'000'000;

// `depth` references lead to this value.
std::optional<std::string> expanded(const Sources &sources, const PlacedValue &from, int depth)
{
    std::string text = from.entry->text;
    const std::vector<WrittenReference> references = references_in(text);
    for (auto reference = references.rbegin(); reference != references.rend(); ++reference) {
        const PlacedValue to = find_reference(sources, from, reference->name);
        if (!to.entry)
            continue;
        if (depth == kMaxReferences || to.entry->kind == SourceEntry::Kind::function)
            return {};
        const auto value = expanded(sources, to, depth + 1);
        if (!value || text.size() + value->size() > kMaxExpandedBytes)
            return {};
        text.replace(reference->at, reference->written.size(), *value);
    }
    return text;
}

}  // namespace

std::optional<std::string> expanded(const Sources &sources, const PlacedValue &from)
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
    const auto trimmed = [](std::string_view text) {
        return std::string(stock::trimmed(text, stock::is_white));
    };
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

std::string file_and_line(const SourceText &source, size_t place)
{
    return source.file + ":" + std::to_string(source.line_of(place));
}
