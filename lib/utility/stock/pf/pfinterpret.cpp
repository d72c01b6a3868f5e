// Functions of parameter files: &exec(, &glob(, &file( and the others.
//
// kFunctions has a row for each. The function of a row takes a FunctionCall and returns a new
// node, which pfinterpret keeps as the result of the function's node.

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
#include "base/descriptor.h"
#include "base/fixed_text.h"
#include "base/guards.h"
#include "base/limits.h"
#include "base/uninterrupted.h"
#include "log/reasons.h"
#include "pf/node.h"
#include "pf/open_calls.h"
#include "pf/pf_state.h"
#include "stock/datasearch.h"
#include "stock/elog.h"
#include "stock/expand_env.h"
#include "stock/mapfile.h"
#include "stock/path.h"
#include "stock/pushstr.h"
#include "stock/restat.h"
#include "stock/strings.h"
#include "stock/usermethod.h"

// A file that &ref( refers to, and its tree.
struct stock::ReferredFile {
    ReferredFile *next;  // on Idle_references
    Pf *tree;            // pfupdate keeps it up to date; it borrows `file` as its name
    char *file;          // owned: the name of the file
};

namespace {

using stock::Owned;
using stock::ReferredFile;

constexpr int kMaxEvaluations = 4;  // the fourth in a chain is one too many
constexpr int kMaxReferences = 10;  // &ref( within &ref(, each in a file of its own
static_assert(kMaxReferences < stock::OpenCalls::kMost);
constexpr std::size_t kReferenceErrorSize = 1024;  // of a text that says why there is no value

// A function of a parameter file that is evaluated.
struct FunctionCall {
    Pf *node;
    const char *text;      // of the node, its references expanded
    const char *argument;  // the text between the first "(" and the last ")"
};

// A node that takes over the text, which malloc made.
Pf *text_node(char *owned, int type = PFSTRING)
{
    Pf *node = pfnew(type);
    node->value.s = owned;
    return node;
}

// A node with a copy of the text; null is the empty text.
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

// Empty when there is no pair of parentheses.
Owned<char> argument_of(std::string_view text)
{
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    const bool has = open != text.npos && close != text.npos && close > open;
    return Owned<char>(
        stock::copy_view(has ? text.substr(open + 1, close - open - 1) : "", "pf->value.s"));
}

// ---- Commands, patterns and the environment ----

// A command that the shell runs, and a stream of what it prints. Waits for its end.
class ShellCommand {
public:
    explicit ShellCommand(const char *line)
    {
        const stock::StandardOccupied occupied;
        stream_ = popen(line, "re");
    }
    ~ShellCommand() { close(); }
    ShellCommand(const ShellCommand &) = delete;
    ShellCommand &operator=(const ShellCommand &) = delete;

    // Null when the command could not be started.
    FILE *stream() const { return stream_; }

    // Waits for the end. Returns the status as wait gives it; 0 of a command not started.
    int close()
    {
        FILE *stream = std::exchange(stream_, nullptr);
        return stream ? pclose(stream) : 0;
    }

private:
    FILE *stream_;
};

// The output of the command up to a zero byte. All of it is read, so that a full pipe never
// stops the command.
char *output_of(const ShellCommand &command)
{
    const int fd = fileno(command.stream());
    void *stack = nullptr;
    char chunk[4096];
    bool ended = false;  // a zero byte was read
    ssize_t got = 0;
    while ((got = stock::uninterrupted([&] { return read(fd, chunk, sizeof chunk); })) > 0) {
        if (ended)
            continue;
        pushstrn(&stack, chunk, got);
        ended = std::memchr(chunk, 0, static_cast<std::size_t>(got)) != nullptr;
    }
    return popstr(&stack, 1);
}

// Ends as PFEXEC_ERROR when the command's status is not 0. Without its last newline.
Pf *call_exec(const FunctionCall &call)
{
    ShellCommand command(call.argument);
    if (!command.stream())
        return copied_node("");
    char *output = output_of(command);
    chomp(output);
    return text_node(output, command.close() == 0 ? PFSTRING : PFEXEC_ERROR);
}

// A list of the paths that match, which may be empty.
Pf *call_glob(const FunctionCall &call)
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

Pf *call_env(const FunctionCall &call)
{
    return copied_node(std::getenv(call.argument));
}

// ---- Files ----

// The contents of a file up to a zero byte; null after logging. The cache of mappings is this
// call's own, so that each evaluation sees the file as it is then.
char *contents_of(const char *path)
{
    Arr *cache = newarr(nullptr);
    void *address = nullptr;
    const int64_t size = mapfile(path, &address, cache);
    char *text = nullptr;
    if (size >= 0) {
        const auto *bytes = static_cast<const char *>(address);
        text = stock::copy_view({bytes, strnlen(bytes, static_cast<std::size_t>(size))},
                                "pf->value.s");
    }
    unmaparr(cache);
    freearr(cache, std::free);
    return text;
}

// The path that the argument names. A relative one starts in the directory of the file that
// the function stands in, which the scanner left in the function's hook.
Owned<char> path_of(const FunctionCall &call)
{
    Owned<char> name(expand_env(call.argument));
    const Hook *hook = call.node->value.pffunct->hook;
    const auto *file = hook ? static_cast<const char *>(hook->pvt) : nullptr;
    if (*name == '/' || !file || std::strlen(file) >= stock::kPathSize)
        return name;
    char dir[stock::kPathSize];
    char base[stock::kPathSize];
    parsepath(file, dir, base, nullptr);
    return Owned<char>(concatpaths(dir, name.get(), nullptr));
}

// A text node with the contents of the file, or with the messages that say why there are none.
Pf *contents_or_reasons(const char *path)
{
    stock::Reasons reasons;
    if (char *text = contents_of(path))
        return text_node(text);
    return text_node(strconcat("** ", reasons.take().get(), nullptr));
}

Pf *call_file(const FunctionCall &call)
{
    return contents_or_reasons(path_of(call).get());
}

Pf *call_filename(const FunctionCall &call)
{
    return text_node(path_of(call).release());
}

Pf *call_datafile(const FunctionCall &call)
{
    stock::Reasons reasons;
    const Owned<char> path(datafile("", call.argument));
    if (path)
        return contents_or_reasons(path.get());
    reasons.take();  // off the log: the text that follows says it all
    return text_node(strconcat("** no datafile '", call.argument, "' found", nullptr));
}

Pf *call_datafilename(const FunctionCall &call)
{
    const Owned<char> path(datafile("", call.argument));
    return copied_node(path.get());
}

// ---- References to other files ----

// Takes a file off Idle_references, or makes it, for as long as this object lives. So each
// thread has a tree of its own, and no lock is held while the tree is read: a file may refer
// to itself, and two threads' files to each other.
class ReferenceInUse {
public:
    explicit ReferenceInUse(const char *file) : used_(take(file)) {}
    ~ReferenceInUse()
    {
        const std::scoped_lock lock(stock::References_mutex);
        used_->next = std::exchange(stock::Idle_references, used_);
    }
    ReferenceInUse(const ReferenceInUse &) = delete;
    ReferenceInUse &operator=(const ReferenceInUse &) = delete;

    // The tree as its files are now; null when they cannot be read.
    Pf *tree() { return pfupdate(used_->file, &used_->tree) < 0 ? nullptr : used_->tree; }

private:
    static ReferredFile *take(const char *file)
    {
        if (ReferredFile *idle = take_idle(file))
            return idle;
        auto *made =
            static_cast<ReferredFile *>(stock::allocate_zeroed(sizeof(ReferredFile), "referred"));
        made->file = stock::copy_text(file, "referred->file");
        return made;
    }

    static ReferredFile *take_idle(const char *file)
    {
        const std::scoped_lock lock(stock::References_mutex);
        ReferredFile **link = &stock::Idle_references;
        while (*link && std::strcmp((*link)->file, file) != 0)
            link = &(*link)->next;
        return *link ? std::exchange(*link, (*link)->next) : nullptr;
    }

    ReferredFile *used_;
};

// A node of the type PFINVALID with the text that the format makes of the function, cut to
// its size.
Pf *reference_error(const char *format, const FunctionCall &call)
{
    const std::string_view text = without_tail(call.text);
    stock::FixedTextOf<kReferenceErrorSize> error;
    error.addf(format, static_cast<int>(text.size()), text.data());
    return copied_node(error.c_str(), PFINVALID);
}

// A copy of the node at an address of a file, or a node that says why there is none.
[[gnu::noinline]] Pf *resolved(const char *file, const char *address, const FunctionCall &call)
{
    const stock::OpenCall open(stock::This_evaluation.references);
    if (open.before() >= kMaxReferences)
        return copied_node("pf recursion too deep");
    ReferenceInUse reference(file);
    Pf *tree = reference.tree();
    if (!tree)
        return reference_error("** referenced pf file not found: '%.*s' **", call);
    Pf *node = nullptr;
    _pfeval(tree, address, &node, PFANY);
    return node ? pfdup(node) : reference_error("** reference not resolved: '%.*s' **", call);
}

Pf *call_ref(const FunctionCall &call)
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

// The prompt for the user:
//
//     &ask(rain today?)        rain today?
//     &ask() # rain today?     " rain today?", which begins behind the "#"
//     &asking(rain)            &asking(rain
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
    return Owned<char>(stock::copy_view(text, "pf->value.s"));
}

// Opens the terminal of the process in a mode of fopen. Null without a terminal.
stock::OwnedStream terminal(const char *mode)
{
    const stock::StandardOccupied occupied;
    return stock::OwnedStream(std::fopen("/dev/tty", mode));
}

// One line without its newline, at most 1023 bytes; the empty text at the end of the file.
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
        const stock::OwnedStream out = terminal("we");
        if (!out)
            elog_die(1, "Can't open /dev/tty for prompt.\n");
        std::fprintf(out.get(), "%s : ", prompt);
    }
    const stock::OwnedStream in = terminal("re");
    return in ? line_of(in.get()) : stock::copy_text("", "pf->value.s");
}

Pf *call_ask(const FunctionCall &call)
{
    const Owned<char> prompt = prompt_of(call.text);
    const auto ask = stock::Program_functions.ask;
    char *answer = ask ? ask(prompt.get()) : ask_terminal(prompt.get());
    return answer ? text_node(answer) : copied_node("");
}

// ---- The table ----

Pf *call_undef(const FunctionCall &)
{
    return nullptr;
}

Pf *call_user(const FunctionCall &call)
{
    using UserFunction = Pf *(*)(const char *text);
    if (auto function = reinterpret_cast<UserFunction>(usermethod("pfuser")))
        return function(call.text);
    return pfnew(PFINVALID);
}

struct FunctionRow {
    std::string_view prefix;  // of the text
    Pf *(*call)(const FunctionCall &call);
};

// First row that fits wins; the last fits all.
// clang-format off
constexpr FunctionRow kFunctions[] = {
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
    // A copy, for the evaluation may come back to this node and free the node's text.
    const Owned<char> own(stock::copy_text(text, "text"));
    const Owned<char> argument = argument_of(own.get());
    const auto *function =
        std::find_if(std::begin(kFunctions), std::end(kFunctions), [&](const FunctionRow &row) {
            return std::string_view(own.get()).substr(0, row.prefix.size()) == row.prefix;
        });
    return function->call({node, own.get(), argument.get()});
}

// Evaluates the node, then its result as long as that is a function.
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
