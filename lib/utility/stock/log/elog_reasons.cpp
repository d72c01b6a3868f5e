// Noting what one thread logs.
//
// A message on the stack is known by the address of its text, which is its own for as long
// as it is there; whoever frees one says so before. So exactly what was noted can be taken
// back, however the stack has changed, and a repetition is taken off its count.

#include "log/reasons.h"

#include <cstdlib>
#include <cstring>

#include "base/thread.h"
#include "log/fault.h"
#include "log/log.h"
#include "stock/pushstr.h"

namespace stock {

namespace {

struct Noted {
    Elog_msg msg;      // a copy; count is how often this thread logged it in a row
    const char *kept;  // the text of the message on the stack, or null
};

Reasons *Newest = nullptr;  // under the log's lock

void free_noted(void *entry)
{
    elog_free_msg(&static_cast<Noted *>(entry)->msg);
}

Noted *noted_at(const Tbl *noted, std::int64_t i)
{
    return static_cast<Noted *>(gettbl(noted, i));
}

char *copy_or_null(const char *text)
{
    return text ? copy_text(text, "reason", "elog") : nullptr;
}

void note(Tbl *noted, const Elog_msg &msg, const char *kept)
{
    Noted *last = noted->count ? noted_at(noted, noted->count - 1) : nullptr;
    if (last && last->kept == kept && std::strcmp(last->msg.msg, msg.msg) == 0) {
        ++last->msg.count;
        return;
    }
    Noted fresh{msg, kept};
    fresh.msg.tag = copy_or_null(msg.tag);
    fresh.msg.msg = copy_or_null(msg.msg);
    fresh.msg.sys = copy_or_null(msg.sys);
    fresh.msg.count = 1;
    pushtbl(noted, &fresh);
}

// Takes the message off the stack, or off the count of the one that stands for it.
void take_off(const Noted &noted)
{
    for (std::int64_t i = logging::Elog_tbl->count - 1; noted.kept && i >= 0; --i) {
        auto *msg = static_cast<Elog_msg *>(gettbl(logging::Elog_tbl, i));
        if (msg->msg != noted.kept)
            continue;
        msg->count -= noted.msg.count;
        if (msg->count > 0)
            return;
        logging::cut_stack(i, i + 1);
        return;
    }
}

}  // namespace

struct ReasonsOfAll {
    static Reasons *of_this_thread()
    {
        Reasons *reasons = Newest;
        while (reasons && reasons->thread_ != thread_number())
            reasons = reasons->next_;
        return reasons;
    }
    static void note(Reasons *reasons, const Elog_msg &msg, const char *kept)
    {
        stock::note(reasons->noted_, msg, kept);
    }
    static void forget(const char *kept)
    {
        for (Reasons *reasons = Newest; reasons; reasons = reasons->next_)
            for (std::int64_t i = 0; i < reasons->noted_->count; ++i)
                if (Noted *noted = noted_at(reasons->noted_, i); noted->kept == kept)
                    noted->kept = nullptr;
    }
};

Reasons::Reasons()
    : thread_(thread_number()), noted_(inittbl(0, 1, 1, nullptr, static_cast<int>(sizeof(Noted))))
{
    const logging::Holding hold(logging::Lock);
    next_ = Newest;
    Newest = this;
}

Reasons::~Reasons()
{
    const logging::Holding hold(logging::Lock);
    Reasons **link = &Newest;
    while (*link != this)
        link = &(*link)->next_;
    *link = next_;
    freetbl(noted_, free_noted);
}

Owned<char> Reasons::take()
{
    const logging::Holding hold(logging::Lock);
    void *text = nullptr;
    pushstr(&text, "");
    for (std::int64_t i = 0; i < noted_->count; ++i) {
        const Noted &noted = *noted_at(noted_, i);
        logging::lay_out(noted.msg, "\t", [&](std::string_view piece) {
            pushstrn(&text, piece.data(), static_cast<std::int64_t>(piece.size()));
        });
        take_off(noted);
    }
    trunctbl(noted_, 0, free_noted);
    return Owned<char>(popstr(&text, 1));
}

}  // namespace stock

namespace stock::logging {

bool wants_reasons()
{
    return Newest && !crashing() && ReasonsOfAll::of_this_thread();
}

void note_reason(const Elog_msg &msg, const char *kept)
{
    if (wants_reasons() && msg.msg)
        ReasonsOfAll::note(ReasonsOfAll::of_this_thread(), msg, kept);
}

void forget_reason(const Elog_msg &msg)
{
    if (Newest && msg.msg)
        ReasonsOfAll::forget(msg.msg);
}

}  // namespace stock::logging
