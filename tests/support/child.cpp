#include "support/child.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

std::string read_all(int fd)
{
    std::string text;
    char chunk[65536];
    for (;;) {
        const ssize_t got = read(fd, chunk, sizeof chunk);
        if (got > 0)
            text.append(chunk, static_cast<size_t>(got));
        else if (got == 0 || errno != EINTR)
            break;
    }
    close(fd);
    return text;
}

void write_all(int fd, const std::string &text)
{
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t put = write(fd, text.data() + done, text.size() - done);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            break;
        done += static_cast<size_t>(put);
    }
    close(fd);
}

// What expectations said that failed in the child, in memory that it shares.
class Failures {
public:
    Failures()
        : shared_(static_cast<Shared *>(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                             MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
        if (shared_ == MAP_FAILED)
            abort();
    }
    ~Failures() { munmap(shared_, sizeof(Shared)); }
    Failures(const Failures &) = delete;
    Failures &operator=(const Failures &) = delete;

    // In the child: keeps them from now on.
    void keep() const { testing::UnitTest::GetInstance()->listeners().Append(new Keeper(shared_)); }
    // In the parent: they are failures of the test, however the child ended.
    void tell() const
    {
        if (*shared_->text)
            ADD_FAILURE() << "in a child process:\n" << shared_->text;
    }

private:
    struct Shared {
        char text[16384];
    };
    class Keeper : public testing::EmptyTestEventListener {
    public:
        explicit Keeper(Shared *shared) : shared_(shared) {}
        void OnTestPartResult(const testing::TestPartResult &result) override
        {
            const size_t used = strlen(shared_->text);
            if (result.failed())
                snprintf(shared_->text + used, sizeof shared_->text - used, "%s:%d: %s\n",
                         result.file_name() ? result.file_name() : "", result.line_number(),
                         result.message());
        }

    private:
        Shared *shared_;
    };
    Shared *shared_;
};

Ended collect(pid_t pid, int in, int out, int err, const std::string &input)
{
    Ended ended;
    std::thread writer([&] { write_all(in, input); });
    std::thread reader([&] { ended.out = read_all(out); });
    ended.err = read_all(err);
    writer.join();
    reader.join();
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status))
        ended.status = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        ended.signal = WTERMSIG(status);
    return ended;
}

Ended fork_and_run(const std::string &input, const std::function<void()> &child)
{
    signal(SIGPIPE, SIG_IGN);
    int in[2], out[2], err[2];
    if (pipe(in) || pipe(out) || pipe(err))
        abort();
    fflush(nullptr);
    const Failures failures;
    const pid_t pid = fork();
    if (pid == 0) {
        failures.keep();
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]})
            close(fd);
        signal(SIGPIPE, SIG_DFL);
        child();
        exit(0);
    }
    for (int fd : {in[0], out[1], err[1]})
        close(fd);
    const Ended ended = collect(pid, in[1], out[0], err[0], input);
    failures.tell();
    return ended;
}

}  // namespace

Ended in_child(const std::function<void()> &body)
{
    return fork_and_run({}, body);
}

Ended run_program(const std::vector<std::string> &argv, const std::string &input,
                  const std::vector<std::string> &settings)
{
    return fork_and_run(input, [&] {
        for (const std::string &setting : settings) {
            const size_t equals = setting.find('=');
            if (equals == std::string::npos)
                unsetenv(setting.c_str());
            else
                setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
        }
        std::vector<char *> words;
        for (const std::string &word : argv)
            words.push_back(const_cast<char *>(word.c_str()));
        words.push_back(nullptr);
        execv(words[0], words.data());
        perror(words[0]);
        _exit(127);
    });
}

std::string tool_path()
{
    return STOCK_TOOL;
}

std::string source_path(const std::string &relative)
{
    return STOCK_SOURCE "/" + relative;
}
