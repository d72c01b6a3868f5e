// Reading values out of a tree, and what happens when one is missing or of the wrong type.

#include "stock/pf.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "pf/node.h"
#include "pf/value.h"
#include "stock/elog.h"
#include "stock/fix_strtod.h"
#include "stock/str2epoch.h"
#include "stock/strings.h"
#include "stock/yesno.h"

namespace {

using Die = void (*)(Pf *pf, const char *address, int expected, int got, Pf **result);
using Prompt = char *(*)(const char *prompt);

Die Pfdie = _pfdie;
Prompt Pfprompt = nullptr;

// As messages name a type.
const char *type_name(int type)
{
    // clang-format off
    static constexpr const char *kNames[] = {
        "scalar", "scalar", "table", "array", "undefined", "invalid", "pf-function",
    };
    // clang-format on
    return kNames[std::clamp(type, 0, 6)];
}

bool is_table(const Pf *pf)
{
    return pf->type == PFFILE || pf->type == PFARR;
}

int64_t index_of(const char *key)
{
    return reinterpret_cast<intptr_t>(key);
}

// An address as messages name it: in a list it is an index.
class Shown {
public:
    Shown(const Pf *pf, const char *address) : text_(address)
    {
        if (pf->type != PFTBL)
            return;
        std::snprintf(index_, sizeof index_, "#%ld", static_cast<long>(index_of(address)));
        text_ = index_;
    }
    Shown(const Shown &) = delete;
    Shown &operator=(const Shown &) = delete;

    const char *text() const { return okstr(text_); }

private:
    const char *text_;
    char index_[24] = "";
};

// A placeholder that never got a value is no value.
Pf *valued(Pf *pf)
{
    return pf && pf->type != PFANY ? pf : nullptr;
}

// The node that an address leads to, its functions evaluated; null when there is none.
Pf *node_at(Pf *pf, const char *address)
{
    if (!pf)
        return nullptr;
    if (pf->type == PFARR && (!address || !*address))
        return pf;
    Pf *node = nullptr;
    if (stock::find_node(pf, address, false, &node) == PFFUNCTION)
        node = pfinterpret(node);
    return valued(node);
}

// Tells the die function of a node that is not of the expected type. Gives the node,
// or what the die function stored in its place.
Pf *node_or_die(Pf *pf, const char *address, Pf *node, int expected)
{
    if (pf && (!node || node->type != expected))
        Pfdie(pf, address, expected, node ? node->type : PFINVALID, &node);
    return node;
}

// The same, and null when even that is of another type.
Pf *expect(Pf *pf, const char *address, Pf *node, int expected)
{
    node = node_or_die(pf, address, node, expected);
    return node && node->type == expected ? node : nullptr;
}

// The text's node at an address. A missing one is the die function's business only
// when the value is required.
Pf *text_node_at(Pf *pf, const char *address, bool required)
{
    Pf *node = node_at(pf, address);
    return node || required ? expect(pf, address, node, PFSTRING) : nullptr;
}

const char *text_at(Pf *pf, const char *address, bool required)
{
    return pfexpand(text_node_at(pf, address, required));
}

// Converts the text at an address with convert(text, &end); the message complains of
// what is no number and is followed by text and address.
template <class Convert>
auto number_at(Pf *pf, const char *address, const char *message, Convert convert)
{
    const char *text = text_at(pf, address, true);
    char *end = nullptr;
    const auto number = text ? convert(text, &end) : 0;
    if (text && (end == text || (*end && !whitespace(end)))) {
        // NOLINTNEXTLINE(clang-diagnostic-format-nonliteral): two literals of this file
        elog_complain(0, message, text, Shown(pf, address).text());
    }
    return number;
}

// strtol in any base that the text names. Nearly all are plain decimal numbers, which
// need none of its care.
long integer(const char *text, char **end)
{
    constexpr std::size_t kDigits = std::numeric_limits<long>::digits10;
    long number = 0;
    const char *at = text;
    if (*text != '0')
        for (; *at >= '0' && *at <= '9' && at < text + kDigits; ++at)
            number = 10 * number + (*at - '0');
    if (at == text || *at)
        return std::strtol(text, end, 0);
    *end = const_cast<char *>(at);
    return number;
}

// The node itself, or what a function gave when it was evaluated last.
const Pf *last_result(const Pf *node)
{
    return node && node->type == PFFUNCTION ? node->value.pffunct->result : node;
}

// The container of the expected type at an address; null for a missing one.
Pf *container_at(Pf *pf, const char *address, int expected)
{
    Pf *node = node_at(pf, address);
    if (node && node->type == PFFILE && expected == PFARR)
        return node;
    return node ? expect(pf, address, node, expected) : nullptr;
}

}  // namespace

namespace stock {

Pf *direct_child(Pf *pf, const char *key)
{
    switch (pf->type) {
    case PFFILE:
    case PFARR: return static_cast<Pf *>(getarr(pf->value.arr, key));
    case PFTBL: return static_cast<Pf *>(gettbl(pf->value.tbl, index_of(key)));
    default: return pf;
    }
}

Prompt prompt_function()
{
    return Pfprompt;
}

}  // namespace stock

int pfget(Pf *pf, const char *key, void **value)
{
    void *unwanted = nullptr;
    if (!value)
        value = &unwanted;
    *value = nullptr;
    if (!pf)
        return PFINVALID;
    if (!is_table(pf) && pf->type != PFTBL && pf->type != PFSTRING && pf->type != PFFUNCTION) {
        elog_complain(0, "*stack* unrecognized pf type %d in pfget", pf->type);
        return PFINVALID;
    }
    Pf *node = valued(stock::direct_child(pf, key));
    if (node && node->type == PFFUNCTION)
        node = pfinterpret(node);
    if (!node)
        return PFINVALID;
    *value = node->type == PFSTRING ? static_cast<void *>(pfexpand(node)) : node;
    return node->type;
}

int pfeval(Pf *pf, const char *address, char **value)
{
    char *unwanted = nullptr;
    if (!value)
        value = &unwanted;
    *value = nullptr;
    Pf *node = node_at(pf, address);
    if (!node || (node->type != PFSTRING && node->type != PFFILE))
        return -1;
    *value = pfexpand(node);
    return 0;
}

void _pfeval(Pf *pf, const char *address, Pf **node, int expected)
{
    Pf *unwanted = nullptr;
    if (!node)
        node = &unwanted;
    *node = node_at(pf, address);
    if (expected != PFANY)
        *node = node_or_die(pf, address, *node, expected);
}

char *pfget_string(Pf *pf, const char *address)
{
    return const_cast<char *>(text_at(pf, address, false));
}

double pfget_double(Pf *pf, const char *address)
{
    return number_at(pf, address, "Bad floating point value '%s' for %s", fix_strtod);
}

long pfget_int(Pf *pf, const char *address)
{
    return number_at(pf, address, "Bad integer value '%s' for %s", integer);
}

double pfget_time(Pf *pf, const char *address)
{
    const char *text = text_at(pf, address, true);
    double time = 0;
    if (text && !is_epoch_string(text, &time))
        elog_complain(0, "Bad time value '%s' for %s", text, Shown(pf, address).text());
    return time;
}

int pfget_boolean(Pf *pf, const char *address)
{
    Pf *node = text_node_at(pf, address, false);
    if (!node || !node->value.s)
        return 0;
    // Most say yes or no as they stand, and then refer to nothing.
    if (const int answer = yesno(node->value.s); answer != 1)
        return answer;
    const char *text = pfexpand(node);
    if (const int answer = yesno(text); answer != 1)
        return answer;
    elog_complain(0, "Bad boolean value '%s' for %s", text, Shown(pf, address).text());
    return 0;
}

double pfget_size(Pf *pf, const char *address)
{
    const char *text = text_at(pf, address, true);
    return text ? sz2dbl(text) : 0;
}

Tbl *pfget_tbl(Pf *pf, const char *address)
{
    Pf *list = container_at(pf, address, PFTBL);
    if (!list)
        return nullptr;
    Tbl *values = newtbl(0);
    for (int64_t i = 0; i < list->value.tbl->count; ++i) {
        void *value = nullptr;
        pfget(list, pfindex(i), &value);
        pushtbl(values, value);
    }
    return values;
}

Arr *pfget_arr(Pf *pf, const char *address)
{
    Pf *table = container_at(pf, address, PFARR);
    if (!table)
        return nullptr;
    Arr *values = newarr(nullptr);
    Tbl *keys = keysarr(table->value.arr);
    // Reading a value that refers to others reads them again and frees what they gave
    // before: the texts are taken when nothing more is read.
    for (int64_t i = 0; i < keys->count; ++i)
        pfget(table, static_cast<const char *>(gettbl(keys, i)), nullptr);
    for (int64_t i = 0; i < keys->count; ++i) {
        const auto *key = static_cast<const char *>(gettbl(keys, i));
        const Pf *node = last_result(stock::direct_child(table, key));
        if (node && node->type == PFSTRING)
            setarr(values, key, stock::last_expanded(node));
    }
    freetbl(keys, nullptr);
    return values;
}

long pfmaxtbl(const Pf *pf)
{
    return pf && pf->type == PFTBL ? static_cast<long>(pf->value.tbl->count) : 0;
}

Tbl *pfkeys(const Pf *pf)
{
    return pf && is_table(pf) ? keysarr(pf->value.arr) : nullptr;
}

void pfprint(const char *name, const char *address)
{
    Pf *pf = nullptr;
    if (pfread(name, &pf) != 0)
        elog_complain(1, "Can't read parameter file %s", okstr(name));
    else if (const char *text = pfget_string(pf, address))
        std::puts(text);
    else
        elog_complain(0, "no entry '%s' in parameter file %s", okstr(address), okstr(name));
    pffree(pf);
}

int pfconfig(const char *code, void *function)
{
    if (nstrcmp(code, "ask") == 0) {
        Pfprompt = reinterpret_cast<Prompt>(function);
    } else if (nstrcmp(code, "die") == 0) {
        Pfdie = function ? reinterpret_cast<Die>(function) : _pfdie;
    } else {
        elog_log(0, "pfconfig: unrecognized code '%s'", okstr(code));
        return -1;
    }
    return 0;
}

// Meant: a value of the wrong type in a list ends nothing; a missing one does.
void _pfdie(Pf *pf, const char *address, int expected, int got, Pf **)
{
    if (!pf)
        return;
    const char *file = pf->filename ? pf->filename : "";
    switch (pf->type) {
    case PFFILE:
    case PFSTRING:
    case PFARR:
    case PFFUNCTION:
        if (got == PFINVALID)
            elog_die(0, "program needs value for '%s', not found in parameter file '%s'",
                     okstr(address), file);
        elog_die(0, "wrong parameter type for '%s' : expected %s but got %s in '%s'",
                 okstr(address), type_name(expected), type_name(got), file);
    case PFTBL:
        if (got == PFINVALID)
            elog_die(0, "wrong parameter type for #%ld : expected %s but got %s in '%s'",
                     static_cast<long>(index_of(address)), type_name(expected), type_name(got),
                     file);
        break;
    default: break;
    }
}

double sz2dbl(const char *text)
{
    // clang-format off
    static constexpr struct {
        char suffix;
        double factor;
    } kFactors[] = {{'G', 1e9}, {'M', 1e6}, {'k', 1000}, {'m', 0.001}, {'u', 1e-6}};
    // clang-format on
    if (!text || !*text)
        return 0;
    // The number ends before any of the suffixes by itself: none is part of one.
    char *end = nullptr;
    const double number = fix_strtod(text, &end);
    const char last = text[std::strlen(text) - 1];
    for (const auto &row : kFactors)
        if (row.suffix == last)
            return number * row.factor;
    return number;
}
