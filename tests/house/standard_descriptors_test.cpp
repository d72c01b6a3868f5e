// A program whose standard descriptors are closed: no file of the library lies on 0, 1 or 2.

#include <cstdio>
#include <cstdlib>
#include <string>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "deviants.h"
#include "stock.h"
#include "support/child.h"
#include "support/temp_dir.h"

namespace {

int used = 0;  // files that the library worked with
int low = 0;   // of these on a standard descriptor

template <class Function>
Function *real(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

void note(int fd)
{
    ++used;
    low += fd >= 0 && fd <= STDERR_FILENO;
}

}  // namespace

extern "C" ssize_t read(int fd, void *buffer, size_t size)
{
    note(fd);
    return real<ssize_t(int, void *, size_t)>("read")(fd, buffer, size);
}

extern "C" ssize_t pread(int fd, void *buffer, size_t size, off_t at)
{
    note(fd);
    return real<ssize_t(int, void *, size_t, off_t)>("pread")(fd, buffer, size, at);
}

extern "C" ssize_t write(int fd, const void *buffer, size_t size)
{
    note(fd);
    return real<ssize_t(int, const void *, size_t)>("write")(fd, buffer, size);
}

extern "C" void *mmap(void *at, size_t size, int protection, int flags, int fd, off_t offset)
{
    note(fd);
    return real<void *(void *, size_t, int, int, int, off_t)>("mmap")(at, size, protection, flags,
                                                                      fd, offset);
}

extern "C" FILE *fdopen(int fd, const char *mode)
{
    note(fd);
    return real<FILE *(int, const char *)>("fdopen")(fd, mode);
}

extern "C" dirent *readdir(DIR *dir)
{
    note(dirfd(dir));
    return real<dirent *(DIR *)>("readdir")(dir);
}

namespace {

// Runs the body in a child whose standard descriptors are closed.
void expect_beyond_standard(const std::function<void()> &body)
{
    in_child([&] {
        elog_init(0, nullptr);
        for (const int fd : {0, 1, 2})
            close(fd);
        used = low = 0;
        body();
        EXPECT_GT(used, 0);
        EXPECT_EQ(low, 0);
        for (const int fd : {0, 1, 2})
            EXPECT_EQ(fcntl(fd, F_GETFD), -1) << fd;
    });
}

}  // namespace

TEST(StandardDescriptors, AreNotTakenByTheStateFile)
{
    const TempDir dir;
    expect_beyond_standard([&] {
        static int rain = 3;
        EXPECT_EQ(exhume((dir / "state").c_str(), nullptr, 0, nullptr), 0);
        resurrect("rain", &rain, RELIC_INT);
        EXPECT_EQ(bury(), 0);
    });
    EXPECT_EQ(read_file(dir / "state"), "rain\t3\n");
}

TEST(StandardDescriptors, AreNotTakenByTheFilesOfTheLog)
{
    const BlanklessDir dir;
    expect_beyond_standard([&] {
        elog_set(ELOG_DELIVER_FIELD, ELOG_COMPLAIN, (dir / "log").c_str());
        elog_complain(0, "too much rain");
    });
    EXPECT_NE(read_file(dir / "log").find("too much rain"), std::string::npos);
}

TEST(StandardDescriptors, AreNotTakenByParameterFilesAndCommands)
{
    const TempDir dir;
    dir.file("gauge.pf", "pf_revision_time 2026-11-21\n"
                         "north &exec(sleep 0.2; ls /proc/$PPID/fd | head -1)\nsouth &file(" +
                             dir.file("south", "4\n") + ")\neast &ref(depth,mm)\n");
    dir.file("depth.pf", "mm 7\n");
    setenv("PFPATH", dir.path().c_str(), 1);
    expect_beyond_standard([] {
        Pf *pf = nullptr;
        char file[1024];
        int line = 0;
        EXPECT_EQ(pfread("gauge", &pf), 0);
        EXPECT_GE(pfget_int(pf, "north"), 3);
        EXPECT_EQ(pfget_int(pf, "south"), 4);
        EXPECT_EQ(pfget_int(pf, "east"), 7);
        EXPECT_EQ(pfrequire("gauge", "2026-11-20"), 0);
        EXPECT_EQ(pfwhere("gauge", "south", file, &line), 0);
        pffree(pf);
    });
}

TEST(StandardDescriptors, AreNotTakenByListFilesAndWrittenParameters)
{
    const TempDir dir;
    expect_beyond_standard([&] {
        Tbl *rain = inittbl(0, 1, 1, nullptr, 8);
        EXPECT_EQ(savetbl(rain, (dir / "rain").c_str(), "rain"), 0);
        freetbl(rain, nullptr);
        rain = readtbl((dir / "rain").c_str(), nullptr, 0);
        EXPECT_NE(rain, nullptr);
        freetbl(rain, nullptr);
        Pf *pf = pfnew(PFARR);
        pfset(pf, "north", "3");
        EXPECT_EQ(pfwrite((dir / "gauge.pf").c_str(), pf), 0);
        pffree(pf);
    });
}

TEST(StandardDescriptors, AreNotTakenByWhatLooksAtFileSystems)
{
    expect_beyond_standard([] { std::free(infopath("/proc")); });
}

TEST(StandardDescriptors, AreNotTakenByMappedAndReadFiles)
{
    const TempDir dir;
    const std::string file = dir.file("rain", "north 3\n");
    expect_beyond_standard([&] {
        void *text = nullptr;
        char *copy = nullptr;
        int64_t size = 0;
        EXPECT_EQ(mapfile(file.c_str(), &text, nullptr), 8);
        EXPECT_EQ(basicreadfile(file.c_str(), &copy, &size), 0);
        EXPECT_EQ(is_empty(dir.path().c_str()), 0);
        std::free(copy);
    });
}
