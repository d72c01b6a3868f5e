// The mounted file system that holds a path.

#pragma once

namespace stock {

struct Mount {
    char source[1536];  // what is mounted: a device, host:path, or a name
    char type[128];     // of the file system
};

// Finds the mount of a path. False, with errno set, when the path cannot be examined or its
// mount is not found.
bool find_mount(const char *path, Mount &mount);

}  // namespace stock
