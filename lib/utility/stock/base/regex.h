// A POSIX extended regular expression, compiled for one scope.

#pragma once

#include <cstddef>
#include <cstring>

#include <regex.h>

namespace stock {

class Regex {
public:
    explicit Regex(const char *pattern) noexcept
        : status_(regcomp(&compiled_, pattern, REG_EXTENDED))
    {
    }
    ~Regex()
    {
        if (ok())
            regfree(&compiled_);
    }
    Regex(const Regex &) = delete;
    Regex &operator=(const Regex &) = delete;

    bool ok() const noexcept { return status_ == 0; }

    // Writes why the pattern did not compile.
    void error(char *text, std::size_t size) const { regerror(status_, &compiled_, text, size); }

    // Finds the first match in the text. False when there is none or the pattern is not ok.
    bool find(const char *text, regoff_t &start, regoff_t &end) const
    {
        regmatch_t match[10];
        if (!ok() || regexec(&compiled_, text, 10, match, 0) != 0)
            return false;
        start = match[0].rm_so;
        end = match[0].rm_eo;
        return true;
    }

    // Whether the first match is the whole text.
    bool matches(const char *text) const
    {
        regoff_t start = 0;
        regoff_t end = 0;
        return find(text, start, end) && start == 0 &&
               static_cast<std::size_t>(end) == std::strlen(text);
    }

private:
    regex_t compiled_{};
    int status_;
};

}  // namespace stock
