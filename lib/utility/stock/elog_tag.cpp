// Tags: the codes of a template and what they stand for.

#include "stock/elog.h"

#include <algorithm>
#include <cstring>

#include <pthread.h>
#include <unistd.h>

#include "internal/elog.h"

namespace stock::logging {

namespace {

// The tag as it grows, within its buffer.
class Tagged {
public:
    Tagged(char *out, int max) : out_(out), max_(max) {}

    void add(std::string_view text)
    {
        const int room = std::max(max_ - 6 - used_, 0);
        const std::size_t length = std::min(text.size(), static_cast<std::size_t>(room));
        std::memcpy(out_ + used_, text.data(), length);
        used_ += static_cast<int>(length);
    }
    void addf(const char *format, ...) STOCK_PRINTF(2, 3);

    bool full() const { return used_ > max_ - 100; }

    void end(bool cut)
    {
        constexpr std::string_view ending = " *...";
        if (cut && used_ < max_ - 5) {
            std::memcpy(out_ + used_, ending.data(), ending.size());
            used_ += static_cast<int>(ending.size());
        }
        out_[used_] = '\0';
    }

private:
    char *out_;
    int max_;
    int used_ = 0;
};

void Tagged::addf(const char *format, ...)
{
    char text[65];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    add(text);
}

void code(Tagged &tag, char letter, int severity)
{
    switch (letter) {
    case 'P': tag.add(Program_Name); break;
    case 'p': tag.addf("%d", static_cast<int>(getpid())); break;
    case 'T': tag.addf("%lu", static_cast<unsigned long>(pthread_self())); break;
    case 's': tag.add(is_severity(severity) ? severity_name[severity] : "<BAD>"); break;
    default: tag.add({&letter, 1}); break;
    }
}

}  // namespace

}  // namespace stock::logging

using namespace stock::logging;

void elog_expand(const char *text, int severity, char *out, int max)
{
    Tagged tag(out, max);
    bool cut = false;
    for (const char *at = text; *at && !cut; ++at) {
        if (*at == '%' && at[1])
            code(tag, *++at, severity);
        else
            tag.add({at, 1});
        cut = tag.full();
    }
    tag.end(cut);
}
