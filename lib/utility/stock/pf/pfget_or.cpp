// One value of a tree with a fallback: silent when it is missing, and complained about with
// its place when it cannot be read.

#include "stock/pfwant.h"

#include <cstdlib>
#include <cstring>

#include "base/fixed_text.h"
#include "pf/want.h"
#include "stock/elog.h"

namespace {

using stock::GrowingText;
using stock::want::Problems;
using stock::want::Reading;
using stock::want::Scalar;

// The address for messages: in a list it is an index.
void add_shown_address(GrowingText &out, const Pf *pf, const char *address)
{
    if (pf->type != PFTBL)
        return out.add(address ? address : "");
    stock::FixedTextOf<32> index;
    index.add('[');
    index.number(reinterpret_cast<intptr_t>(address));
    index.add(']');
    out.add(index.view());
}

void complain(Pf *pf, const char *address, const char *text)
{
    GrowingText shown(0, "address", "pfget_or");
    add_shown_address(shown, pf, address);
    GrowingText message(0, "message", "pfget_or");
    Problems(pf).add_place(message, shown.view());
    elog_complain(0, "%s%s", message.c_str(), text);
}

// The text at an address, its function evaluated; null when there is none. What is no text
// is complained about.
const char *text_at(Pf *pf, const char *address, int kind)
{
    Pf *node = nullptr;
    if (!pf)
        return nullptr;
    pfresolve(pf, address, 0, &node);
    if (!node || node->type == PFANY || node->type == PFUNDEF)
        return nullptr;
    if (node->type == PFSTRING)
        return pfexpand(node);
    GrowingText what(0, "message", "pfget_or");
    if (node->type == PFEXEC_ERROR)
        what.add("the command failed");
    else
        what.add(node->type == PFTBL ? "is a list, not " : "is a table, not ");
    if (node->type == PFINVALID)
        return nullptr;
    if (node->type != PFEXEC_ERROR)
        what.add(stock::want::kind_noun(kind));
    complain(pf, address, what.c_str());
    return nullptr;
}

template <class Value>
Value value_or(Pf *pf, const char *address, int kind, Value fallback)
{
    const char *text = text_at(pf, address, kind);
    if (!text)
        return fallback;
    const Scalar scalar{kind};
    const Reading reading = stock::want::read_scalar(scalar, text, &fallback);
    if (reading != Reading::fine) {
        GrowingText message(0, "message", "pfget_or");
        stock::want::add_wrong(message, scalar, text, reading);
        complain(pf, address, message.c_str());
    }
    return fallback;
}

}  // namespace

long pfget_int_or(Pf *pf, const char *address, long fallback)
{
    static_assert(sizeof(long) == sizeof(int64_t) || sizeof(long) == sizeof(int));
    return value_or(pf, address, sizeof(long) == sizeof(int) ? PFWANT_INT : PFWANT_INT64, fallback);
}

double pfget_double_or(Pf *pf, const char *address, double fallback)
{
    return value_or(pf, address, PFWANT_DOUBLE, fallback);
}

int pfget_boolean_or(Pf *pf, const char *address, int fallback)
{
    return value_or(pf, address, PFWANT_BOOLEAN, fallback);
}

const char *pfget_string_or(Pf *pf, const char *address, const char *fallback)
{
    const char *text = text_at(pf, address, PFWANT_TEXT);
    return text ? text : fallback;
}

int64_t pfget_size_or(Pf *pf, const char *address, int64_t fallback)
{
    return value_or(pf, address, PFWANT_SIZE, fallback);
}

double pfget_time_or(Pf *pf, const char *address, double fallback)
{
    return value_or(pf, address, PFWANT_TIME, fallback);
}

double pfget_duration_or(Pf *pf, const char *address, double fallback)
{
    return value_or(pf, address, PFWANT_DURATION, fallback);
}
