#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace unitTests {

/// A fresh directory that is the current one until the end of its scope. It goes with what it
/// holds.
class WorkingDirectory {
public:
    WorkingDirectory();
    ~WorkingDirectory();

    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

    const std::string& path() const { return ownPath; }

private:
    std::filesystem::path previous;
    std::string ownPath;
};

void writeFile(const std::filesystem::path& path, std::string_view text);

/// The bytes of a file; "(no file)" if it cannot be read.
std::string contentOf(const std::filesystem::path& path);

/// The lines of a file without their ends; none if it cannot be read.
std::vector<std::string> linesOf(const std::filesystem::path& path);

/// The names in a directory, in byte order.
std::vector<std::string> namesIn(const std::filesystem::path& directory);

/// Permission bits of a file.
unsigned modeOf(const std::filesystem::path& path);

/// The descriptors that the process has open.
std::set<int> openDescriptors();

}  // namespace unitTests
