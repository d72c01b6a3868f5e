// The extended attributes of files, access lists among them, which each system keeps in its own
// way: SYSTEM/attributes.cpp defines this.

#pragma once

namespace stock {

// Gives an open file the attributes of another one. What it cannot be given is told to lost,
// unless that is null: "the attribute 'user.gauge'", and the path; the reason is in errno.
void copy_attributes(int from, int to, const char *path,
                     void (*lost)(const char *what, const char *path));

}  // namespace stock
