// Programs that log: their settings, and what they print.

#pragma once

#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

#include "stock/elog.h"
#include "support/child.h"
#include "support/owners.h"

// Sets "NAME=value" in this process; "NAME" unsets.
inline void set_environment(const std::string &setting)
{
    const std::size_t equals = setting.find('=');
    if (equals == std::string::npos)
        unsetenv(setting.c_str());
    else
        setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
}

// Runs the body in a child with these settings of the log and no others.
inline Ended logged(std::initializer_list<std::string> settings, const std::function<void()> &body)
{
    return in_child([&] {
        for (const char *name : {"ELOG_DELIVER", "ELOG_TAG", "ELOG_DEBUG", "ELOG_MAXMSG",
                                 "ELOG_WAIT", "ELOG_REFERENCE_TIME", "ELOG_SIGNALS", "ELOG_STACK"})
            unsetenv(name);
        for (const std::string &setting : settings)
            set_environment(setting);
        errno = 0;
        body();
    });
}

// The same with the tag of every severity empty, so that messages stand alone.
inline Ended untagged(const std::function<void()> &body)
{
    return logged({}, [&] {
        elog_set(ELOG_TAG_FIELD, -1, "");
        body();
    });
}

// The text of the stack from a mark on.
inline std::string stack_text(int mark = 0)
{
    return Text(elog_string(mark)).get();
}

// A setting of a severity.
inline std::string setting(int code, int severity)
{
    char *field = nullptr;
    return elog_query(code, severity, &field) == 0 ? field : "no such setting";
}
