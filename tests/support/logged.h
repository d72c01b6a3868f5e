// The messages on the stack as text.

#pragma once

#include <string>

#include "stock.h"

// The waiting messages without their tags, each followed by its line of the
// system's reason where it has one; the stack is empty then.
inline std::string take_log()
{
    std::string text;
    const Tbl *messages = nullptr;
    elog_query(ELOG_TBL, 0, &messages);
    for (int64_t i = 0; messages && i < messages->count; ++i) {
        const auto *message = static_cast<const Elog_msg *>(gettbl(messages, i));
        text += message->msg;
        if (message->sys)
            text += std::string("\t") + message->sys + "\n";
    }
    elog_clear();
    return text;
}

// The same for the messages that the body logs.
template <class Body>
std::string logged(Body body)
{
    elog_clear();
    body();
    return take_log();
}
