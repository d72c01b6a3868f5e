// The state of the process that the parameter files have, in one place: pf_state.h says
// what each object holds and which lock guards it.

#include "pf/pf_state.h"

#include <cstdlib>
#include <mutex>
#include <utility>

// The name of what a thread's next pfinfd reads: each thread has its own.
__thread const char *Pffilename = nullptr;

// Set by a program while no thread parses, so no lock guards it.
int Pf_show_replacements = 0;

namespace stock {

constinit thread_local int Parses_of_thread = 0;
constinit std::atomic<int> Pf_busy{0};
// The child of a fork runs no parse of another thread.
constinit OrderedLock Pf_lock{Place::parse, [] { Pf_busy = Parses_of_thread; }};
constinit KeptBuffers Kept_buffers;

constinit OrderedLock Trees_mutex{Place::trees};
constinit KnownTrees Known_trees{};

constinit OrderedLock References_mutex{Place::references};
constinit ReferredFile *Idle_references = nullptr;

constinit ProgramFunctions Program_functions{};

constinit thread_local Evaluation This_evaluation{};
constinit thread_local bool Read_failed = false;
constinit thread_local Pf *Waiting_to_be_freed = nullptr;

Buffer take_kept(Buffer &kept)
{
    const std::scoped_lock lock(Pf_lock);
    return std::exchange(kept, {});
}

void keep(Buffer &kept, Buffer buffer)
{
    {
        const std::scoped_lock lock(Pf_lock);
        if (kept.size < buffer.size)
            std::swap(kept, buffer);
    }
    std::free(buffer.bytes);
}

}  // namespace stock

namespace stock::want {

constinit Follower *Followers = nullptr;

}  // namespace stock::want
