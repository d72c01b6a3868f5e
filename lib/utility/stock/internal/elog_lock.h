// The log's lock: a thread that holds it goes on without waiting.

#pragma once

#include <mutex>

namespace stock::logging {

class HolderLock {
public:
    void lock()
    {
        mutex_.lock();
        ++depth_;
    }
    bool try_lock()
    {
        if (!mutex_.try_lock())
            return false;
        ++depth_;
        return true;
    }
    void unlock()
    {
        --depth_;
        mutex_.unlock();
    }

    // Gives the lock up altogether, however often this thread took it, and takes
    // it again as often.
    int release()
    {
        const int depth = depth_;
        depth_ = 0;
        for (int i = 0; i < depth; ++i)
            mutex_.unlock();
        return depth;
    }
    void retake(int depth)
    {
        for (int i = 0; i < depth; ++i)
            mutex_.lock();
        depth_ = depth;
    }

private:
    std::recursive_mutex mutex_;
    int depth_ = 0;  // how often its holder has taken it
};

using Holding = std::lock_guard<HolderLock>;

}  // namespace stock::logging
