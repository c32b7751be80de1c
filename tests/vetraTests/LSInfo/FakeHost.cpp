#include "FakeHost.h"

#include <dlfcn.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace vetraTests {

namespace {

FakeHost* currentHost = nullptr;

constexpr std::string_view redirectedTrees[] = {"/etc/", "/proc/", "/sys/", "/usr/kor/"};
constexpr std::string_view systemPrograms = "/usr/sbin/";
constexpr const char* realPrograms[] = {"cat", "grep", "head"};
constexpr const char* variables[] = {"HOST", "KORSYSTEMNAME", "LC_ALL", "PATH"};

std::filesystem::path freshDirectory()
{
    std::string name = (std::filesystem::temp_directory_path() / "lsinfo-XXXXXX").string();
    if (!::mkdtemp(name.data()))
        throw std::runtime_error("cannot make " + name);
    return name;
}

void write(const std::filesystem::path& path, std::string_view text)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios_base::binary) << text;
}

std::filesystem::path realProgram(const char* name)
{
    for (const char* directory : {"/bin", "/usr/bin"}) {
        if (std::filesystem::exists(std::filesystem::path(directory) / name))
            return std::filesystem::path(directory) / name;
    }
    throw std::runtime_error(std::string("no program ") + name);
}

}  // namespace

FakeHost::FakeHost() : root(freshDirectory()), formerDirectory(std::filesystem::current_path())
{
    for (const char* name : variables) {
        const char* value = std::getenv(name);
        formerEnvironment[name] = value ? std::optional<std::string>(value) : std::nullopt;
    }
    std::filesystem::create_directories(root / "usr/bin");
    for (const char* name : realPrograms)
        std::filesystem::create_symlink(realProgram(name), root / "usr/bin" / name);
    std::filesystem::current_path(root);
    for (const char* program : {"/usr/sbin/dmidecode", "numactl", "rpm"})
        script(program, "exit 0\n");
    setEnvironment("PATH", (root / "usr/bin").string());
    setEnvironment("LC_ALL", "C");
    setEnvironment("HOST", std::nullopt);
    setEnvironment("KORSYSTEMNAME", std::nullopt);
    currentHost = this;
}

FakeHost::~FakeHost()
{
    currentHost = nullptr;
    for (const auto& [name, value] : formerEnvironment)
        setEnvironment(name.c_str(), value);
    std::error_code ignored;
    std::filesystem::current_path(formerDirectory, ignored);
    std::filesystem::remove_all(root, ignored);
}

void FakeHost::file(std::string_view path, std::string_view text)
{
    write(root / path.substr(path.find_first_not_of('/')), text);
}

void FakeHost::remove(std::string_view path)
{
    std::filesystem::remove(root / path.substr(path.find_first_not_of('/')));
}

std::filesystem::path FakeHost::placeOf(std::string_view program) const
{
    if (program.substr(0, 2) == "./")
        return root / program.substr(2);
    if (program.front() == '/')
        return root / program.substr(1);
    return root / "usr/bin" / program;
}

void FakeHost::answer(std::string_view program, std::string_view arguments, std::string_view output)
{
    const std::filesystem::path place = placeOf(program);
    write(place.string() + ".prints." + std::string(arguments), output);
    script(program, "if [ -f \"$0.prints.$*\" ]; then cat \"$0.prints.$*\"; fi\n");
}

void FakeHost::script(std::string_view program, std::string_view text)
{
    const std::filesystem::path place = placeOf(program);
    write(place, "#!/bin/sh\n" + std::string(text));
    std::filesystem::permissions(place, std::filesystem::perms::owner_all);
}

std::vector<std::string> FakeHost::takeLog()
{
    return std::exchange(log, {});
}

FakeHost* FakeHost::current()
{
    return currentHost;
}

std::string FakeHost::redirected(std::string_view path)
{
    const bool isRelative = path.empty() || path.front() != '/';
    const bool isElsewhere =
        std::any_of(std::begin(redirectedTrees), std::end(redirectedTrees),
                    [&](std::string_view tree) { return path.substr(0, tree.size()) == tree; });
    if (isRelative || isElsewhere)
        log.emplace_back(path);
    return isElsewhere ? root.string() + std::string(path) : std::string(path);
}

std::string FakeHost::redirectedCommand(std::string_view command)
{
    log.push_back("$ " + std::string(command));
    std::string text(command);
    const std::string place = root.string() + std::string(systemPrograms);
    for (std::size_t found = text.find(systemPrograms); found != std::string::npos;
         found = text.find(systemPrograms, found + place.size()))
        text.replace(found, systemPrograms.size(), place);
    return text;
}

void setEnvironment(const char* name, const std::optional<std::string>& value)
{
    if (value)
        ::setenv(name, value->c_str(), 1);
    else
        ::unsetenv(name);
}

}  // namespace vetraTests

using vetraTests::FakeHost;

namespace {

template <class Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

using OpenFunction = std::FILE*(const char*, const char*);

std::FILE* openOnCurrentHost(const char* function, const char* path, const char* mode)
{
    OpenFunction* const real = next<OpenFunction>(function);
    FakeHost* const host = FakeHost::current();
    return host ? real(host->redirected(path).c_str(), mode) : real(path, mode);
}

template <std::size_t size>
void fill(char (&field)[size], const std::string& text)
{
    std::memset(field, 0, size);
    std::memcpy(field, text.data(), std::min(text.size(), size - 1));
}

}  // namespace

extern "C" {

std::FILE* fopen64(const char* path, const char* mode)
{
    return openOnCurrentHost("fopen64", path, mode);
}

std::FILE* popen(const char* command, const char* mode)
{
    using PipeFunction = std::FILE*(const char*, const char*);
    PipeFunction* const real = next<PipeFunction>("popen");
    FakeHost* const host = FakeHost::current();
    return host ? real(host->redirectedCommand(command).c_str(), mode) : real(command, mode);
}

int uname(utsname* names) noexcept
{
    const long result = ::syscall(SYS_uname, names);
    if (const FakeHost* host = FakeHost::current()) {
        fill(names->machine, host->machine);
        fill(names->release, host->kernelRelease);
    }
    return static_cast<int>(result);
}
}
