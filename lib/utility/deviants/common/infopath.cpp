// fspath and infopath: where the file system of a path comes from, and how much room it has.
//
// The mount's source, "host:path" or a device, is split at its colon.

#include "deviants.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "base/fixed_text.h"
#include "base/limits.h"
#include "deviants/mount.h"
#include "stock/elog.h"
#include "stock/path.h"

namespace {

static_assert(sizeof(Infopath) == 1320 && offsetof(Infopath, host) == 4);
static_assert(offsetof(Infopath, path) == 260 && offsetof(Infopath, bytes_avail) == 1288);
static_assert(sizeof(Statvfs) == 72 && offsetof(Statvfs, fsid) == 64);

static_assert(sizeof Infopath{}.path == stock::kPathSize);

constexpr std::size_t kHostSize = sizeof Infopath{}.host;

// The length of the host before the ":" of host:path; 0 for other sources. A host in brackets
// may hold colons; no host holds a "/".
std::size_t host_length(std::string_view source)
{
    const std::size_t bracket = source.starts_with('[') ? source.find(']') : 0;
    const std::size_t colon = source.find(':', bracket);
    return colon < source.find('/') ? colon : 0;
}

// Copies the text to a buffer of size bytes and cuts what does not fit.
void copy(std::string_view text, char *out, std::size_t size)
{
    stock::FixedText copied(out, size);
    copied.add(text);
    copied.c_str();
}

// The path as messages name it.
const char *shown(const char *path)
{
    return path ? path : "(null)";
}

}  // namespace

int fspath(const char *path, char *host, char *fspath)
{
    stock::Mount mount;
    errno = EFAULT;  // for a null path
    if (!path || !stock::find_mount(path, mount)) {
        elog_log(1, "can't statfs %s", shown(path));
        return -1;
    }
    const std::string_view source = mount.source;
    const std::size_t length = host_length(source);
    copy(source.substr(0, length), host, kHostSize);
    copy(source.substr(length ? length + 1 : 0), fspath, stock::kPathSize);
    return 0;
}

Infopath *infopath(const char *path)
{
    char clean[stock::kPathSize];
    const char *expanded = path;
    if (path && *path == '~') {
        cleanpath(path, 0, clean);
        expanded = clean;
    }
    Infopath info = {};
    if (fspath(expanded, info.host, info.path) != 0) {
        elog_log(0, "can't resolve host, filesystem for %s", shown(path));
        return nullptr;
    }
    Statvfs numbers;
    if (std_statvfs(expanded, &numbers) != 0) {
        elog_log(1, "statvfs on '%s' fails", path);
        return nullptr;
    }
    const auto fragment = static_cast<double>(numbers.frsize);
    info.fsid = static_cast<uint32_t>(numbers.fsid);
    info.bytes_avail = static_cast<double>(numbers.bavail) * fragment;
    info.bytes_total = static_cast<double>(numbers.blocks) * fragment;
    info.files_avail = static_cast<double>(numbers.favail);
    info.files_total = static_cast<double>(numbers.files);
    void *result = stock::allocate(sizeof info, "info");
    return static_cast<Infopath *>(std::memcpy(result, &info, sizeof info));
}
