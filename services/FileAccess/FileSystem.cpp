#include "FileAccess/FileSystem.h"

#include <mntent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace FileAccess {

namespace {

struct KnownType {
    unsigned long magic;
    int code;
    const char* name;
};

// Magic numbers from the kernel's headers (linux/magic.h) and from the file systems' own sources.
constexpr KnownType knownTypes[] = {
    {0x01021994, 1, "tmpfs"},     {0x858458f6, 2, "ramfs"},     {0x794c7630, 3, "overlayfs"},
    {0x65735546, 4, "fuse"},      {0x958458f6, 5, "hugetlbfs"}, {0x73717368, 6, "squashfs"},
    {0x01021997, 7, "9p"},        {0xef53, 12, "ext4"},         {0x58465342, 13, "xfs"},
    {0x9123683e, 14, "btrfs"},    {0x6969, 15, "nfs"},          {0x47504653, 16, "gpfs"},
    {0x7461636f, 17, "ocfs2"},    {0x01161970, 18, "gfs2"},     {0x0bd00bd0, 19, "lustre"},
    {0x2fc12fc1, 20, "zfs"},      {0x00c36400, 21, "ceph"},     {0xff534d42, 22, "cifs"},
    {0xfe534d42, 22, "cifs"},     {0x517b, 22, "cifs"},         {0xf2f52010, 23, "f2fs"},
    {0x52654973, 24, "reiserfs"}, {0x3153464a, 25, "jfs"},      {0xa501fcf5, 26, "vxfs"},
    {0x4d44, 27, "vfat"},         {0x2011bab0, 28, "exfat"},
};

constexpr int codeOfExt2 = 10;
constexpr int codeOfExt3 = 11;
constexpr int codeOfExt4 = 12;

// The three ext file systems have one magic number; the mount table tells them apart.
std::string mountedType(const char* path)
{
    struct stat status {};
    if (::stat(path, &status) != 0)
        return {};
    const std::string device =
        std::to_string(major(status.st_dev)) + ":" + std::to_string(minor(status.st_dev));
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> table(
        std::fopen("/proc/self/mountinfo", "re"), &std::fclose);
    if (!table)
        return {};
    char* line = nullptr;
    std::size_t capacity = 0;
    std::string type;
    while (type.empty() && ::getline(&line, &capacity, table.get()) > 0) {
        // "36 35 98:0 /root /mount/point options [tags] - type source options"
        const std::string text(line);
        const std::size_t dash = text.find(" - ");
        if (dash == std::string::npos || text.find(" " + device + " ") > dash)
            continue;
        type = text.substr(dash + 3, text.find(' ', dash + 3) - dash - 3);
    }
    std::free(line);
    return type;
}

}  // namespace

// By code: 10 ext2, 11 ext3, 12 ext4, 13 XFS, 14 btrfs, 15 NFS, 16 GPFS, ...
const bool FileSystem::SUPPORTED[endOfValid] = {
    false, false, false, false, false, false, false, false, false, false,  // below the real ones
    false, true,  true,  true,  false, true,  true,  false, false, false,  // 10 to 19
    false, false, false, false, false, false, false, false, false,         // 20 to 28
};

FileSystem::FileSystem(const Basis::string& path, bool, bool)
    : typeName("unknown", path.get_allocator())
{
    struct statfs status {};
    if (::statfs(path.c_str(), &status) != 0)
        return;
    // Some kernels give the number sign-extended.
    const auto magic = static_cast<unsigned long>(status.f_type) & 0xffffffffUL;
    for (const KnownType& known : knownTypes) {
        if (known.magic != magic)
            continue;
        type = known.code;
        typeName = known.name;
    }
    if (type != codeOfExt4)
        return;
    const std::string mounted = mountedType(path.c_str());
    if (mounted == "ext2" || mounted == "ext3") {
        type = mounted == "ext2" ? codeOfExt2 : codeOfExt3;
        typeName = mounted.c_str();
    }
}

}  // namespace FileAccess
