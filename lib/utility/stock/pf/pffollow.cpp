// Parameter files that a program follows: read again when they change, and used when they
// are whole.
//
// Every table that follows a name has a Follower, which keeps how the files looked when
// they were read last. A look at a file is its path, its times, size and inode; and, while
// the system's clock may give another change the same time, a sum of its bytes.
//
// The text of each file is scanned before it is parsed: what is half saved or rubbish is
// told by file and line, and never becomes a tree.

#include "stock/pfwant.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/descriptor.h"
#include "base/fixed_text.h"
#include "base/guards.h"
#include "base/mtime.h"
#include "base/uninterrupted.h"
#include "deviants.h"
#include "pf/known.h"
#include "pf/pf_state.h"
#include "pf/scan.h"
#include "pf/want.h"
#include "stock/elog.h"
#include "stock/wait_for_time.h"

namespace stock::want {

namespace {

constexpr double kQuietSeconds = 0.1;  // what changed later than so long ago may be half saved
constexpr double kMostWaitSeconds = 1;
constexpr double kRacySeconds = 2.5;  // the coarsest times of files are of 2 seconds

// ---- How files look ----

struct Look {
    char *path;  // owned
    bool is_there;
    bool is_readable;
    double changed;  // the later of both times of change
    double mtime;
    double ctime;
    int64_t size;
    uint64_t device;
    uint64_t inode;
    uint64_t sum;  // of the bytes; 0 where it was not asked for
};

void free_look(void *look)
{
    std::free(static_cast<Look *>(look)->path);
}

// A list of Look.
class Looks {
public:
    Looks() = default;
    explicit Looks(Tbl *looks) : looks_(looks) {}
    Looks(Looks &&other) noexcept : looks_(std::exchange(other.looks_, nullptr)) {}
    Looks &operator=(Looks &&other) noexcept
    {
        std::swap(looks_, other.looks_);
        return *this;
    }
    ~Looks() { freetbl(looks_, free_look); }

    int64_t count() const { return looks_ ? looks_->count : 0; }
    Look &operator[](int64_t i) const { return *static_cast<Look *>(gettbl(looks_, i)); }

private:
    Tbl *looks_ = nullptr;
};

template <class Status>
double change_time(const Status &status)
{
    Status copy = status;
    if constexpr (requires { copy.st_mtim; })
        copy.st_mtim = status.st_ctim;
    else
        copy.st_mtimespec = status.st_ctimespec;
    return modification_time(copy);
}

Looks look_at(const char *name)
{
    const KeepErrno keep;
    Tbl *files = pffiles(name, 1);
    Tbl *looks = inittbl(0, files->count, 1, nullptr, sizeof(Look));
    for (int64_t i = 0; i < files->count; ++i) {
        Look look{};
        look.path = static_cast<char *>(gettbl(files, i));
        struct stat status {};
        look.is_there = stat(look.path, &status) == 0;
        if (look.is_there) {
            look.is_readable = access(look.path, R_OK) == 0;
            look.mtime = modification_time(status);
            look.ctime = change_time(status);
            look.changed = std::max(look.mtime, look.ctime);
            look.size = status.st_size;
            look.device = static_cast<uint64_t>(status.st_dev);
            look.inode = static_cast<uint64_t>(status.st_ino);
        }
        pushtbl(looks, &look);
    }
    freetbl(files, nullptr);
    return Looks(looks);
}

bool is_same(const Look &a, const Look &b)
{
    return std::strcmp(a.path, b.path) == 0 && a.is_there == b.is_there &&
           a.is_readable == b.is_readable && a.mtime == b.mtime && a.ctime == b.ctime &&
           a.size == b.size && a.device == b.device && a.inode == b.inode;
}

bool is_same(const Looks &a, const Looks &b)
{
    bool same = a.count() == b.count();
    for (int64_t i = 0; same && i < a.count(); ++i)
        same = is_same(a[i], b[i]);
    return same;
}

bool is_any_there(const Looks &looks)
{
    for (int64_t i = 0; i < looks.count(); ++i)
        if (looks[i].is_there)
            return true;
    return false;
}

// Whether a further change could leave the times as they were. A clock that lies ahead of
// ours, of another machine, tells nothing.
bool is_racy(const Look &look, double now)
{
    return look.is_there && !(look.ctime < now - kRacySeconds);
}

// How long a file must be left alone still before it counts as saved, 0 when it does.
double unrest(const Looks &looks, double now)
{
    double rest = 0;
    for (int64_t i = 0; i < looks.count(); ++i) {
        const double age = now - looks[i].changed;
        if (looks[i].is_there && age >= 0 && age < kQuietSeconds)
            rest = std::max(rest, kQuietSeconds - age);
    }
    return rest;
}

// The files once they have been left alone. False when they are not for long.
bool look_when_quiet(const char *name, Looks &looks)
{
    const double until = std_now() + kMostWaitSeconds;
    for (;;) {
        const double now = std_now();
        const double rest = unrest(looks, now);
        if (rest == 0)
            return true;
        if (now + rest > until)
            return false;
        snooze(rest + 0.005);
        looks = look_at(name);
    }
}

// ---- The text of a file ----

// Reads the whole file. False with errno when it can't be read. A pipe is not waited for.
bool read_text(const char *path, GrowingText &text)
{
    const Fd fd(beyond_standard(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)));
    if (fd.get() < 0)
        return false;
    char chunk[16384];
    for (;;) {
        const ssize_t got = uninterrupted([&] { return read(fd.get(), chunk, sizeof chunk); });
        if (got <= 0)
            return got == 0;
        text.add({chunk, static_cast<std::size_t>(got)});
    }
}

// FNV-1a of 64 bits; never 0.
uint64_t sum_of(std::string_view text)
{
    uint64_t sum = 0xcbf29ce484222325;
    for (const char c : text)
        sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    return sum | 1;
}

// Adds the sums of files that may change again unseen.
void add_sums(const Looks &looks)
{
    const KeepErrno keep;
    const double now = std_now();
    for (int64_t i = 0; i < looks.count(); ++i) {
        if (!is_racy(looks[i], now) || !looks[i].is_readable)
            continue;
        GrowingText text(0, "text", "pffollow");
        looks[i].sum = read_text(looks[i].path, text) ? sum_of(text.view()) : 1;
    }
}

// Whether a file whose times may hide a change has other bytes than it had. What need not be
// looked at again has no sum any more.
bool have_bytes_changed(const Looks &looks)
{
    const KeepErrno keep;
    for (int64_t i = 0; i < looks.count(); ++i) {
        Look &look = looks[i];
        if (look.sum == 0)
            continue;
        const bool is_last = !is_racy(look, std_now());
        GrowingText text(0, "text", "pffollow");
        const uint64_t sum = read_text(look.path, text) ? sum_of(text.view()) : 1;
        if (sum != std::exchange(look.sum, is_last ? 0 : sum))
            return true;
    }
    return false;
}

// The sink of the scanner that tells what is wrong with a text.
class Examiner {
public:
    enum class Value { one };

    explicit Examiner(Problems &problems, const char *path) : problems_(problems), path_(path) {}
    Examiner(const Examiner &) = delete;
    Examiner &operator=(const Examiner &) = delete;

    bool in_list() const { return depth_ > 0 && lists_[static_cast<std::size_t>(depth_ - 1)]; }
    int open_containers() const { return depth_; }

    void token() { token_line_ = line_; }
    void taken(const char *from, const char *to)
    {
        line_ += static_cast<int>(std::count(from, to, '\n'));
    }
    static void key(std::string_view) {}

    static Value no_text() { return Value::one; }
    static Value plain_text(std::string_view, std::size_t, bool) { return Value::one; }
    static Value literal(std::string_view, std::size_t) { return Value::one; }
    static Value function(std::string_view, bool) { return Value::one; }
    static void store(Value, int) {}
    static void undefine() {}

    void open(ContainerKind kind, int)
    {
        lines_[static_cast<std::size_t>(depth_)] = token_line_;
        lists_[static_cast<std::size_t>(depth_++)] = kind == ContainerKind::list;
    }
    void close() { --depth_; }

    static void start_gathering() {}
    static void gather(std::string_view) {}
    static std::string_view gathered() { return {}; }

    static void newline_missing() {}
    static void end_mark() {}
    void unfinished_literal() { problem(token_line_, "this literal is not closed"); }
    bool stray_brace(int)
    {
        problem(token_line_, "this '}' closes nothing");
        return false;
    }
    bool too_deep(int)
    {
        problem(token_line_, "more lists and tables around each other than are read");
        return false;
    }

    // Behind the scan.
    void end()
    {
        if (!found_ && depth_ > 0)
            problem(lines_[static_cast<std::size_t>(depth_ - 1)],
                    in_list() ? "this list is not closed" : "this table is not closed");
    }

    void problem(int line, const char *text)
    {
        FixedTextOf<24> number;
        number.number(line);
        GrowingText message(0, "problem", "pffollow");
        message.add(path_);
        message.add(":");
        message.add(number.view());
        message.add(": ");
        message.add(text);
        problems_.add(message.view());
        found_ = true;
    }

    int line() const { return line_; }
    bool found() const { return found_; }

private:
    Problems &problems_;
    const char *path_;
    int line_ = 1;  // where the scanner stands
    int token_line_ = 1;
    std::array<int, kMaxOpenContainers> lines_{};  // where the open ones begin
    std::array<bool, kMaxOpenContainers> lists_{};
    int depth_ = 0;
    bool found_ = false;
};

// Tells what keeps a file from being used.
void examine(const char *path, Problems &problems)
{
    GrowingText text(0, "text", "pffollow");
    errno = 0;
    if (!read_text(path, text)) {
        GrowingText message(0, "problem", "pffollow");
        message.add(path);
        message.add(": can't be read: ");
        message.add(std::strerror(errno));
        return problems.add(message.view());
    }
    Examiner examiner(problems, path);
    const std::size_t size = text.size();
    if (size == 0)
        return examiner.problem(1, "the file is empty");
    const bool has_end = text.view().back() == '\n';
    WholeText whole(text.c_str());
    const bool is_whole = whole.end() == text.c_str() + size;
    TextScanner(whole, examiner).scan();
    examiner.end();
    if (examiner.found())
        return;
    if (!is_whole)
        examiner.problem(examiner.line(), "a zero byte ends the text");
    else if (!has_end)
        examiner.problem(examiner.line(), "the last line has no newline: is it half saved?");
}

}  // namespace

// ---- Followers ----

struct Follower {
    const char *name;     // as lasting_name gives it
    const Pfwant *wants;  // borrowed
    Follower *next;
    Looks looks;      // of what was read last
    Pf *tree;         // owned: what the variables were read from, or null
    bool has_read;    // anything
    bool has_failed;  // the last time
};

namespace {

void free_follower(Follower *follower)
{
    pffree(follower->tree);
    follower->~Follower();
    std::free(follower);
}

// With Trees_mutex held.
Follower *find(const char *name, const Pfwant *wants)
{
    for (Follower *at = Followers; at; at = at->next)
        if (at->wants == wants && std::strcmp(at->name, name) == 0)
            return at;
    return nullptr;
}

Follower &follower_of(const char *name, const Pfwant *wants)
{
    {
        const std::scoped_lock lock(Trees_mutex);
        if (Follower *follower = find(name, wants))
            return *follower;
    }
    void *block = allocate(sizeof(Follower), "follower", "pffollow");
    auto *follower =
        new (block) Follower{lasting_name(name), wants, nullptr, {}, nullptr, false, false};
    const std::scoped_lock lock(Trees_mutex);
    follower->next = std::exchange(Followers, follower);
    return *follower;
}

// Reads the files into a tree; null with the problems told.
Pf *read_whole(const char *name, const Looks &looks)
{
    Problems problems(nullptr);
    if (!is_any_there(looks)) {
        GrowingText message(0, "problem", "pffollow");
        message.add("there is no parameter file ");
        message.add(name);
        problems.add(message.view());
        return nullptr;
    }
    for (int64_t i = 0; i < looks.count(); ++i)
        if (looks[i].is_there)
            examine(looks[i].path, problems);
    problems.finish();
    if (problems.count() > 0)
        return nullptr;
    Pf *tree = nullptr;
    const int result = pfread(name, &tree);
    // Files without a single key are as good as any.
    if (result == 0 || (result == -1 && tree->value.arr->root == rb_null))
        return tree;
    pffree(tree);
    return nullptr;
}

int follow(Follower &follower)
{
    Looks looks = look_at(follower.name);
    const bool changed = !follower.has_read || !is_same(looks, follower.looks);
    if (!changed && !have_bytes_changed(follower.looks))
        return 0;
    if (!look_when_quiet(follower.name, looks))
        return 0;
    add_sums(looks);
    Pf *tree = read_whole(follower.name, looks);
    if (tree && !is_same(look_at(follower.name), looks)) {
        pffree(tree);  // they changed meanwhile: the next call looks again
        return 0;
    }
    const bool is_first = !follower.tree;
    const bool was_failed = follower.has_failed;
    follower.looks = std::move(looks);
    follower.has_read = true;
    int changes = 0;
    if (!tree || read_wants(tree, follower.wants, is_first ? nullptr : &changes) != 0) {
        pffree(tree);
        follower.has_failed = true;
        return -1;
    }
    follower.has_failed = false;
    pffree(std::exchange(follower.tree, tree));
    return is_first || was_failed || changes > 0 ? 1 : 0;
}

}  // namespace

void forget_follower(const Pfwant *wants)
{
    Follower *forgotten = nullptr;
    {
        const std::scoped_lock lock(Trees_mutex);
        for (Follower **at = &Followers; *at;) {
            Follower *follower = *at;
            if (follower->wants != wants) {
                at = &follower->next;
                continue;
            }
            *at = follower->next;
            follower->next = std::exchange(forgotten, follower);
        }
    }
    while (forgotten)
        free_follower(std::exchange(forgotten, forgotten->next));
}

}  // namespace stock::want

int pffollow(const char *name, const Pfwant *wants)
{
    if (!name || !wants)
        return -1;
    const stock::KeepErrno keep;
    return stock::want::follow(stock::want::follower_of(name, wants));
}

Pf *pffollowed(const char *name, const Pfwant *wants)
{
    if (!name || !wants)
        return nullptr;
    const std::scoped_lock lock(stock::Trees_mutex);
    const stock::want::Follower *follower = stock::want::find(name, wants);
    return follower ? follower->tree : nullptr;
}
