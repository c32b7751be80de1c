#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vetraTests {

/// Another host for the process, as long as an object of this class lives.
///
/// Files below /etc, /proc, /sys and /usr/kor, the programs and the current directory come from a
/// directory of the object's own, which is empty at first; the environment has no HOST and no
/// KORSYSTEMNAME; `uname` answers what the test says. dmidecode, numactl and rpm print nothing
/// until a test gives them something to say; the shell, grep, head and cat are those of the
/// machine.
///
/// It works through the test program's own fopen64, popen and uname, which the linker prefers to
/// those of the C library.
///
/// Threads: one object at a time, and no other thread.
class FakeHost {
public:
    FakeHost();
    ~FakeHost();
    FakeHost(const FakeHost&) = delete;
    FakeHost& operator=(const FakeHost&) = delete;

    /// Writes a file; its directories are made.
    void file(std::string_view path, std::string_view text);
    /// Removes a file or a program.
    void remove(std::string_view path);

    /// Makes `program` print `output` when it is called with `arguments`. With others it prints
    /// nothing. Programs without a slash are found through the path.
    void answer(std::string_view program, std::string_view arguments, std::string_view output);
    /// A program with a shell script of its own.
    void script(std::string_view program, std::string_view text);

    /// The files opened and, behind "$ ", the commands run since the last call, in their order.
    std::vector<std::string> takeLog();

    const std::filesystem::path& directory() const { return root; }

    /// What `uname` answers.
    std::string machine = "x86_64";
    std::string kernelRelease = "3.12.74-60.64.40-default";

    // For the functions that stand in for those of the C library.
    static FakeHost* current();
    std::string redirected(std::string_view path);
    std::string redirectedCommand(std::string_view command);

private:
    std::filesystem::path placeOf(std::string_view program) const;

    std::filesystem::path root;
    std::filesystem::path formerDirectory;
    std::map<std::string, std::optional<std::string>> formerEnvironment;
    std::vector<std::string> log;
};

/// Sets or, with nothing, unsets an environment variable; FakeHost puts back the four it knows.
void setEnvironment(const char* name, const std::optional<std::string>& value);

}  // namespace vetraTests
