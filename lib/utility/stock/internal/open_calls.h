// How deep a thread is in calls that lead back to themselves.

#pragma once

#include <array>
#include <cstdint>

namespace stock {

// The calls of one kind that are open in one thread.
//
// A prompt function, or a function of the user library, may leave by longjmp: then
// the calls it leaves never say that they end. So each call is known by the address of
// its stack frame. An open call lies above the one that asks, as stacks grow
// downwards: what lies at the same address or below is over.
class OpenCalls {
public:
    // The deepest that a kind of calls may go.
    static constexpr int kMost = 11;

    [[gnu::always_inline]] int count()
    {
        const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
        while (count_ > 0 && frames_[static_cast<std::size_t>(count_ - 1)] <= here)
            --count_;
        return count_;
    }

private:
    friend class OpenCall;

    int count_ = 0;
    std::array<uintptr_t, kMost> frames_{};
};

// Opens a call for its scope. There are fewer than kMost before it.
class OpenCall {
public:
    [[gnu::always_inline]] explicit OpenCall(OpenCalls &calls)
        : calls_(calls), before_(calls.count())
    {
        calls_.frames_[static_cast<std::size_t>(before_)] =
            reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
        calls_.count_ = before_ + 1;
    }
    ~OpenCall() { calls_.count_ = before_; }
    OpenCall(const OpenCall &) = delete;
    OpenCall &operator=(const OpenCall &) = delete;

private:
    OpenCalls &calls_;
    int before_;
};

}  // namespace stock
