// How deep a thread is in calls that lead back to themselves.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace stock {

// The calls of one kind that are open in one thread.
//
// A prompt function, or a function of the user library, may leave by longjmp: then
// the calls it leaves never say that they end. So each call is known by the address of
// its stack frame. An open call lies above a new one, as stacks grow downwards: when a
// call opens, those at the same address or below are over.
class OpenCalls {
public:
    // So many calls are known by their address.
    static constexpr int kMost = 11;

    int count() const { return count_; }

private:
    friend class OpenCall;

    int count_ = 0;
    std::array<uintptr_t, kMost> frames_{};
};

// Opens a call for its scope. The function that does so is marked noinline: each call
// of it has a frame of its own then.
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

    // How many were open before.
    int before() const { return before_; }

private:
    OpenCalls &calls_;
    int before_;
};

}  // namespace stock
