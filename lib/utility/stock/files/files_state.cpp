// The state of the process that the questions to files and the mappings of files keep.

#include "files/files_state.h"

namespace stock {

constinit DirectoryLocks directory_locks;
constinit MappedFiles mapped_files;
constinit LastView last_view;

}  // namespace stock
