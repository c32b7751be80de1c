#pragma once

#include <string>

#include "tests/services/FileAccess/LayerSupport.h"

namespace fileLayerTests {

/// A file system on a directory, until the end of its scope. Only root can mount.
class Mount {
public:
    /// `options` are those of mount(2), such as "size=1M".
    Mount(const std::string& directory, const std::string& type, const std::string& options);
    ~Mount();
    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;

    bool isMounted() const { return mounted; }

private:
    std::string place;
    bool mounted;
};

/// A sparse image with a file system of its own, mounted through a loop device until the end of its
/// scope.
class ImageMount {
public:
    ImageMount(const std::string& type, std::uint64_t bytes);
    ~ImageMount();
    ImageMount(const ImageMount&) = delete;
    ImageMount& operator=(const ImageMount&) = delete;

    bool isMounted() const { return mounted; }
    const std::string& path() const { return place; }
    const std::string& image() const { return imagePath; }

private:
    TemporaryDirectory directory;
    std::string imagePath;
    std::string place;
    bool mounted = false;
};

/// Runs a program without its output; true if it ends with status 0.
bool runQuietly(const std::string& commandLine);

}  // namespace fileLayerTests
