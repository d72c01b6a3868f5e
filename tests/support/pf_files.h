// Parameter files in a directory of the test's own, and what a tree holds.

#pragma once

#include <cstdlib>
#include <string>

#include "support/pf_text.h"
#include "support/temp_dir.h"

// Two directories, "site" and "local", that PFPATH leads through in that order.
class PfPath {
public:
    PfPath() { setenv("PFPATH", (dirs_ / "site" + ":" + dirs_ / "local").c_str(), 1); }
    ~PfPath() { unsetenv("PFPATH"); }
    PfPath(const PfPath &) = delete;
    PfPath &operator=(const PfPath &) = delete;

    std::string site(const std::string &name, const std::string &text) const
    {
        return dirs_.file("site/" + name, text);
    }
    std::string local(const std::string &name, const std::string &text) const
    {
        return dirs_.file("local/" + name, text);
    }
    const TempDir &dirs() const { return dirs_; }

private:
    TempDir dirs_;
};
