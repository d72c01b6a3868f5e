// The calling thread's stack as text.
//
// The lines are laid out here as backtrace_symbols lays them out, one at a time in a
// buffer on the stack: that function allocates, and the heap may be what is broken.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <unistd.h>

#include "base/guards.h"
#include "deviants.h"
#include "deviants/fault.h"
#include "deviants/system.h"

namespace stock {

constinit thread_local void *Trace_after = nullptr;
constinit thread_local int Trace_handlers = 0;
constinit thread_local Attempt Try_on_heap = nullptr;

namespace {

constexpr int kFrames = 128;
constexpr std::size_t kLineSize = 2048;
constexpr std::size_t kNameSize = 1024;
constexpr std::string_view kHeading = "\n\nStack\n";

struct Stack {
    void *addresses[kFrames];
    int count;
    int first;  // those before are the tracer's own
};

// The position of an address among those of the stack from start on, or -1.
int position(const Stack &stack, const void *address, int start = 0)
{
    void *const *end = stack.addresses + stack.count;
    void *const *found = std::find(stack.addresses + start, end, address);
    return found == end ? -1 : static_cast<int>(found - stack.addresses);
}

// The position behind the handler of the fault, or 0.
int position_of_fault(const Stack &stack)
{
    int fault = 0;
    for (int handler = 0; handler <= Trace_handlers; ++handler)
        if (const int found = position(stack, Trace_after, fault); found >= 0)
            fault = found + 1;
    return fault;
}

// Takes the stack, which begins with the function that called the tracer.
[[gnu::noinline]] void take(Stack &stack, const void *caller)
{
    stack.count = backtrace(stack.addresses, kFrames);
    stack.first = std::max(position(stack, caller), 0);
    if (Trace_after)
        stack.first = std::max(stack.first, position_of_fault(stack));
    if (stack.first >= stack.count)
        stack.first = 0;
}

struct Demangling {
    const char *name;
    char *text;  // kNameSize bytes
};

void demangle(void *argument)
{
    const auto *job = static_cast<const Demangling *>(argument);
    int status = 0;
    char *plain = abi::__cxa_demangle(job->name, nullptr, nullptr, &status);
    if (!plain)
        return;
    std::snprintf(job->text, kNameSize, "%s", plain);
    std::free(plain);
}

// The name as it is written in C++, in a buffer of kNameSize bytes; other names as they are.
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
std::string_view line(const Stack &stack, int i, char *buffer)
{
    const void *address = stack.addresses[i];
    Frame frame = {i - stack.first, address, nullptr, nullptr, 0};
    Dl_info info;
    char name[kNameSize];
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

// What is left of a buffer that is filled from its start.
struct Room {
    char *at;
    std::size_t size;

    void add(std::string_view text)
    {
        at += text.copy(at, text.size());
        size -= text.size();
    }
};

// Adds a line while it fits, else as much of it as does. False when the text is at its end.
bool add_line(Room &room, std::string_view text)
{
    const bool whole = room.size >= text.size() + 2;
    if (!whole && room.size < 2)
        return false;
    room.add(whole ? text : text.substr(0, room.size - 2));
    room.add("\n");
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
    Stack stack;
    take(stack, __builtin_return_address(0));
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
    Stack stack;
    take(stack, __builtin_return_address(0));
    std::memset(buffer, 0, static_cast<std::size_t>(size));
    Room room{buffer, static_cast<std::size_t>(size)};
    const bool heading = room.size > kHeading.size();
    room.add(kHeading.substr(0, room.size - 1));
    char text[kLineSize];
    for (int i = stack.first; heading && i < stack.count; ++i)
        if (!add_line(room, line(stack, i, text)))
            break;
}
