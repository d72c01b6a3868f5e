// Functions of parameter files: &exec(, &glob(, &file( and the others.
//
// Each is a row of one table; a function takes the text and gives a new node.

#include "stock/pf.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

#include <glob.h>
#include <unistd.h>

#include "base/alloc.h"
#include "base/ordered_lock.h"
#include "base/uninterrupted.h"
#include "log/reasons.h"
#include "pf/open_calls.h"
#include "pf/value.h"
#include "stock/datasearch.h"
#include "stock/elog.h"
#include "stock/expand_env.h"
#include "stock/mapfile.h"
#include "stock/path.h"
#include "stock/pushstr.h"
#include "stock/restat.h"
#include "stock/strings.h"
#include "stock/usermethod.h"

namespace {

using stock::Owned;

constexpr int kMaxEvaluations = 4;  // the fourth in a chain is one too many
constexpr int kMaxReferences = 10;  // files that refer to files that refer to files
static_assert(kMaxReferences < stock::OpenCalls::kMost);
constexpr std::size_t kMaxError = 1023;
constexpr int kPathSize = 1024;

// A function that is being evaluated.
struct Call {
    Pf *node;
    const char *text;      // with its references expanded
    const char *argument;  // what stands between the first "(" and the last ")"
};

Pf *text_node(char *owned, int type = PFSTRING)
{
    Pf *node = pfnew(type);
    node->value.s = owned;
    return node;
}

Pf *copied_node(const char *text, int type = PFSTRING)
{
    return text_node(stock::copy_text(text ? text : "", "pf->value.s"), type);
}

// The text without the blanks and newlines behind it.
std::string_view without_tail(std::string_view text)
{
    const std::size_t last = text.find_last_not_of(" \t\n");
    return text.substr(0, last == text.npos ? 0 : last + 1);
}

char *copy_view(std::string_view text)
{
    auto *copy = static_cast<char *>(stock::allocate(text.size() + 1, "pf->value.s"));
    copy[text.copy(copy, text.size())] = 0;
    return copy;
}

Owned<char> argument_of(std::string_view text)
{
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    const bool has = open != text.npos && close != text.npos && close > open;
    return Owned<char>(copy_view(has ? text.substr(open + 1, close - open - 1) : ""));
}

// ---- Commands, patterns and the environment ----

class Command {
public:
    explicit Command(const char *line) : stream_(popen(line, "re")) {}
    ~Command() { close(); }
    Command(const Command &) = delete;
    Command &operator=(const Command &) = delete;

    FILE *stream() const { return stream_; }

    // The status as wait gives it; 0 when the command was not started.
    int close()
    {
        FILE *stream = std::exchange(stream_, nullptr);
        return stream ? pclose(stream) : 0;
    }

private:
    FILE *stream_;
};

// Reads all that the command prints, so that it is never stopped by a full pipe.
char *output_of(const Command &command)
{
    const int fd = fileno(command.stream());
    void *stack = nullptr;
    char chunk[4096];
    bool ended = false;  // by a zero byte
    ssize_t got = 0;
    while ((got = stock::uninterrupted([&] { return read(fd, chunk, sizeof chunk); })) > 0) {
        if (ended)
            continue;
        pushstrn(&stack, chunk, got);
        ended = std::memchr(chunk, 0, static_cast<std::size_t>(got)) != nullptr;
    }
    return popstr(&stack, 1);
}

Pf *call_exec(const Call &call)
{
    Command command(call.argument);
    if (!command.stream())
        return copied_node("");
    char *output = output_of(command);
    chomp(output);
    return text_node(output, command.close() == 0 ? PFSTRING : PFEXEC_ERROR);
}

Pf *call_glob(const Call &call)
{
    Pf *list = pfnew(PFTBL);
    glob_t found{};
    if (glob(call.argument, 0, nullptr, &found) == 0) {
        for (std::size_t i = 0; i < found.gl_pathc; ++i) {
            Pf *name = copied_node(found.gl_pathv[i]);
            name->parent = list;
            pushtbl(list->value.tbl, name);
        }
    }
    globfree(&found);
    return list;
}

Pf *call_env(const Call &call)
{
    return copied_node(std::getenv(call.argument));
}

// ---- Files ----

// The contents of a file, or null after logging. The mapping is this call's own:
// the next evaluation sees the file as it is then.
char *contents_of(const char *path)
{
    Arr *cache = newarr(nullptr);
    void *address = nullptr;
    const int64_t size = mapfile(path, &address, cache);
    char *text = nullptr;
    if (size >= 0) {
        const auto *bytes = static_cast<const char *>(address);
        text = copy_view({bytes, strnlen(bytes, static_cast<std::size_t>(size))});
    }
    unmaparr(cache);
    freearr(cache, std::free);
    return text;
}

// The path that the argument names, seen from the file that holds the function.
Owned<char> path_of(const Call &call)
{
    Owned<char> name(expand_env(call.argument));
    const Hook *hook = call.node->value.pffunct->hook;
    const auto *file = hook ? static_cast<const char *>(hook->pvt) : nullptr;
    if (*name == '/' || !file || std::strlen(file) >= kPathSize)
        return name;
    char dir[kPathSize];
    char base[kPathSize];
    parsepath(file, dir, base, nullptr);
    return Owned<char>(concatpaths(dir, name.get(), nullptr));
}

Pf *contents_or_reasons(const char *path)
{
    stock::Reasons reasons;
    if (char *text = contents_of(path))
        return text_node(text);
    return text_node(strconcat("** ", reasons.take().get(), nullptr));
}

Pf *call_file(const Call &call)
{
    return contents_or_reasons(path_of(call).get());
}

Pf *call_filename(const Call &call)
{
    return text_node(path_of(call).release());
}

Pf *call_datafile(const Call &call)
{
    stock::Reasons reasons;
    const Owned<char> path(datafile("", call.argument));
    if (path)
        return contents_or_reasons(path.get());
    reasons.take();
    return text_node(strconcat("** no datafile '", call.argument, "' found", nullptr));
}

Pf *call_datafilename(const Call &call)
{
    const Owned<char> path(datafile("", call.argument));
    return copied_node(path.get());
}

// ---- References to other files ----

// A file that is referred to, with a tree of its own. It lives as long as the process.
struct Referred {
    Referred *next;  // another that is not in use
    Pf *tree;        // what pfupdate keeps up to date
    char *file;      // the name of the file, which the tree borrows
};

constinit stock::OrderedLock References_mutex{stock::Place::references};
Referred *Idle = nullptr;  // the last one used is the first

thread_local stock::OpenCalls References_open;

// Takes a tree of the file off the list for as long as it lives, so that no lock
// is held while the tree is read: a file may refer to itself, and threads to each
// other's files.
class Lease {
public:
    explicit Lease(const char *file) : referred_(take(file)) {}
    ~Lease()
    {
        const std::scoped_lock lock(References_mutex);
        referred_->next = std::exchange(Idle, referred_);
    }
    Lease(const Lease &) = delete;
    Lease &operator=(const Lease &) = delete;

    // The tree as its files are now; null when they cannot be read.
    Pf *tree()
    {
        return pfupdate(referred_->file, &referred_->tree) < 0 ? nullptr : referred_->tree;
    }

private:
    static Referred *take(const char *file)
    {
        if (Referred *idle = take_idle(file))
            return idle;
        auto *made = static_cast<Referred *>(stock::allocate_zeroed(sizeof(Referred), "referred"));
        made->file = stock::copy_text(file, "referred->file");
        return made;
    }

    static Referred *take_idle(const char *file)
    {
        const std::scoped_lock lock(References_mutex);
        Referred **link = &Idle;
        while (*link && std::strcmp((*link)->file, file) != 0)
            link = &(*link)->next;
        return *link ? std::exchange(*link, (*link)->next) : nullptr;
    }

    Referred *referred_;
};

Pf *reference_error(const char *format, const Call &call)
{
    const std::string_view text = without_tail(call.text);
    char error[kMaxError + 1];
    std::snprintf(error, sizeof error, format, static_cast<int>(text.size()), text.data());
    return copied_node(error, PFINVALID);
}

[[gnu::noinline]] Pf *resolved(const char *file, const char *address, const Call &call)
{
    const stock::OpenCall open(References_open);
    if (open.before() >= kMaxReferences)
        return copied_node("pf recursion too deep");
    Lease lease(file);
    Pf *tree = lease.tree();
    if (!tree)
        return reference_error("** referenced pf file not found: '%.*s' **", call);
    Pf *node = nullptr;
    _pfeval(tree, address, &node, PFANY);
    return node ? pfdup(node) : reference_error("** reference not resolved: '%.*s' **", call);
}

Pf *call_ref(const Call &call)
{
    const Owned<char> file(stock::copy_text(call.argument, "pf->value.s"));
    char *comma = std::strchr(file.get(), ',');
    char *address = comma ? comma + 1 : file.get() + std::strlen(file.get());
    if (comma)
        *comma = 0;
    strtrim(file.get());
    strtrim(address);
    if (!*file)
        return reference_error("** missing pf name in reference: '%.*s' **", call);
    return resolved(file.get(), address, call);
}

// ---- Questions to the user ----

// What the user is asked: a comment behind empty parentheses, what stands in them,
// or the whole text.
Owned<char> prompt_of(std::string_view text)
{
    constexpr std::string_view kAsk = "&ask(";
    text = without_tail(text);
    if (text.substr(0, kAsk.size()) == kAsk) {
        const std::size_t hash = text.find('#');
        if (text.substr(kAsk.size(), 1) == ")")
            text.remove_prefix(hash == text.npos ? text.size() : hash + 1);
        else
            text = text.substr(kAsk.size(), text.find(')') - kAsk.size());
    }
    if (!text.empty() && text.back() == ')')
        text.remove_suffix(1);
    return Owned<char>(copy_view(text));
}

class Terminal {
public:
    explicit Terminal(const char *mode) : stream_(std::fopen("/dev/tty", mode)) {}
    ~Terminal()
    {
        if (stream_)
            std::fclose(stream_);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    FILE *stream() const { return stream_; }

private:
    FILE *stream_;
};

// One line without its newline; nothing at the end of the file.
char *line_of(FILE *stream)
{
    char line[1024] = "";
    while (!std::fgets(line, sizeof line, stream) && std::ferror(stream) && errno == EINTR)
        std::clearerr(stream);
    chomp(line);
    return stock::copy_text(line, "pf->value.s");
}

char *ask_terminal(const char *prompt)
{
    {
        const Terminal out("we");
        if (!out.stream())
            elog_die(1, "Can't open /dev/tty for prompt.\n");
        std::fprintf(out.stream(), "%s : ", prompt);
    }
    const Terminal in("re");
    return in.stream() ? line_of(in.stream()) : stock::copy_text("", "pf->value.s");
}

Pf *call_ask(const Call &call)
{
    const Owned<char> prompt = prompt_of(call.text);
    const auto ask = stock::prompt_function();
    char *answer = ask ? ask(prompt.get()) : ask_terminal(prompt.get());
    return answer ? text_node(answer) : copied_node("");
}

// ---- The table ----

Pf *call_undef(const Call &)
{
    return nullptr;
}

Pf *call_user(const Call &call)
{
    using User = Pf *(*)(const char *text);
    if (auto user = reinterpret_cast<User>(usermethod("pfuser")))
        return user(call.text);
    return pfnew(PFINVALID);
}

struct Function {
    std::string_view prefix;
    Pf *(*call)(const Call &call);
};

// First row that fits wins; the last fits all.
// clang-format off
constexpr Function kFunctions[] = {
    {"&exec(",         call_exec},
    {"&glob(",         call_glob},
    {"&file(",         call_file},
    {"&datafile(",     call_datafile},
    {"&filename(",     call_filename},
    {"&datafilename(", call_datafilename},
    {"&env(",          call_env},
    {"&ref(",          call_ref},
    {"&ask",           call_ask},
    {"&undef(",        call_undef},
    {"",               call_user},
};
// clang-format on

Pf *evaluate(Pf *node)
{
    const char *text = pfexpand(node);
    if (!text)
        text = "";
    // The text is the node's, and an evaluation may come back to the node.
    const Owned<char> own(stock::copy_text(text, "text"));
    const Owned<char> argument = argument_of(own.get());
    const auto *function =
        std::find_if(std::begin(kFunctions), std::end(kFunctions), [&](const Function &row) {
            return std::string_view(own.get()).substr(0, row.prefix.size()) == row.prefix;
        });
    return function->call({node, own.get(), argument.get()});
}

// Evaluates until there is no function any more.
//
// Meant: a fourth evaluation is thrown away, even when it gives no function.
Pf *evaluate_chain(Pf *node)
{
    Pf *result = evaluate(node);
    for (int made = 1; result && result->type == PFFUNCTION; ++made) {
        Pf *next = evaluate(result);
        pffree(std::exchange(result, next));
        if (made + 1 == kMaxEvaluations) {
            pffree(result);
            return copied_node("pf recursion too deep");
        }
    }
    return result;
}

}  // namespace

Pf *pfinterpret(Pf *function)
{
    if (!function || function->type != PFFUNCTION || !function->value.pffunct)
        return nullptr;
    Pf *result = evaluate_chain(function);
    pffree(std::exchange(function->value.pffunct->result, result));
    return result;
}
