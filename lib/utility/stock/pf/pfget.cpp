// Reading values out of a tree, and the die function, which hears of a value that is missing
// or of the wrong type.
//
// node_at finds the node at an address and evaluates it; expect adds the type that the caller
// needs. A list is addressed by an index, which a pointer carries (pfindex).

#include "stock/pf.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "arrays/node.h"
#include "base/alloc.h"
#include "base/ascii.h"
#include "base/fixed_text.h"
#include "pf/node.h"
#include "pf/pf_state.h"
#include "stock/elog.h"
#include "stock/fix_strtod.h"
#include "stock/str2epoch.h"
#include "stock/strings.h"
#include "stock/yesno.h"

namespace {

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

// Complains of a text that is no value of its type; the message takes the text and the
// address, or the index of an element.
void complain_of(const char *message, const char *text, const Pf *pf, const char *address)
{
    stock::FixedTextOf<24> index;
    if (pf->type == PFTBL) {
        index.add('#');
        index.number(stock::index_of(address));
        address = index.c_str();
    }
    // NOLINTNEXTLINE(clang-diagnostic-format-nonliteral): all are literals of this file
    elog_complain(0, message, text, okstr(address));
}

// The node at an address, or what it evaluates to when it is a function. Null when there is
// none, or only a placeholder.
Pf *node_at(Pf *pf, const char *address)
{
    if (!pf)
        return nullptr;
    if (pf->type == PFARR && (!address || !*address))
        return pf;
    Pf *node = nullptr;
    if (stock::find_node(pf, address, false, &node) == PFFUNCTION)
        node = pfinterpret(node);
    return node && node->type != PFANY ? node : nullptr;
}

// Calls the die function when the node is not of the expected type. Returns the node, or what
// the die function stored in its place.
Pf *checked(Pf *pf, const char *address, Pf *node, int expected)
{
    if (pf && (!node || node->type != expected)) {
        const auto die = stock::Program_functions.die;
        (die ? die : _pfdie)(pf, address, expected, node ? node->type : PFINVALID, &node);
    }
    return node;
}

enum class Missing { allowed, fatal };

// The node of the expected type at an address, else null. The die function hears of a node of
// another type, and of a missing one unless that is allowed.
Pf *expect(Pf *pf, const char *address, int expected, Missing missing)
{
    Pf *node = node_at(pf, address);
    if (!node && missing == Missing::allowed)
        return nullptr;
    if (node && node->type == PFFILE && expected == PFARR)
        return node;
    node = checked(pf, address, node, expected);
    return node && node->type == expected ? node : nullptr;
}

const char *text_at(Pf *pf, const char *address, Missing missing)
{
    return pfexpand(expect(pf, address, PFSTRING, missing));
}

// Converts the text at an address with convert(text, &end). Complains with the message when
// more than a number and blanks behind it stands there.
template <class Convert>
auto number_at(Pf *pf, const char *address, const char *message, Convert convert)
{
    const char *text = text_at(pf, address, Missing::fatal);
    char *end = nullptr;
    const auto number = text ? convert(text, &end) : 0;
    if (text && (end == text || (*end && !whitespace(end))))
        complain_of(message, text, pf, address);
    return number;
}

// strtol with base 0. Nearly all texts are plain decimal numbers, which are read here at once.
long integer(const char *text, char **end)
{
    constexpr std::size_t kDigits = std::numeric_limits<long>::digits10;
    long number = 0;
    const char *at = text;
    if (*text != '0')
        for (; stock::is_digit(*at) && at < text + kDigits; ++at)
            number = 10 * number + (*at - '0');
    if (at == text || *at)
        return std::strtol(text, end, 0);
    *end = const_cast<char *>(at);
    return number;
}

}  // namespace

int pfget(Pf *pf, const char *key, void **value)
{
    void *unwanted = nullptr;
    if (!value)
        value = &unwanted;
    *value = nullptr;
    if (!pf)
        return PFINVALID;
    Pf *node = pf;
    if (stock::is_container(pf)) {
        node = stock::child_of(pf, key);
    } else if (pf->type != PFSTRING && pf->type != PFFUNCTION) {
        elog_complain(0, "*stack* unrecognized pf type %d in pfget", pf->type);
        return PFINVALID;
    }
    if (node && node->type == PFFUNCTION)
        node = pfinterpret(node);
    else if (node && node->type == PFANY)
        return PFINVALID;
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
        *node = checked(pf, address, *node, expected);
}

char *pfget_string(Pf *pf, const char *address)
{
    return const_cast<char *>(text_at(pf, address, Missing::allowed));
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
    const char *text = text_at(pf, address, Missing::fatal);
    double time = 0;
    if (text && !is_epoch_string(text, &time))
        complain_of("Bad time value '%s' for %s", text, pf, address);
    return time;
}

int pfget_boolean(Pf *pf, const char *address)
{
    Pf *node = expect(pf, address, PFSTRING, Missing::allowed);
    if (!node || !node->value.s)
        return 0;
    // Most texts are such a word as they stand and need no expansion.
    if (const int answer = yesno(node->value.s); answer != 1)
        return answer;
    const char *text = pfexpand(node);
    if (const int answer = yesno(text); answer != 1)
        return answer;
    complain_of("Bad boolean value '%s' for %s", text, pf, address);
    return 0;
}

double pfget_size(Pf *pf, const char *address)
{
    const char *text = text_at(pf, address, Missing::fatal);
    return text ? sz2dbl(text) : 0;
}

Tbl *pfget_tbl(Pf *pf, const char *address)
{
    Pf *list = expect(pf, address, PFTBL, Missing::allowed);
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
    Pf *table = expect(pf, address, PFARR, Missing::allowed);
    if (!table)
        return nullptr;
    // setarr would leave a text out when there is no memory for its key.
    const auto allocate_part = [](std::size_t bytes, const char *item) {
        return stock::allocate(bytes, item, "pfget_arr");
    };
    Arr *values = newarr(nullptr);
    Tbl *keys = keysarr(table->value.arr);
    // Reading a value that refers to others expands these again and frees the texts that they
    // had expanded to. So all are expanded first, and then all texts are taken.
    for (int64_t i = 0; i < keys->count; ++i)
        pfget(table, static_cast<const char *>(gettbl(keys, i)), nullptr);
    for (int64_t i = 0; i < keys->count; ++i) {
        const auto *key = static_cast<const char *>(gettbl(keys, i));
        const Pf *node = stock::child_of(table, key);
        if (node && node->type == PFFUNCTION)
            node = node->value.pffunct->result;
        if (node && node->type == PFSTRING)
            stock::set_text(values, key, stock::last_expanded(node), allocate_part);
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
    return pf && stock::is_table(pf) ? keysarr(pf->value.arr) : nullptr;
}

int pfconfig(const char *code, void *function)
{
    stock::ProgramFunctions &functions = stock::Program_functions;
    if (nstrcmp(code, "ask") == 0) {
        functions.ask = reinterpret_cast<decltype(functions.ask)>(function);
    } else if (nstrcmp(code, "die") == 0) {
        functions.die = reinterpret_cast<decltype(functions.die)>(function);
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
                     static_cast<long>(stock::index_of(address)), type_name(expected),
                     type_name(got), file);
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
