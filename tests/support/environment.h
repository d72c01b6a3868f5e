// The environment that every test starts from, whatever the machine's is.

#pragma once

// Takes away every variable but those that a test may not do without: where temporary files
// go, and what the sanitizers, the coverage and GoogleTest are told. PATH is the system's.
void start_from_own_environment();
