#include "tests/impl/network/FakeSsh.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

std::atomic<unsigned> secondsSlept{0};
std::atomic<bool> areCommandsRefused{false};

constexpr const char* script =
    "#!/bin/sh\n"
    "cd \"$(dirname \"$0\")\" || exit 1\n"
    "echo \"$*\" >> calls\n"
    "case \"$2\" in\n"
    "    netstat*) . ./ports ;;\n"
    "    *) . ./start ;;\n"
    "esac\n";

}  // namespace

// The linker sends the program's calls here.
extern "C" {

std::FILE* __real_popen(const char* command, const char* mode);

std::FILE* __wrap_popen(const char* command, const char* mode)
{
    if (areCommandsRefused) {
        errno = EAGAIN;
        return nullptr;
    }
    return __real_popen(command, mode);
}

unsigned __wrap_sleep(unsigned seconds)
{
    secondsSlept += seconds;
    return 0;
}
}

namespace netTests {

FakeSsh::FakeSsh() : searchPath("PATH", (directory.path() + ":" + std::getenv("PATH")).c_str())
{
    whenStarting("");
    whenAskedForPorts("");
    unitTests::writeFile("ssh", script);
    ::chmod("ssh", 0700);
}

void FakeSsh::whenStarting(const std::string& commands)
{
    unitTests::writeFile(path() + "/start", commands);
}

void FakeSsh::whenAskedForPorts(const std::string& commands)
{
    unitTests::writeFile(path() + "/ports", commands);
}

void FakeSsh::printsWhenStarting(const std::string& text)
{
    unitTests::writeFile(path() + "/start.text", text);
    whenStarting("cat start.text\n");
}

void FakeSsh::printsWhenAskedForPorts(const std::string& text)
{
    unitTests::writeFile(path() + "/ports.text", text);
    whenAskedForPorts("cat ports.text\n");
}

CountedSleeps::CountedSleeps()
{
    secondsSlept = 0;
}

unsigned CountedSleeps::seconds() const
{
    return secondsSlept;
}

RefusedCommands::RefusedCommands()
{
    areCommandsRefused = true;
}

RefusedCommands::~RefusedCommands()
{
    areCommandsRefused = false;
}

}  // namespace netTests
