// The services of the operating system: names, time, the timer, shared libraries.
//
// The program defines some system calls itself, so that a test can choose their answers.

#include "deviants.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/time.h>
#include <sys/utsname.h>

#include "stock/gettaluvine.h"
#include "stock/path.h"
#include "support/child.h"
#include "support/logged.h"
#include "support/one_user.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace {

std::string node_name;  // empty: the system's own
bool uname_fails, sigaction_fails, getitimer_fails;

template <class Function>
Function *real(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

std::string host()
{
    std::vector<char> buffer(HOST_NAME_MAX + 1, '#');
    EXPECT_EQ(my_hostname(buffer.data()), 0);
    return buffer.data();
}

volatile sig_atomic_t alarms;

void count_alarm(int)
{
    alarms = alarms + 1;
}

struct itimerval timer_now()
{
    struct itimerval timer;
    real<int(__itimer_which_t, struct itimerval *)>("getitimer")(ITIMER_REAL, &timer);
    return timer;
}

}  // namespace

extern "C" int uname(struct utsname *system) noexcept
{
    if (uname_fails) {
        errno = EFAULT;
        return -1;
    }
    const int result = real<int(struct utsname *)>("uname")(system);
    if (!node_name.empty())
        strcpy(system->nodename, node_name.c_str());
    return result;
}

extern "C" int sigaction(int sig, const struct sigaction *action, struct sigaction *old) noexcept
{
    if (sigaction_fails && sig == SIGALRM) {
        errno = EINVAL;
        return -1;
    }
    return real<int(int, const struct sigaction *, struct sigaction *)>("sigaction")(sig, action,
                                                                                     old);
}

extern "C" int getitimer(__itimer_which_t which, struct itimerval *timer) noexcept
{
    if (getitimer_fails) {
        errno = EFAULT;
        return -1;
    }
    return real<int(__itimer_which_t, struct itimerval *)>("getitimer")(which, timer);
}

// This test stands first, because a process keeps the name once it was found.
TEST(MyUsername, IsEmptyWithStatus1WhenTheUserHasNoName)
{
    nobody_is_known = true;
    char buffer[1024] = "before";
    EXPECT_EQ(my_username(buffer), 1);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(homedir(nullptr), nullptr);
    char path[1024];
    EXPECT_EQ(cleanpath("~/x", 0, path), 0);
    EXPECT_STREQ(path, "~/x");
    nobody_is_known = false;
}

TEST(MyUsername, IsTheLoginNameOfTheRealUser)
{
    char buffer[1024];
    EXPECT_EQ(my_username(buffer), 0);
    EXPECT_STREQ(buffer, kUserName);
}

TEST(MyUsername, AnEntryMayBeOfAnyLength)
{
    const Ended ended = in_child([] {
        least_buffer = 1'000'000;
        char buffer[1024];
        printf("%d", my_username(buffer));
        printf(" %s", buffer);
    });
    EXPECT_EQ(ended.out, std::string("0 ") + kUserName);
}

TEST(Homedir, OfAnEntryOfAnyLengthIsFound)
{
    least_buffer = 1'000'000;
    char *found = homedir(kUserName);
    least_buffer = 0;
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found, kUserHome);
    free(found);
}

TEST(MyUsername, IsFoundOnce)
{
    char first[1024];
    char second[1024];
    my_username(first);
    nobody_is_known = true;
    EXPECT_EQ(my_username(second), 0);
    EXPECT_STREQ(second, first);
    nobody_is_known = false;
}

TEST(MyUsernameThreads, AllGetTheSameName)
{
    std::vector<std::string> names(8);
    std::vector<std::thread> threads;
    for (std::string &name : names)
        threads.emplace_back([&name] {
            char buffer[1024];
            my_username(buffer);
            name = buffer;
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(names, std::vector<std::string>(8, kUserName));
}

TEST(MyHostname, EndsBeforeTheFirstDot)
{
    const struct {
        const char *node, *host;
    } cases[] = {{"a.b.c", "a"}, {"plain", "plain"}, {".b", ""}, {"a.", "a"}};
    for (const auto &c : cases) {
        node_name = c.node;
        EXPECT_EQ(host(), c.host);
    }
    node_name = std::string(HOST_NAME_MAX, 'h');
    EXPECT_EQ(host(), node_name);
    node_name.clear();
}

TEST(MyHostname, IsTheSystemsOwn)
{
    struct utsname system;
    uname(&system);
    const std::string node = system.nodename;
    EXPECT_EQ(host(), node.substr(0, node.find('.')));
}

TEST(MyHostname, IsEmptyWithTheFailuresValueWhenTheSystemDoesNotSay)
{
    uname_fails = true;
    char buffer[1024] = "before";
    EXPECT_EQ(my_hostname(buffer), -1);
    EXPECT_STREQ(buffer, "");
    uname_fails = false;
}

TEST(Getexecname, IsTheProgramsBaseName)
{
    EXPECT_STREQ(getexecname(), "deviants_test");
}

TEST(StdNow, IsTheTimeOfDay)
{
    const time_t before = time(nullptr);
    const double now = std_now();
    const time_t after = time(nullptr);
    EXPECT_GE(now, static_cast<double>(before));
    EXPECT_LT(now, static_cast<double>(after) + 1);
}

TEST(StdNow, HasATwinForFortran)
{
    const double before = std_now();
    const double now = now_();
    EXPECT_LE(before, now);
    EXPECT_LE(now, std_now());
}

TEST(StdSetTimer, CallsTheHandlerOnce)
{
    alarms = 0;
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGALRM);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    EXPECT_EQ(std_set_timer(count_alarm, 0.001), 0);
    sigdelset(&before, SIGALRM);
    while (alarms == 0)
        sigsuspend(&before);
    EXPECT_EQ(alarms, 1);
    EXPECT_EQ(timer_now().it_value.tv_usec, 0);
    EXPECT_EQ(timer_now().it_value.tv_sec, 0);
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

TEST(StdSetTimer, IsSetToSecondsAndMicrosecondsWithoutRepeating)
{
    EXPECT_EQ(std_set_timer(count_alarm, 1002.5), 0);
    const struct itimerval timer = timer_now();
    const double left = static_cast<double>(timer.it_value.tv_sec) +
                        static_cast<double>(timer.it_value.tv_usec) / 1e6;
    EXPECT_LE(left, 1002.5);
    EXPECT_GT(left, 902.5);
    EXPECT_EQ(timer.it_interval.tv_sec, 0);
    EXPECT_EQ(timer.it_interval.tv_usec, 0);
    std_set_timer(count_alarm, 0);
}

TEST(StdSetTimer, ReplacesAnEarlierTimerAndAHandler)
{
    std_set_timer(SIG_IGN, 5000);
    EXPECT_EQ(std_set_timer(count_alarm, 100), 0);
    EXPECT_LE(timer_now().it_value.tv_sec, 100);
    struct sigaction action;
    sigaction(SIGALRM, nullptr, &action);
    EXPECT_EQ(action.sa_handler, count_alarm);
    EXPECT_EQ(action.sa_flags & static_cast<int>(SA_RESTART | SA_RESETHAND | SA_NODEFER), 0);
    EXPECT_EQ(sigismember(&action.sa_mask, SIGINT), 0);
    std_set_timer(count_alarm, 0);
    EXPECT_EQ(timer_now().it_value.tv_sec, 0);
}

TEST(StdSetTimer, RefusesSecondsThatTheSystemCannotCount)
{
    for (double seconds : {-1.0, -0.5, std::nan(""), HUGE_VAL, -HUGE_VAL, 1e300}) {
        SCOPED_TRACE(seconds);
        EXPECT_EQ(logged([=] { EXPECT_EQ(std_set_timer(count_alarm, seconds), -1); }),
                  "setitimer fails\n\tInvalid argument\n");
    }
}

TEST(StdSetTimer, TellsWhenTheTimerCannotBeRead)
{
    getitimer_fails = true;
    EXPECT_EQ(logged([] { EXPECT_EQ(std_set_timer(count_alarm, 100), -1); }),
              "getitimer fails\n\tBad address\n");
    getitimer_fails = false;
}

TEST(StdSetTimer, EndsTheProcessWhenTheHandlerCannotBeInstalled)
{
    const Ended ended = in_child([] {
        sigaction_fails = true;
        std_set_timer(count_alarm, 100);
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err,
              "deviants_test *fatal*: Couldn't intercept signal SIGALRM\n\tInvalid argument\n");
}

TEST(StdDlopen, LoadsALibraryOfTheRoot)
{
    const TempDir root;
    std::filesystem::create_directories(root / "lib");
    std::filesystem::copy(USER_LIBRARY_ONE, root / "lib/libqel.so");
    puttaluvine(root.path().c_str());
    void *handle = std_dlopen("qel");
    ASSERT_NE(handle, nullptr) << dlerror();
    EXPECT_NE(dlsym(handle, "version"), nullptr);
    dlclose(handle);
}

TEST(StdDlopen, TakesANameThatBeginsWithASlashAsAPath)
{
    void *handle = std_dlopen(USER_LIBRARY_ONE);
    ASSERT_NE(handle, nullptr) << dlerror();
    dlclose(handle);
}

TEST(StdDlopen, GivesNullWithoutAMessageWhenThereIsNoSuchLibrary)
{
    elog_init(0, nullptr);  // loads libraries, too
    puttaluvine("/nosuchroot");
    dlerror();
    EXPECT_EQ(logged([] { EXPECT_EQ(std_dlopen("qel"), nullptr); }), "");
    const char *why = dlerror();
    ASSERT_NE(why, nullptr);
    EXPECT_NE(std::string(why).find("/nosuchroot/lib/libqel.so"), std::string::npos) << why;
}

TEST(StdDlopen, APathMayBeOf1023Bytes)
{
    const TempDir root;
    const std::string library = root / "libmine.so";
    std::filesystem::copy(USER_LIBRARY_ONE, library);
    for (const size_t length : {1023U, 1024U}) {
        std::string path = root.path();
        path += std::string(length - path.size() - strlen("/libmine.so"), '/') + "/libmine.so";
        ASSERT_EQ(path.size(), length);
        void *handle = std_dlopen(path.c_str());
        EXPECT_EQ(handle != nullptr, length == 1023);
        if (handle)
            dlclose(handle);
    }
}

TEST(StdDlopen, RefusesNullAndPathsTooLong)
{
    EXPECT_EQ(std_dlopen(nullptr), nullptr);
    EXPECT_EQ(std_dlopen(std::string(5000, 'x').c_str()), nullptr);
    EXPECT_EQ(std_dlopen(("/" + std::string(5000, 'x')).c_str()), nullptr);
    EXPECT_EQ(std_dlopen(""), nullptr);
}
