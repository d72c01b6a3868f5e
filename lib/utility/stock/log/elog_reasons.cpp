// Noting what one thread logs, so that a caller can take exactly that off the stack again.
//
// A noted message remembers the address of its text on the stack, which no other message has
// while it is there; forget_reason() is called before a message is freed. So take() finds what
// was noted however the stack has changed. A repetition is taken off the count of its message.

#include "log/reasons.h"

#include <cstring>

#include "base/growing_text.h"
#include "base/thread.h"
#include "log/fault.h"
#include "log/log.h"

namespace stock {

namespace {

using namespace stock::logging;

struct Noted {
    Elog_msg msg;          // a copy; count is how often this thread logged it in a row
    const char *on_stack;  // the text of the message on the stack, or null
};

void free_noted(void *entry)
{
    elog_free_msg(&static_cast<Noted *>(entry)->msg);
}

Noted *noted_at(const Tbl *noted, std::int64_t i)
{
    return static_cast<Noted *>(gettbl(noted, i));
}

// Notes a message, or counts it as a repetition of the one that was noted last.
void note(Tbl *noted, const Elog_msg &msg, const char *on_stack)
{
    Noted *last = noted->count ? noted_at(noted, noted->count - 1) : nullptr;
    if (last && last->on_stack == on_stack && std::strcmp(last->msg.msg, msg.msg) == 0) {
        ++last->msg.count;
        return;
    }
    Noted fresh{msg, on_stack};
    for (char **text : {&fresh.msg.tag, &fresh.msg.msg, &fresh.msg.sys})
        *text = copy_or_null(*text, "reason", "elog");
    fresh.msg.count = 1;
    pushtbl(noted, &fresh);
}

// Takes a noted message off the count of its message on the stack, and takes that one off the
// stack when its count is 0 then.
void take_off(const Noted &noted)
{
    for (std::int64_t i = The_stack.messages->count - 1; noted.on_stack && i >= 0; --i) {
        auto *msg = static_cast<Elog_msg *>(gettbl(The_stack.messages, i));
        if (msg->msg != noted.on_stack)
            continue;
        msg->count -= noted.msg.count;
        if (msg->count <= 0)
            cut_stack(i, i + 1);
        return;
    }
}

}  // namespace

// What the log calls. Its lock guards the list of all Reasons and what they noted.
struct ReasonsOfAll {
    static Reasons *of_this_thread()
    {
        Reasons *reasons = The_stack.reasons;
        while (reasons && reasons->thread_ != thread_number())
            reasons = reasons->next_;
        return reasons;
    }
    static void note(Reasons *reasons, const Elog_msg &msg, const char *on_stack)
    {
        stock::note(reasons->noted_, msg, on_stack);
    }
    static void forget(const char *text)
    {
        for (Reasons *reasons = The_stack.reasons; reasons; reasons = reasons->next_)
            for (std::int64_t i = 0; i < reasons->noted_->count; ++i)
                if (Noted *noted = noted_at(reasons->noted_, i); noted->on_stack == text)
                    noted->on_stack = nullptr;
    }
    static void keep_own()
    {
        for (Reasons **link = &The_stack.reasons; *link;) {
            if ((*link)->thread_ == thread_number())
                link = &(*link)->next_;
            else
                *link = (*link)->next_;
        }
    }
};

Reasons::Reasons()
    : thread_(thread_number()), noted_(inittbl(0, 1, 1, nullptr, static_cast<int>(sizeof(Noted))))
{
    const Holding hold(Lock);
    next_ = The_stack.reasons;
    The_stack.reasons = this;
}

Reasons::~Reasons()
{
    const Holding hold(Lock);
    Reasons **link = &The_stack.reasons;
    while (*link != this)
        link = &(*link)->next_;
    *link = next_;
    freetbl(noted_, free_noted);
}

Owned<char> Reasons::take()
{
    const Holding hold(Lock);
    GrowingText text(0, "reasons", "elog");
    for (std::int64_t i = 0; i < noted_->count; ++i) {
        const Noted &noted = *noted_at(noted_, i);
        lay_out(noted.msg, "\t", [&](std::string_view piece) { text.add(piece); });
        take_off(noted);
    }
    trunctbl(noted_, 0, free_noted);
    return Owned<char>(text.finish());
}

}  // namespace stock

namespace stock::logging {

bool wants_reasons()
{
    return The_stack.reasons && !crashing() && ReasonsOfAll::of_this_thread();
}

void note_reason(const Elog_msg &msg, const char *on_stack)
{
    if (wants_reasons() && msg.msg)
        ReasonsOfAll::note(ReasonsOfAll::of_this_thread(), msg, on_stack);
}

void keep_own_reasons()
{
    ReasonsOfAll::keep_own();
}

void forget_reason(const Elog_msg &msg)
{
    if (The_stack.reasons && msg.msg)
        ReasonsOfAll::forget(msg.msg);
}

}  // namespace stock::logging
