// How deep a thread is in calls of a function that leads back to itself.
//
// A prompt function, or a function of the user library, may leave by longjmp; then no
// destructor runs for the calls that it leaves. So each open call is known by the address of
// its stack frame. Stacks grow downwards: an open call lies above a new one, and when a call
// opens, those recorded at its address or below it are over.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace stock {

// The calls of one kind that are open in one thread, outermost first.
class OpenCalls {
public:
    // Calls that are recorded. Deeper ones do not count.
    static constexpr int kMost = 11;

    int count() const { return count_; }

private:
    friend class OpenCall;

    int count_ = 0;
    std::array<uintptr_t, kMost> frames_{};
};

// Records a call for its scope. The function that does so is marked noinline, so that each
// of its calls has a stack frame of its own.
class OpenCall {
public:
    [[gnu::always_inline]] explicit OpenCall(OpenCalls &calls) : calls_(calls)
    {
        const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
        int &count = calls.count_;
        while (count > 0 && calls.frames_[static_cast<std::size_t>(count - 1)] <= here)
            --count;
        before_ = count;
        if (count < OpenCalls::kMost)
            calls.frames_[static_cast<std::size_t>(count++)] = here;
    }
    ~OpenCall() { calls_.count_ = before_; }
    OpenCall(const OpenCall &) = delete;
    OpenCall &operator=(const OpenCall &) = delete;

    // How many calls were open before this one.
    int before() const { return before_; }

private:
    OpenCalls &calls_;
    int before_;
};

}  // namespace stock
