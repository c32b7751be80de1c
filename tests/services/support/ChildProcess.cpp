#include "tests/services/support/ChildProcess.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <stdexcept>

namespace unitTests {

namespace {

struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;

    Pipe()
    {
        int ends[2];
        if (::pipe(ends) != 0)
            throw std::runtime_error("cannot make a pipe");
        readEnd = ends[0];
        writeEnd = ends[1];
    }
    ~Pipe()
    {
        closeWriteEnd();
        ::close(readEnd);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void closeWriteEnd()
    {
        if (writeEnd >= 0)
            ::close(writeEnd);
        writeEnd = -1;
    }
};

[[noreturn]] void childMain(const std::function<void()>& work, const Pipe& output,
                            const Pipe& errors)
{
    ::dup2(output.writeEnd, STDOUT_FILENO);
    ::dup2(errors.writeEnd, STDERR_FILENO);
    for (const int end : {output.readEnd, output.writeEnd, errors.readEnd, errors.writeEnd})
        ::close(end);
    work();
    std::cout.flush();
    std::fflush(nullptr);
    ::_exit(0);
}

// Both pipes at once: a child that fills the one would otherwise wait for us to empty it.
void readBoth(const Pipe& output, const Pipe& errors, ChildEnd& end)
{
    pollfd sources[] = {{output.readEnd, POLLIN, 0}, {errors.readEnd, POLLIN, 0}};
    std::string* const texts[] = {&end.output, &end.errors};
    for (int open = 2; open > 0;) {
        ::poll(sources, 2, -1);
        for (int i = 0; i < 2; ++i) {
            if (sources[i].revents == 0)
                continue;
            char buffer[4096];
            const ssize_t count = ::read(sources[i].fd, buffer, sizeof buffer);
            if (count > 0) {
                texts[i]->append(buffer, static_cast<std::size_t>(count));
            } else {
                sources[i].fd = -1;
                --open;
            }
        }
    }
}

}  // namespace

ChildEnd inChild(const std::function<void()>& work)
{
    Pipe output;
    Pipe errors;
    std::cout.flush();
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child < 0)
        throw std::runtime_error("cannot start a child process");
    if (child == 0) {
        // An exception must not unwind into the parent's test.
        [&]() noexcept { childMain(work, output, errors); }();
    }
    output.closeWriteEnd();
    errors.closeWriteEnd();
    ChildEnd end;
    readBoth(output, errors, end);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (WIFSIGNALED(status))
        end.signal = WTERMSIG(status);
    else
        end.exitStatus = WEXITSTATUS(status);
    return end;
}

}  // namespace unitTests
