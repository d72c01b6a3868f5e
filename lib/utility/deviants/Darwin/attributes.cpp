// The answer of macOS to deviants/attributes.h.

#include "deviants/attributes.h"

#include <copyfile.h>

namespace stock {

void copy_attributes(int from, int to, const char *path,
                     void (*lost)(const char *what, const char *path))
{
    if (fcopyfile(from, to, nullptr, COPYFILE_XATTR | COPYFILE_ACL) != 0 && lost)
        lost("the attributes", path);
}

}  // namespace stock
