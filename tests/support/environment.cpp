#include "support/environment.h"

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

namespace {

// A variable stays whose name begins with one of these.
constexpr std::string_view kKept[] = {
    "TMPDIR=",       "GTEST_",        "TEST_",       "ASAN_OPTIONS=",      "UBSAN_OPTIONS=",
    "TSAN_OPTIONS=", "LSAN_OPTIONS=", "GCOV_PREFIX", "LLVM_PROFILE_FILE=", "LD_LIBRARY_PATH=",
};

bool kept(std::string_view setting)
{
    for (const std::string_view name : kKept)
        if (setting.starts_with(name))
            return true;
    return false;
}

}  // namespace

void start_from_own_environment()
{
    // Static: the environment points into it until the process ends.
    static std::vector<std::string> settings{"PATH=/usr/local/bin:/usr/bin:/bin",
                                             "TALUVINE=/no/installation"};
    for (char **setting = environ; *setting; ++setting)
        if (kept(*setting))
            settings.emplace_back(*setting);
    clearenv();
    for (std::string &setting : settings)
        putenv(setting.data());
}
