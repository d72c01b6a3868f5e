// The state of the process that the parameter files have: all of it is defined in
// pf_state.cpp, and each object says here which lock guards it.

#pragma once

#include <cstddef>
#include <cstdint>

#include "base/ordered_lock.h"
#include "pf/open_calls.h"
#include "pf/parsing.h"  // Pf_busy
#include "pf/window.h"
#include "stock/pf.h"  // Pffilename, Pf_show_replacements

namespace stock {

// Guards Kept_buffers. A parse takes it for two short moments, when it begins and when it
// ends, and holds no lock in between: it reports to the log, it may read from a pipe that
// is filled late, and a program's log function may parse in turn.
extern OrderedLock Pf_lock;

// The buffers of the largest parse so far, which the next parse takes and gives back.
// They are never freed: memory that every parse needs would only be asked for again.
struct KeptBuffers {
    Buffer window;  // of the text that is read
    Buffer value;   // of a value that differs from how it is written
};
extern KeptBuffers Kept_buffers;  // guarded by Pf_lock

// Takes one of the kept buffers away, so that no other parse uses it meanwhile.
Buffer take_kept(Buffer &kept);

// Gives a buffer to the next parse: keeps the larger of the two and frees the other.
void keep(Buffer &kept, Buffer buffer);

// Guards Known_trees and want::Followers. It is held for moments only: files are read without
// it, and running out of memory is reported without it, for what that runs may free trees.
extern OrderedLock Trees_mutex;

struct KnownTree;  // pf/known.h says what the records are

// The trees that pfupdate and the registry know. The tables are made on first use and are
// never freed; the records are, when their tree or name goes.
struct KnownTrees {
    KnownTree *all;      // the tree with number n has the record n - 1
    int32_t room;        // records that `all` has memory for
    int32_t count;       // numbers that were ever given
    int32_t first_free;  // a number that was given back, or 0
    Arr *registry;       // of RegistryEntry *, by name
    Arr *variables;      // of UpdatedVariable *, by name and address of the variable
    Arr *names;          // whose keys are the names that trees borrow; it has no values
};
extern KnownTrees Known_trees;  // guarded by Trees_mutex

namespace want {

struct Follower;  // pffollow.cpp

// What pffollow keeps for each name and table, linked. The records are never moved, and only
// the thread that uses a table changes its record.
extern Follower *Followers;  // guarded by Trees_mutex

}  // namespace want

// Guards Idle_references.
extern OrderedLock References_mutex;

struct ReferredFile;  // pfinterpret.cpp

// The files that &ref( refers to and that no thread reads at the moment, with their trees;
// the last one used is the first. They are never freed.
extern ReferredFile *Idle_references;  // guarded by References_mutex

// The program's functions that pfconfig sets, before threads start; no lock guards them.
struct ProgramFunctions {
    void (*die)(Pf *pf, const char *address, int expected, int got, Pf **result);
    char *(*ask)(const char *prompt);
};
extern ProgramFunctions Program_functions;  // a null one has the default

// How deep this thread is in the evaluation of values.
struct Evaluation {
    OpenCalls expansions;      // calls of pfexpand; each but the first looks for a
                               // replacement in the text of the one before
    std::size_t nested_bytes;  // what replacements within replacements have come to since
                               // the outermost call
    OpenCalls references;      // references to other files
};
extern constinit thread_local Evaluation This_evaluation;

// Whether a text could not be read to its end, because the system refused.
extern constinit thread_local bool Read_failed;

// The containers and functions that this thread's pffree has still to free, linked by
// `parent`; null outside of it.
extern constinit thread_local Pf *Waiting_to_be_freed;

}  // namespace stock
