// Functions from real user libraries. The tests set the clock themselves, so that the interval
// after which usermethod looks at the library's file again passes at once.

#include "stock/usermethod.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>

#include "stock/gettaluvine.h"
#include "support/child.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

std::atomic<long> clock_seconds{1'000'000};
bool dlclose_fails = false;

int call(const char *name)
{
    void *function = usermethod(name);
    return function ? reinterpret_cast<int (*)()>(function)() : -1;
}

// A test with a library file of its own, which USER_LIBRARY names.
class Usermethod : public testing::Test {
protected:
    Usermethod()
    {
        dlclose_fails = false;
        setenv("USER_LIBRARY", file_.c_str(), 1);
        usermethod_init();
        clock_seconds += 1000;
    }

    // Installs a library as an installation does: writes it beside the old one and renames it.
    void install(const char *library)
    {
        const std::string beside = file_ + ".new";
        fs::copy(library, beside);
        fs::rename(beside, file_);
    }

    void set_modified(long seconds)
    {
        const struct timespec times[2] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, file_.c_str(), times, 0), 0);
    }

    TempDir dir_;
    std::string file_ = dir_ / "methods.so";
};

using UsermethodThreads = Usermethod;

}  // namespace

extern "C" int gettimeofday(struct timeval *now, void *) noexcept
{
    *now = {clock_seconds, 999'999};
    return 0;
}

extern "C" int dlclose(void *handle) noexcept
{
    if (dlclose_fails)
        return -1;
    return reinterpret_cast<int (*)(void *)>(dlsym(RTLD_NEXT, "dlclose"))(handle);
}

// This test comes first, while the process has loaded no library.
TEST_F(Usermethod, WithoutALibraryThereIsNoFunction)
{
    EXPECT_EQ(usermethod("version"), nullptr);
    dir_.file("methods.so", "not a library");
    EXPECT_EQ(usermethod("version"), nullptr);
}

TEST_F(Usermethod, ALibraryThatAppearsIsFoundAtTheNextCall)
{
    EXPECT_EQ(in_child([this] {
                  usermethod("version");
                  install(USER_LIBRARY_ONE);
                  printf("%d", call("version"));
              }).out,
              "1");
}

TEST_F(Usermethod, FindsAFunctionOfTheLibrary)
{
    install(USER_LIBRARY_ONE);
    EXPECT_EQ(call("version"), 1);
    EXPECT_EQ(call("calls"), 1);
    EXPECT_EQ(usermethod("version"), usermethod("version"));
}

TEST_F(Usermethod, ANameThatIsNoPathIsLookedForInTheRoot)
{
    fs::create_directories(dir_ / "lib");
    fs::copy(USER_LIBRARY_TWO, dir_ / "lib/libmine.so");
    puttaluvine(dir_.path().c_str());
    setenv("USER_LIBRARY", "mine", 1);
    usermethod_init();
    EXPECT_EQ(call("version"), 2);
}

TEST_F(Usermethod, WithoutUserLibraryItIsCalledUser)
{
    fs::create_directories(dir_ / "lib");
    fs::copy(USER_LIBRARY_TWO, dir_ / "lib/libuser.so");
    puttaluvine(dir_.path().c_str());
    unsetenv("USER_LIBRARY");
    usermethod_init();
    EXPECT_EQ(call("version"), 2);
}

TEST_F(Usermethod, TheNameOfTheLibraryIsTakenOnce)
{
    install(USER_LIBRARY_ONE);
    EXPECT_EQ(call("version"), 1);
    setenv("USER_LIBRARY", USER_LIBRARY_TWO, 1);
    clock_seconds += 11;
    EXPECT_EQ(call("version"), 1);
    usermethod_init();
    clock_seconds += 11;
    EXPECT_EQ(call("version"), 2);
}

TEST_F(Usermethod, ANullOrEmptyNameGivesNothing)
{
    install(USER_LIBRARY_ONE);
    EXPECT_EQ(usermethod(nullptr), nullptr);
    EXPECT_EQ(usermethod(""), nullptr);
}

TEST_F(Usermethod, AFunctionThatTheLibraryLacksIsAskedForOnce)
{
    install(USER_LIBRARY_ONE);
    call("version");
    dlerror();
    EXPECT_EQ(usermethod("added"), nullptr);
    EXPECT_NE(dlerror(), nullptr);  // it was looked up in the library
    EXPECT_EQ(usermethod("added"), nullptr);
    EXPECT_EQ(dlerror(), nullptr);  // it was not looked up again
}

TEST_F(Usermethod, AReplacedLibraryIsTakenWhenMoreThanTenSecondsHavePassed)
{
    install(USER_LIBRARY_ONE);
    EXPECT_EQ(call("version"), 1);
    EXPECT_EQ(usermethod("added"), nullptr);
    install(USER_LIBRARY_TWO);
    EXPECT_EQ(call("version"), 1);
    clock_seconds += 10;
    EXPECT_EQ(call("version"), 1);
    clock_seconds += 1;
    EXPECT_EQ(call("version"), 2);
    EXPECT_EQ(call("added"), 22);
    EXPECT_EQ(usermethod("calls"), nullptr);
}

TEST_F(Usermethod, EachLookStartsTheIntervalAnew)
{
    install(USER_LIBRARY_ONE);
    EXPECT_EQ(call("version"), 1);
    clock_seconds += 11;
    EXPECT_EQ(call("version"), 1);
    install(USER_LIBRARY_TWO);
    clock_seconds += 10;
    EXPECT_EQ(call("version"), 1);
    clock_seconds += 1;
    EXPECT_EQ(call("version"), 2);
}

TEST_F(Usermethod, LoadingALibraryStartsTheInterval)
{
    install(USER_LIBRARY_ONE);
    call("version");
    fs::remove(file_);
    dir_.file("methods.so", "not a library");
    clock_seconds += 11;
    EXPECT_EQ(usermethod("version"), nullptr);
    clock_seconds += 1000;
    install(USER_LIBRARY_ONE);
    EXPECT_EQ(call("version"), 1);
    install(USER_LIBRARY_TWO);
    EXPECT_EQ(call("version"), 1);
    clock_seconds += 11;
    EXPECT_EQ(call("version"), 2);
}

TEST_F(Usermethod, AFileThatIsNewerIsLoadedAgain)
{
    install(USER_LIBRARY_ONE);
    set_modified(5000);
    EXPECT_EQ(call("calls"), 1);
    EXPECT_EQ(call("calls"), 2);
    set_modified(5001);
    clock_seconds += 11;
    EXPECT_EQ(call("calls"), 1);
}

TEST_F(Usermethod, AFileThatIsTheSameOrOlderStaysLoaded)
{
    install(USER_LIBRARY_ONE);
    set_modified(5000);
    EXPECT_EQ(call("calls"), 1);
    clock_seconds += 11;
    EXPECT_EQ(call("calls"), 2);
    set_modified(4000);
    clock_seconds += 11;
    EXPECT_EQ(call("calls"), 3);
}

TEST_F(Usermethod, AFileThatVanishedStaysLoaded)
{
    install(USER_LIBRARY_ONE);
    EXPECT_EQ(call("calls"), 1);
    fs::remove(file_);
    clock_seconds += 11;
    EXPECT_EQ(call("calls"), 2);
}

TEST_F(Usermethod, AFileThatIsReplacedByNoLibraryLeavesNone)
{
    install(USER_LIBRARY_ONE);
    EXPECT_EQ(call("version"), 1);
    fs::remove(file_);
    dir_.file("methods.so", "not a library");
    clock_seconds += 11;
    EXPECT_EQ(usermethod("version"), nullptr);
    install(USER_LIBRARY_TWO);
    EXPECT_EQ(call("version"), 2);
}

TEST_F(Usermethod, ALibraryThatCannotBeClosedIsComplainedOfAndForgotten)
{
    install(USER_LIBRARY_ONE);
    const Ended ended = in_child([this] {
        call("version");
        install(USER_LIBRARY_TWO);
        clock_seconds += 11;
        dlclose_fails = true;
        errno = EBUSY;
        printf("%d", usermethod("version") != nullptr);
    });
    EXPECT_EQ(ended.out, "1");
    EXPECT_EQ(ended.err, "usermethod_test: Couldn't close dynamic library " + file_ +
                             "\n\tDevice or resource busy\n");
}

// The system keeps libraries that are linked as nodelete, and those with unique symbols.
TEST_F(Usermethod, ALibraryThatTheSystemKeepsIsReplacedAllTheSame)
{
    const Ended ended = in_child([this] {
        install(USER_LIBRARY_KEPT_ONE);
        printf("%d", call("version"));
        for (const char *next :
             {USER_LIBRARY_KEPT_TWO, USER_LIBRARY_KEPT_ONE, USER_LIBRARY_TWO, USER_LIBRARY_ONE}) {
            install(next);
            clock_seconds += 10;
            printf(" %d", call("version"));
            clock_seconds += 1;
            printf("%d", call("version"));
        }
    });
    EXPECT_EQ(ended.out, "1 12 21 12 21");
    EXPECT_EQ(ended.err, "");
}

TEST_F(Usermethod, NoCopyOfALibraryIsLeftBehind)
{
    const TempDir temporary;
    EXPECT_EQ(in_child([&] {
                  setenv("TMPDIR", temporary.path().c_str(), 1);
                  install(USER_LIBRARY_KEPT_ONE);
                  call("version");
                  install(USER_LIBRARY_KEPT_TWO);
                  clock_seconds += 11;
                  printf("%d", call("version"));
              }).out,
              "2");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_.path()), {}), 1);
    EXPECT_TRUE(fs::is_empty(temporary.path()));
}

TEST_F(Usermethod, WhenACopyCannotBeLoadedItSaysSoOnceAndTheEarlierLibraryStays)
{
    const Ended ended = in_child([this] {
        install(USER_LIBRARY_KEPT_ONE);
        call("version");
        fs::remove(file_);
        dir_.file("methods.so", "not a library");
        for (int i = 0; i < 3; ++i) {
            clock_seconds += 11;
            printf("%d", call("version"));
        }
        install(USER_LIBRARY_TWO);
        clock_seconds += 11;
        printf("%d", call("version"));
    });
    EXPECT_EQ(ended.out, "1112");
    const std::string message =
        "Couldn't load the new dynamic library " + file_ + ", the earlier one is used: ";
    const size_t at = ended.err.find(message);
    EXPECT_NE(at, std::string::npos) << ended.err;
    EXPECT_EQ(at, ended.err.rfind(message));
    EXPECT_TRUE(fs::exists(file_));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_.path()), {}), 1);
}

TEST_F(UsermethodThreads, FindFunctionsWhileTheLibraryIsReplaced)
{
    install(USER_LIBRARY_ONE);
    std::atomic<int> lost{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < 500; ++n)
                lost += usermethod("version") == nullptr;
        });
    for (int n = 0; n < 20; ++n) {
        install(n % 2 ? USER_LIBRARY_ONE : USER_LIBRARY_TWO);
        clock_seconds += 11;
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(lost, 0);
}
