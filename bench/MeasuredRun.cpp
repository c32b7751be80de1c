// Runs a program once and prints what it cost as one line of JSON.
//
//     MeasuredRun [--own] [--limit SECONDS] PROGRAM ARGUMENT...
//
//   wall      seconds from the fork to the end
//   cpu       user and system seconds of the program and of all that it waited for
//   own       with --own: the same of the program alone, -1 without it
//   peak_kb   the largest resident set
//   exit      its exit status, -1 after a signal
//   signal    the signal that ended it, 14 for one that reached the limit
//
// What the program prints goes nowhere. A small launcher is needed for the peak: the kernel counts
// the memory of whoever calls exec to the program, and an interpreter would have more of it than
// many a program that it measures.
//
// The time of the program alone is read from its processor clock while it is stopped at its exit.
// The kernel keeps that clock in nanoseconds, whereas /proc/PID/stat counts in steps of 10 ms. The
// stops cost wall time, which is therefore to be taken from runs without --own.

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>

namespace {

struct Options {
    bool ownTime = false;
    unsigned limitSeconds = 600;
    char** command = nullptr;
};

struct Outcome {
    int status = 0;
    double ownSeconds = -1.0;
    rusage usage{};
};

[[noreturn]] void fail(const char* what)
{
    std::perror(what);
    std::exit(2);
}

double secondsOf(const timespec& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double secondsOf(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double now(clockid_t clock)
{
    timespec time{};
    if (::clock_gettime(clock, &time) != 0)
        fail("clock_gettime");
    return secondsOf(time);
}

Options optionsOf(int argc, char** argv)
{
    Options options;
    int next = 1;
    for (; next < argc && std::strncmp(argv[next], "--", 2) == 0; ++next) {
        if (std::strcmp(argv[next], "--own") == 0)
            options.ownTime = true;
        else if (std::strcmp(argv[next], "--limit") == 0 && next + 1 < argc)
            options.limitSeconds = static_cast<unsigned>(std::strtoul(argv[++next], nullptr, 10));
    }
    options.command = argv + next;
    if (!*options.command) {
        std::fputs("usage: MeasuredRun [--own] [--limit SECONDS] PROGRAM ARGUMENT...\n", stderr);
        std::exit(2);
    }
    return options;
}

[[noreturn]] void becomeProgram(const Options& options)
{
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::dup2(nowhere, descriptor);
    // An alarm outlives exec and is not inherited by what the program starts.
    ::alarm(options.limitSeconds);
    if (options.ownTime) {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::raise(SIGSTOP);
    }
    ::execv(options.command[0], options.command);
    ::_exit(127);
}

double processorSecondsOf(pid_t program)
{
    clockid_t clock = 0;
    if (::clock_getcpuclockid(program, &clock) != 0)
        fail("clock_getcpuclockid");
    return now(clock);
}

bool isStopFor(int status, int event)
{
    return status >> 8 == (SIGTRAP | event << 8);
}

void resume(pid_t program, int signal)
{
    if (::ptrace(PTRACE_CONT, program, nullptr, static_cast<long>(signal)) != 0)
        fail("ptrace");
}

// Passes all signals on and reads the clock when the program is about to end.
void followToItsExit(pid_t program, Outcome& outcome)
{
    int status = 0;
    ::waitpid(program, &status, 0);
    constexpr long options = PTRACE_O_TRACEEXIT | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
    if (::ptrace(PTRACE_SETOPTIONS, program, nullptr, options) != 0)
        fail("ptrace");
    resume(program, 0);
    while (::wait4(program, &outcome.status, 0, &outcome.usage) == program &&
           WIFSTOPPED(outcome.status)) {
        if (isStopFor(outcome.status, PTRACE_EVENT_EXIT)) {
            outcome.ownSeconds = processorSecondsOf(program);
            resume(program, 0);
        } else if (isStopFor(outcome.status, PTRACE_EVENT_EXEC)) {
            resume(program, 0);
        } else {
            resume(program, WSTOPSIG(outcome.status));
        }
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const Options options = optionsOf(argc, argv);
    const double start = now(CLOCK_MONOTONIC);
    const pid_t program = ::fork();
    if (program < 0)
        fail("fork");
    if (program == 0)
        becomeProgram(options);

    Outcome outcome;
    if (options.ownTime)
        followToItsExit(program, outcome);
    else if (::wait4(program, &outcome.status, 0, &outcome.usage) != program)
        fail("wait4");
    const double wall = now(CLOCK_MONOTONIC) - start;
    const double cpu = secondsOf(outcome.usage.ru_utime) + secondsOf(outcome.usage.ru_stime);
    std::printf(
        "{\"wall\":%.6f,\"cpu\":%.6f,\"own\":%.6f,\"peak_kb\":%ld,\"exit\":%d,\"signal\":%d}\n",
        wall, cpu, outcome.ownSeconds, outcome.usage.ru_maxrss,
        WIFEXITED(outcome.status) ? WEXITSTATUS(outcome.status) : -1,
        WIFSIGNALED(outcome.status) ? WTERMSIG(outcome.status) : 0);
    return 0;
}
