// The state of the process that the parameter files have, in one place: pf_state.h says
// what each object holds and which lock guards it.

#include "pf/pf_state.h"

namespace stock {

constinit OrderedLock Pf_lock{Place::parse};
constinit std::atomic<int> Pf_busy{0};
constinit KeptBuffers Kept_buffers;

constinit OrderedLock Trees_mutex{Place::trees};
constinit KnownTrees Known_trees{};

constinit OrderedLock References_mutex{Place::references};
constinit ReferredFile *Idle_references = nullptr;

constinit ProgramFunctions Program_functions{};

constinit thread_local Evaluation This_evaluation{};
constinit thread_local Pf *Waiting_to_be_freed = nullptr;

}  // namespace stock
