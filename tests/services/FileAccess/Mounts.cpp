#include "tests/services/FileAccess/Mounts.h"

#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fileLayerTests {

bool runQuietly(const std::string& commandLine)
{
    return std::system(("(" + commandLine + ") > /dev/null 2>&1").c_str()) == 0;
}

Mount::Mount(const std::string& directory, const std::string& type, const std::string& options)
    : place(directory),
      mounted(::mount("none", directory.c_str(), type.c_str(), 0, options.c_str()) == 0)
{
}

Mount::~Mount()
{
    if (mounted)
        ::umount2(place.c_str(), MNT_DETACH);
}

ImageMount::ImageMount(const std::string& type, std::uint64_t bytes)
    : imagePath(directory / "image"), place(directory / "mounted")
{
    std::filesystem::create_directory(place);
    std::ofstream(imagePath).flush();
    std::filesystem::resize_file(imagePath, bytes);
    const bool isExt = type.rfind("ext", 0) == 0;
    mounted = ::geteuid() == 0 &&
              runQuietly("mkfs." + type + (isExt ? " -q -F " : " -q -f ") + imagePath) &&
              runQuietly("mount -t " + type + " -o loop " + imagePath + " " + place);
}

ImageMount::~ImageMount()
{
    if (mounted)
        runQuietly("umount " + place + " || umount -l " + place);
}

}  // namespace fileLayerTests
