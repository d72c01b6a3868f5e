// A child process that is started during a call of the library inherits none of its descriptors.

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "deviants.h"
#include "stock.h"
#include "support/child.h"
#include "support/temp_dir.h"

namespace {

int watched = 0;      // how much was opened
std::string leaking;  // what a started program would get

template <class Function>
Function *real(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

void note(bool closed, const char *what)
{
    ++watched;
    if (!closed)
        leaking += std::string(what) + "\n";
}

}  // namespace

extern "C" int open(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = flags & O_CREAT ? va_arg(args, mode_t) : 0;
    va_end(args);
    note(flags & O_CLOEXEC, path);
    return real<int(const char *, int, ...)>("open")(path, flags, mode);
}

extern "C" FILE *fopen(const char *path, const char *mode)
{
    note(strchr(mode, 'e'), path);
    return real<FILE *(const char *, const char *)>("fopen")(path, mode);
}

extern "C" FILE *popen(const char *command, const char *mode)
{
    note(strchr(mode, 'e'), command);
    return real<FILE *(const char *, const char *)>("popen")(command, mode);
}

extern "C" int mkstemp(char *path)
{
    note(false, path);
    return real<int(char *)>("mkstemp")(path);
}

namespace {

// Whether something was opened by the body, and all of it for this process alone.
void expect_kept(const std::function<void()> &body)
{
    watched = 0;
    leaking.clear();
    body();
    EXPECT_GT(watched, 0);
    EXPECT_EQ(leaking, "");
}

}  // namespace

TEST(CloseOnExec, HoldsForTheStateFile)
{
    const TempDir dir;
    in_child([&] {
        expect_kept([&] {
            static int rain = 3;
            EXPECT_EQ(exhume((dir / "state").c_str(), nullptr, 0, nullptr), 0);
            resurrect("rain", &rain, RELIC_INT);
            EXPECT_EQ(bury(), 0);
        });
    });
}

TEST(CloseOnExec, HoldsForTheFilesOfTheLog)
{
    const TempDir dir;
    in_child([&] {
        elog_init(0, nullptr);
        elog_set(ELOG_DELIVER_FIELD, 4, (dir / "log").c_str());
        expect_kept([] { elog_complain(0, "too much rain"); });
    });
    EXPECT_NE(read_file(dir / "log").find("too much rain"), std::string::npos);
}

TEST(CloseOnExec, HoldsForCommandsAndFilesInParameters)
{
    const TempDir dir;
    dir.file("gauge.pf", "pf_revision_time 2026-11-21\nnorth &exec(echo 3)\nsouth &file(" +
                             dir.file("south", "4\n") + ")\n");
    in_child([&] {
        setenv("PFPATH", dir.path().c_str(), 1);
        expect_kept([] {
            Pf *pf = nullptr;
            EXPECT_EQ(pfread("gauge", &pf), 0);
            EXPECT_EQ(pfget_int(pf, "north"), 3);
            EXPECT_EQ(pfget_int(pf, "south"), 4);
            EXPECT_EQ(pfrequire("gauge", "2026-11-20"), 0);
            pffree(pf);
        });
    });
}

TEST(CloseOnExec, HoldsForLookingAtFileSystems)
{
    expect_kept([] { std::free(infopath("/proc")); });
}

TEST(CloseOnExec, HoldsForMappedFiles)
{
    const TempDir dir;
    const std::string file = dir.file("rain", "north 3\n");
    expect_kept([&] {
        void *text = nullptr;
        EXPECT_EQ(mapfile(file.c_str(), &text, nullptr), 8);
    });
}
