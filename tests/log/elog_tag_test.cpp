// Tags: the codes, their limits, and the texts that name the program.

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <pthread.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "deviants.h"
#include "support/logging.h"
#include "support/owners.h"
#include "support/temp_dir.h"

namespace {

// The template expanded in this process.
std::string expanded(const std::string &text, int severity = 0, int max = 1023)
{
    std::vector<char> out(static_cast<size_t>(max) + 1, '#');
    elog_expand(text.c_str(), severity, out.data(), max);
    EXPECT_EQ(out.back(), '#') << "wrote past its buffer";
    return out.data();
}

// The same in a child with a command line.
std::string expanded_with(std::vector<std::string> arguments, const std::string &text,
                          int max = 1023)
{
    const Ended ended = logged({}, [&] {
        std::vector<char *> argv;
        for (std::string &argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        elog_init(static_cast<int>(arguments.size()), argv.data());
        printf("%s", expanded(text, 0, max).c_str());
    });
    return ended.out;
}

}  // namespace

TEST(ElogExpand, TheProgramsName)
{
    EXPECT_EQ(expanded_with({"p"}, "[%P]"), "[elog_tag_test]");
}

TEST(ElogExpand, TheProgramsNameIsNothingBeforeItIsKnown)
{
    EXPECT_EQ(in_child([] { printf("%s", expanded("[%P]").c_str()); }).out, "[]");
}

TEST(ElogExpand, ProcessThreadAndHost)
{
    char host[256];
    ASSERT_EQ(my_hostname(host), 0);
    EXPECT_EQ(expanded("%p"), std::to_string(getpid()));
    EXPECT_EQ(expanded("%T"), std::to_string(static_cast<unsigned long>(pthread_self())));
    EXPECT_EQ(expanded("%h"), host);
}

TEST(ElogExpand, TheSeveritysName)
{
    const char *const names[] = {"log", "debug", "notify", "alert", "complain", "die", "fault"};
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(expanded("<%s>", i), std::string("<") + names[i] + ">");
}

TEST(ElogExpand, ASeverityOf9IsBad)
{
    for (const int severity : {9, 7, -1, 1000000})
        EXPECT_EQ(expanded("%s", severity), "<BAD>");
}

TEST(ElogExpand, EachArgumentIsFollowedByABlank)
{
    EXPECT_EQ(expanded_with({"p", "one", "", "two three"}, "[%a]"), "[one  two three ]");
    EXPECT_EQ(expanded_with({"p"}, "[%a]"), "[]");
    EXPECT_EQ(expanded("[%a]"), "[]");
}

TEST(ElogExpand, SecondsSinceTheReferenceTimeTakeTenPlacesWithSixDecimals)
{
    const Ended ended = logged({}, [] {
        elog_set(ELOG_REFERENCE, 0, std_now() - 5.0);
        const std::string text = expanded("%e");
        printf("%d %d", text.size() == 10u, text.substr(0, 4) == "  5.");
    });
    EXPECT_EQ(ended.out, "1 1");
}

TEST(ElogExpand, SecondsAreCutTo64Characters)
{
    const Ended ended = logged({}, [] {
        elog_set(ELOG_REFERENCE, 0, -1e300);
        const std::string text = expanded("[%e]");
        printf("%zu %d", text.size(), text.find('.') == std::string::npos);
    });
    EXPECT_EQ(ended.out, "66 1");
}

TEST(ElogExpand, TheCurrentTimeIsLocalOrUtcInItsFormat)
{
    const Ended ended = logged({"TZ=Asia/Tokyo"}, [] {
        for (;;) {
            const double now = std::floor(std_now());
            const std::string local = expanded("%t");
            const std::string utc = expanded("%u");
            if (std::floor(std_now()) != now)
                continue;  // a second went by
            const Text here(zepoch2str("%a %b %e %H:%M:%S %Y", "Asia/Tokyo", now));
            const Text there(epoch2str("%Y-%j %H:%M:%S", now));
            printf("%d %d", local == here.get(), utc == there.get());
            break;
        }
    });
    EXPECT_EQ(ended.out, "1 1");
}

TEST(ElogExpand, AnyOtherCharacterStandsForItself)
{
    EXPECT_EQ(expanded("%Z"), "Z");
    EXPECT_EQ(expanded("100%% %- %\t%@"), "100% - \t@");
    EXPECT_EQ(expanded("%%P"), "%P");
    EXPECT_EQ(expanded("\\n"), "\\n");
    EXPECT_EQ(expanded("%"), "%");
    EXPECT_EQ(expanded("100%"), "100%");
    EXPECT_EQ(expanded(""), "");
}

TEST(ElogExpand, ANullTemplateIsEmpty)
{
    char out[100] = "before";
    elog_expand(nullptr, 0, out, sizeof out);
    EXPECT_STREQ(out, "");
}

TEST(ElogExpand, StopsWhenMoreThanMaxLess100CharactersAreWritten)
{
    EXPECT_EQ(expanded(std::string(923, 'x')), std::string(923, 'x'));
    EXPECT_EQ(expanded(std::string(924, 'x')), std::string(924, 'x') + " *...");
    EXPECT_EQ(expanded(std::string(925, 'x')), std::string(924, 'x') + " *...");
    EXPECT_EQ(expanded(std::string(5000, 'x')), std::string(924, 'x') + " *...");
}

TEST(ElogExpand, ACodeThatMakesThousandsOfCharactersIsCutWithinTheBuffer)
{
    const std::string text = expanded_with({"p", std::string(5000, 'x')}, "%a");
    EXPECT_EQ(text, std::string(1017, 'x') + " *...");
    const std::string second = expanded_with({"p", std::string(900, 'x')}, "%a%a%a");
    EXPECT_EQ(second, std::string(900, 'x') + " " + std::string(116, 'x') + " *...");
}

TEST(ElogExpand, NeverWritesPastASmallBuffer)
{
    for (int max = 1; max <= 210; ++max) {
        SCOPED_TRACE(max);
        const std::string text = expanded("%s%s%s%p%T%h some text that is long", 0, max);
        EXPECT_LT(text.size(), static_cast<size_t>(max));
    }
    EXPECT_EQ(expanded("text", 0, 1), "");
    char untouched[] = "#";
    elog_expand("text", 0, untouched, 0);
    elog_expand("text", 0, untouched, -5);
    elog_expand("text", 0, nullptr, 100);
    EXPECT_STREQ(untouched, "#");
}

TEST(ElogExpand, LeavesErrnoAlone)
{
    const Ended ended = logged({}, [] {
        errno = EDOM;
        expanded("%P%p%T%h%s%a%r%e%t%u");
        printf("%d", errno == EDOM);
    });
    EXPECT_EQ(ended.out, "1");
}

TEST(ElogTag, OfAMessageIsExpandedWhenItIsMade)
{
    const Ended ended = logged({"ELOG_TAG=%s"}, [] {
        elog_log(0, "a");
        elog_set(ELOG_TAG_FIELD, -1, "later");
        elog_complain(0, "b");
    });
    EXPECT_EQ(ended.err, "log: a\nlater: b\n");
}

TEST(ElogTag, ThatIsEmptyIsLeftOut)
{
    EXPECT_EQ(untagged([] { elog_complain(0, "x"); }).err, "x\n");
}

TEST(ElogTag, ThatExpandsToThousandsOfCharactersIsCutAt1023)
{
    const Ended ended = logged({"ELOG_TAG=%a%a%a%a%a%a"}, [] {
        char name[] = "p";
        std::string argument(3000, 'x');
        char *argv[] = {name, argument.data(), nullptr};
        elog_init(2, argv);
        elog_complain(0, "\n%s", std::string(20000, 'y').c_str());
        elog_complain(0, "short");
    });
    const std::string tag = std::string(1017, 'x') + " *...: ";
    const std::string notice = "\n\t...  ** truncated by elog ***\n";
    EXPECT_EQ(ended.err, "\n" + tag + std::string(10206, 'y') + notice + tag + "short\n");
}

TEST(ElogTag, OfFullLengthIsWholeWhereverItIsPrinted)
{
    const std::string tag = std::string(1017, 'x') + " *...";
    const Ended ended = logged({"ELOG_TAG=%a"}, [&] {
        char name[] = "p";
        std::string argument(3000, 'x');
        char *argv[] = {name, argument.data(), nullptr};
        elog_init(2, argv);
        printf("%d", Text(elogstr(0, 0, "\nm")).get() == "\n" + tag + ": m\n");
        elog_log(0, "\nm");
        printf("%d", Text(elog_string(0)).get() == "\n" + tag + ": m\n");
        fflush(stdout);
        elog_printfd(1, 0);
        elog_set(ELOG_MAXMSG_VALUE, 0, 1);
        elog_log(0, "n");
    });
    EXPECT_EQ(ended.out, "11\n" + tag + ": m\n");
    const std::string stack = "\n" + tag + ": m\n" + tag + ": n\n";
    EXPECT_EQ(ended.err.substr(0, stack.size()), stack);
    EXPECT_EQ(ended.err.substr(stack.size(), tag.size() + 10), tag + ": quitting");
}

// The command text.

TEST(ElogCmdline, IsThePathOfTheProgramAlongPath)
{
    const TempDir dir;
    const std::string program = dir.file("elog_tag_test", "");
    const Ended ended = logged({"PATH=/nowhere:" + dir.path()},
                               [] { printf("%s %s", elog_cmdline(), expanded("%r").c_str()); });
    EXPECT_EQ(ended.out, program + " " + program);
}

TEST(ElogCmdline, IsMarkedWhenTheProgramIsNotFound)
{
    const Ended ended = logged({"PATH=/nowhere"}, [] { printf("%s", elog_cmdline()); });
    EXPECT_EQ(ended.out, "*?program?*");
}

// The command text of a program with this path, if any, and these arguments.
static std::string command(const char *path, std::vector<std::string> arguments,
                           const std::string &search = "/nowhere")
{
    const Ended ended = logged({"PATH=" + search}, [&] {
        const std::string own = path ? path : "";
        program_invocation_short_name = const_cast<char *>(path ? own.c_str() : nullptr);
        std::vector<char *> argv;
        for (std::string &argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        elog_init(static_cast<int>(arguments.size()), argv.data());
        program_invocation_short_name =
            path && own != "***" ? program_invocation_short_name : nullptr;
        printf("%s", elog_cmdline());
    });
    return ended.out;
}

TEST(ElogCmdline, IsThePathAsItIsWhenItBeginsWithASlashOrADot)
{
    EXPECT_EQ(command("/no/such/prog", {"p"}), "/no/such/prog");
    EXPECT_EQ(command("./prog", {"p"}), "./prog");
    EXPECT_EQ(command("a/prog", {"p"}), "*?program?*");
}

TEST(ElogCmdline, IsTheFirstArgumentOrTheProgramsNameWithoutAPath)
{
    const TempDir dir;
    const std::string argument = dir.file("argument", "");
    const std::string unknown = dir.file("Unknown_Program", "");
    dir.file("***", "");
    EXPECT_EQ(command(nullptr, {"/x/argument"}, dir.path()), "/x/argument");
    EXPECT_EQ(command(nullptr, {"argument"}, dir.path()), argument);
    EXPECT_EQ(command(nullptr, {}, dir.path()), unknown);
    EXPECT_EQ(command("***", {}, dir.path()), "*?program?*");
}

TEST(ElogCmdline, IsLookedUpOnce)
{
    const Ended ended = logged({"PATH=/nowhere"}, [] {
        const char *first = elog_cmdline();
        setenv("PATH", "/bin", 1);
        printf("%d", first == elog_cmdline());
    });
    EXPECT_EQ(ended.out, "1");
}

// The announcement.

namespace {

// What the body prints with these arguments.
Ended announced(std::initializer_list<std::string> settings, std::vector<std::string> arguments,
                const std::function<void()> &body)
{
    return logged(settings, [&] {
        std::vector<char *> argv;
        for (std::string &argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        elog_init(static_cast<int>(arguments.size()), argv.data());
        body();
    });
}

void print_commandline()
{
    printf("%s", Text(elog_commandline_str()).get());
}

}  // namespace

TEST(ElogCommandline, NamesTheProgramAndItsArguments)
{
    EXPECT_EQ(announced({}, {"p", "-v", "a b"}, print_commandline).out,
              "\n--> elog_tag_test -v a b <#>\n\n");
    EXPECT_EQ(announced({}, {"p"}, print_commandline).out, "\n--> elog_tag_test <#>\n\n");
    EXPECT_EQ(logged({}, print_commandline).out, "\n--> elog_tag_test <#>\n\n");
}

TEST(ElogCommandline, IsCutTo1023Characters)
{
    const std::string text = announced({}, {"p", std::string(5000, 'x')}, print_commandline).out;
    EXPECT_EQ(text, "\n--> elog_tag_test " + std::string(1023 - 19, 'x'));
}

TEST(ElogCommandline, IsDeliveredAsANotificationAfterTheStack)
{
    const Ended ended = announced({"ELOG_DELIVER=stdout@n"}, {"p", "x"}, [] {
        elog_log(0, "why");
        elog_commandline();
        printf("%d", elog_mark());
    });
    EXPECT_EQ(ended.out, "elog_tag_test: why\n\n--> elog_tag_test x <#>\n\n0");
}

TEST(ElogCommandline, IsKeptWhereNotificationsAre)
{
    const Ended ended = announced({"ELOG_DELIVER=log@n"}, {"p"}, [] {
        elog_commandline();
        printf("%s", stack_text().c_str());
    });
    EXPECT_EQ(ended.out, "\n--> elog_tag_test <#>\n\n");
}
