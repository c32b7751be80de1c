#include "tests/services/support/Files.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace unitTests {

namespace fs = std::filesystem;

WorkingDirectory::WorkingDirectory() : previous(fs::current_path())
{
    std::string name = (fs::temp_directory_path() / "vetra-unit-XXXXXX").string();
    if (!::mkdtemp(name.data()))
        throw std::runtime_error("cannot make a temporary directory");
    ownPath = fs::canonical(name).string();
    fs::current_path(ownPath);
}

WorkingDirectory::~WorkingDirectory()
{
    std::error_code ignored;
    fs::current_path(previous, ignored);
    fs::remove_all(ownPath, ignored);
}

void writeFile(const fs::path& path, std::string_view text)
{
    std::ofstream file(path, std::ios_base::binary);
    file << text;
    if (!file.flush())
        throw std::runtime_error("cannot write " + path.string());
}

std::string contentOf(const fs::path& path)
{
    std::ifstream file(path, std::ios_base::binary);
    if (!file)
        return "(no file)";
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> linesOf(const fs::path& path)
{
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> namesIn(const fs::path& directory)
{
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

unsigned modeOf(const fs::path& path)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        throw std::runtime_error("no file " + path.string());
    return status.st_mode & 07777U;
}

std::set<int> openDescriptors()
{
    std::set<int> numbers;
    DIR* const directory = ::opendir("/proc/self/fd");
    while (const dirent* entry = ::readdir(directory)) {
        if (entry->d_name[0] != '.')
            numbers.insert(std::atoi(entry->d_name));
    }
    numbers.erase(::dirfd(directory));
    ::closedir(directory);
    return numbers;
}

}  // namespace unitTests
