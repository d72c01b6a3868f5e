// Allocation that fails when told to. Only for the tests named *_oom_test.cpp, whose
// program replaces malloc, calloc and realloc and is not built with sanitizers.

#pragma once

#include <cstddef>

// From now on the first `successes` allocations of this thread work and all
// later ones fail.
void fail_allocations_after(long successes);

// From now on allocations of at least so many bytes fail.
void fail_allocations_from(std::size_t bytes);
