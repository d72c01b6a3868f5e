// The mount that holds a path, as the system's own list of mounts tells it.

#pragma once

namespace stock {

struct Mount {
    char source[1536];  // what is mounted: a device, host:path, or a name
    char type[128];     // of the file system
};

// False with errno set when the path cannot be examined or its mount not found.
bool find_mount(const char *path, Mount &mount);

}  // namespace stock
