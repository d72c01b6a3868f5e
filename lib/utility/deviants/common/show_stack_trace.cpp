// show_stack_trace: the calling thread's stack as text.
//
// The lines look as backtrace_symbols prints them. That function allocates, which a process
// whose heap is broken cannot do; here each line is built in a buffer on the stack.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <unistd.h>

#include "base/fixed_text.h"
#include "base/guards.h"
#include "deviants.h"
#include "deviants/fault.h"
#include "deviants/system.h"

namespace stock {

constinit thread_local void *Trace_after = nullptr;
constinit thread_local int Trace_handlers = 0;
constinit thread_local Attempt Try_on_heap = nullptr;

namespace {

constexpr int kMaxFrames = 128;
constexpr std::size_t kLineSize = 2048;
constexpr std::size_t kFunctionNameSize = 1024;
constexpr std::string_view kHeading = "\n\nStack\n";

// The return addresses of the stack, innermost call first.
struct CallStack {
    void *addresses[kMaxFrames];
    int count;
    int first;  // where the trace begins; the functions before are the tracer's own
};

// The index of an address in the stack, searched from `start` on, or -1.
int index_of(const CallStack &stack, const void *address, int start = 0)
{
    void *const *end = stack.addresses + stack.count;
    void *const *found = std::find(stack.addresses + start, end, address);
    return found == end ? -1 : static_cast<int>(found - stack.addresses);
}

// The index behind the handler of the fault, see deviants/fault.h; 0 when there is none.
int index_of_fault(const CallStack &stack)
{
    int fault = 0;
    for (int handler = 0; handler <= Trace_handlers; ++handler)
        if (const int found = index_of(stack, Trace_after, fault); found >= 0)
            fault = found + 1;
    return fault;
}

// Reads the stack. The trace begins with `caller`, which called the tracer, or with the fault.
// Not inlined, so that its own frame does not depend on the optimiser.
[[gnu::noinline]] void read_stack(CallStack &stack, const void *caller)
{
    stack.count = backtrace(stack.addresses, kMaxFrames);
    stack.first = std::max(index_of(stack, caller), 0);
    if (Trace_after)
        stack.first = std::max(stack.first, index_of_fault(stack));
    if (stack.first >= stack.count)
        stack.first = 0;
}

// The argument of demangle.
struct Demangling {
    const char *name;
    char *text;  // kFunctionNameSize bytes
};

// Writes the demangled name; leaves the text alone when there is none. It uses the heap.
void demangle(void *argument)
{
    const auto *job = static_cast<const Demangling *>(argument);
    int status = 0;
    char *plain = abi::__cxa_demangle(job->name, nullptr, nullptr, &status);
    if (!plain)
        return;
    std::snprintf(job->text, kFunctionNameSize, "%s", plain);
    std::free(plain);
}

// A name of C++ as sources write it, in `text`, a buffer of kFunctionNameSize bytes. Other names,
// and those that cannot be demangled, as they are.
const char *plain_name(const char *name, char *text)
{
    *text = '\0';
    Demangling job = {name, text};
    if (std::strncmp(name, "_Z", 2) != 0)
        return name;
    if (!Try_on_heap)
        demangle(&job);
    else if (!Try_on_heap(demangle, &job))
        return name;
    return *text ? text : name;
}

// Line i of the trace, without a newline, in a buffer of kLineSize bytes.
std::string_view line(const CallStack &stack, int i, char *buffer)
{
    const void *address = stack.addresses[i];
    Frame frame = {i - stack.first, address, nullptr, nullptr, 0};
    Dl_info info;
    char name[kFunctionNameSize];
    if (dladdr(address, &info) && info.dli_fname && *info.dli_fname) {
        const void *start = info.dli_sname ? info.dli_saddr : loaded_at(address);
        frame.image = info.dli_fname;
        frame.name = info.dli_sname ? plain_name(info.dli_sname, name) : nullptr;
        frame.offset = static_cast<std::size_t>(static_cast<const char *>(address) -
                                                static_cast<const char *>(start));
    }
    const int length = frame_text(frame, buffer, kLineSize);
    return {buffer, std::min(static_cast<std::size_t>(std::max(length, 0)), kLineSize - 1)};
}

void print(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stderr);
}

// Adds a line, cut so that its newline fits. False when the text is full, so that no further
// line is added.
bool add_line(FixedText &text, std::string_view line)
{
    const bool whole = text.room() > line.size();
    if (text.room() == 0)
        return false;
    text.add(line.substr(0, text.room() - 1));
    text.add('\n');
    return whole;
}

}  // namespace

void prepare_stack_trace()
{
    void *address = nullptr;
    backtrace(&address, 1);
}

}  // namespace stock

using namespace stock;

void show_stack_trace(void)
{
    const KeepErrno keep;
    CallStack stack;
    read_stack(stack, __builtin_return_address(0));
    std::fflush(stderr);
    // A single write: the heading stands together whatever other threads print.
    (void)!::write(STDERR_FILENO, kHeading.data(), kHeading.size());
    char buffer[kLineSize];
    for (int i = stack.first; i < stack.count; ++i) {
        print(line(stack, i, buffer));
        print("\n");
    }
    std::fflush(stderr);
}

void show_stack_trace_string(int size, char *buffer)
{
    if (size <= 0 || !buffer)
        return;
    const KeepErrno keep;
    CallStack stack;
    read_stack(stack, __builtin_return_address(0));
    std::memset(buffer, 0, static_cast<std::size_t>(size));
    FixedText text(buffer, static_cast<std::size_t>(size));
    text.add(kHeading);
    const bool heading = text.size() == kHeading.size();
    char one[kLineSize];
    for (int i = stack.first; heading && i < stack.count; ++i)
        if (!add_line(text, line(stack, i, one)))
            break;
}
