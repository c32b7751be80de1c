#include "Diagnose/SampledThreads.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <utility>

namespace Diagnose {

namespace {

// The text of a file of the kernel, as far as it fits.
template <std::size_t size>
std::string_view readAgain(int file, char (&buffer)[size])
{
    const ssize_t count = file < 0 ? -1 : ::pread(file, buffer, size, 0);
    return {buffer, count > 0 ? static_cast<std::size_t>(count) : 0};
}

constexpr int fieldsBetweenStateAndStart = 19;

}  // namespace

// The thread's name may hold blanks and brackets, so the fields are counted from its end on.
ThreadState readThreadState(std::string_view text)
{
    ThreadState state;
    const std::size_t nameEnd = text.rfind(") ");
    if (nameEnd == std::string_view::npos)
        return state;
    text.remove_prefix(nameEnd + 2);
    if (text.empty() || text[0] == 'Z' || text[0] == 'X' || text[0] == 'x')
        return state;
    const auto activity =
        text[0] == 'R' ? ThreadState::Activity::Running : ThreadState::Activity::Asleep;
    for (int i = 0; i < fieldsBetweenStateAndStart; ++i) {
        const std::size_t blank = text.find(' ');
        if (blank == std::string_view::npos)
            return state;
        text.remove_prefix(blank + 1);
    }
    if (std::from_chars(text.data(), text.data() + text.size(), state.startTime).ec == std::errc())
        state.activity = activity;
    return state;
}

SampledThread::~SampledThread()
{
    for (const int file : {statFile, channelFile}) {
        if (file >= 0)
            ::close(file);
    }
}

SampledThread::SampledThread(SampledThread&& other) noexcept
    : number(other.number),
      record(other.record),
      pending(other.pending),
      pendingChannel(std::move(other.pendingChannel)),
      statFile(std::exchange(other.statFile, -1)),
      channelFile(std::exchange(other.channelFile, -1))
{
}

SampledThread& SampledThread::operator=(SampledThread&& other) noexcept
{
    std::swap(number, other.number);
    std::swap(record, other.record);
    std::swap(pending, other.pending);
    std::swap(pendingChannel, other.pendingChannel);
    std::swap(statFile, other.statFile);
    std::swap(channelFile, other.channelFile);
    return *this;
}

ThreadState SampledThread::state() const
{
    char buffer[1024];
    return readThreadState(readAgain(statFile, buffer));
}

std::string SampledThread::waitChannel() const
{
    char buffer[128];
    const std::string_view text = readAgain(channelFile, buffer);
    return text == "0" ? std::string() : std::string(text);
}

SampledThreads::SampledThreads() : listing(::opendir("/proc/self/task"), &::closedir)
{
    threads.reserve(mostThreads);
}

bool SampledThreads::knows(pid_t number) const
{
    return std::any_of(threads.begin(), threads.end(),
                       [number](const SampledThread& thread) { return thread.number == number; });
}

// False if it is there and cannot be looked at.
bool SampledThreads::add(pid_t number)
{
    const int directory = ::dirfd(listing.get());
    const std::string name = std::to_string(number);
    const int stat = ::openat(directory, (name + "/stat").c_str(), O_RDONLY | O_CLOEXEC);
    if (stat < 0)
        return errno == ENOENT || errno == ESRCH;
    const int channel = ::openat(directory, (name + "/wchan").c_str(), O_RDONLY | O_CLOEXEC);
    threads.emplace_back(number, stat, channel);
    return true;
}

void SampledThreads::refresh()
{
    if (!listing)
        return;
    ::rewinddir(listing.get());
    unseenCount = 0;
    const pid_t self = ::gettid();
    while (const dirent* const entry = ::readdir(listing.get())) {
        const std::string_view name(entry->d_name);
        pid_t number = 0;
        if (std::from_chars(name.data(), name.data() + name.size(), number).ec != std::errc())
            continue;
        if (number == self || knows(number))
            continue;
        if (threads.size() == mostThreads || !add(number))
            ++unseenCount;
    }
}

void SampledThreads::remove(std::size_t position)
{
    threads.erase(threads.begin() + static_cast<std::ptrdiff_t>(position));
}

}  // namespace Diagnose
