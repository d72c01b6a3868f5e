// strmatches and strcontains: regular expressions that are compiled once and kept in a hook.
//
// Both functions find the first match and tell different things of it. A call without a hook
// makes one for itself and frees it again.

#include "stock/strmatches.h"

#include <cstdlib>
#include <cstring>

#include <regex.h>

#include "base/alloc.h"
#include "stock/elog.h"
#include "stock/strings.h"

namespace {

// The private data of a hook of these functions.
struct Match_cache {
    char *pattern;  // owned; null when the first call had none
    regex_t compiled;
    bool usable;  // the pattern did compile
};

void free_cache(void *pvt)
{
    auto *cache = static_cast<Match_cache *>(pvt);
    std::free(cache->pattern);
    if (cache->usable)
        regfree(&cache->compiled);
    std::free(cache);
}

Match_cache *new_cache(const char *pattern, const char *function)
{
    auto *cache =
        static_cast<Match_cache *>(stock::allocate_zeroed(sizeof(Match_cache), "pvt", function));
    cache->pattern = pattern ? stock::copy_text(pattern, "pvt", function) : nullptr;
    return cache;
}

// Compiles the pattern, or logs why that fails.
void compile(Match_cache *cache)
{
    char reason[128] = "there is no pattern";
    int error = REG_BADPAT;
    if (cache->pattern) {
        error = regcomp(&cache->compiled, cache->pattern, REG_EXTENDED);
        if (error)
            regerror(error, &cache->compiled, reason, sizeof reason);
    }
    if (error)
        elog_log(0, "'%s' did not compile: %s", okstr(cache->pattern), reason);
    cache->usable = error == 0;
}

// 1 with the first match, else 0.
int first_match(const char *string, const Match_cache *cache, regmatch_t &first)
{
    regmatch_t match[10];
    if (!string || regexec(&cache->compiled, string, 10, match, 0) != 0)
        return 0;
    first = match[0];
    return 1;
}

// What both functions give: 1 with the first match, 0 without one, -2 in the call whose
// pattern does not compile, -1 in later calls with its hook.
int find(const char *string, const char *pattern, Hook **hook, regmatch_t &first,
         const char *function)
{
    if (!hook) {
        Hook *once = nullptr;
        const int result = find(string, pattern, &once, first, function);
        free_hook(&once);
        return result;
    }
    const bool fresh = !*hook;
    if (fresh) {
        *hook = new_hook(free_cache);
        (*hook)->pvt = new_cache(pattern, function);
        compile(static_cast<Match_cache *>((*hook)->pvt));
    }
    const auto *cache = static_cast<const Match_cache *>((*hook)->pvt);
    if (!cache || !cache->usable)
        return fresh ? -2 : -1;
    return first_match(string, cache, first);
}

}  // namespace

int strmatches(const char *string, const char *pattern, Hook **hook)
{
    regmatch_t first{};
    const int result = find(string, pattern, hook, first, "strmatches");
    if (result != 1)
        return result;
    return first.rm_so == 0 && string[first.rm_eo] == 0;
}

int strcontains(const char *string, const char *pattern, Hook **hook, int *start, int *length)
{
    regmatch_t first{};
    const int result = find(string, pattern, hook, first, "strcontains");
    if (start)
        *start = static_cast<int>(first.rm_so);
    if (length)
        *length = static_cast<int>(first.rm_eo - first.rm_so);
    return result;
}
