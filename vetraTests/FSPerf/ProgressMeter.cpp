#include <iomanip>
#include <iostream>

#include "Basis/Crash.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"
#include "vetraTests/FSPerf/FileAccessReqHdlr.h"

namespace vetraTests {

namespace {

constexpr std::uint64_t secondMicroseconds = 1000000;

// Minutes and seconds, such as "  3m 07s"; composed apart, so that the stream of the program keeps
// its own fill character.
void writeTime(std::ostream& text, std::uint64_t seconds)
{
    text << std::setfill(' ') << std::setw(3) << seconds / 60 << "m " << std::setfill('0')
         << std::setw(2) << seconds % 60 << "s";
}

}  // namespace

CFileAccessRequestHandler::ProgressMeter::ProgressMeter(Synchronization::Mutex& outputMutex)
    : m_output_mutex(outputMutex)
{
}

void CFileAccessRequestHandler::ProgressMeter::start(unsigned long total)
{
    Basis::assertThat(!m_total_requests && !m_start_time, "!m_total_requests && !m_start_time");
    m_total_requests = total;
    m_start_time = Basis::Timer::s_fMicroTimer();
}

void CFileAccessRequestHandler::ProgressMeter::notifyProgress(unsigned long done)
{
    if (!m_total_requests || !m_start_time)
        return;
    const unsigned long step = m_total_requests / 100;
    Basis::assertThat(step != 0, "progress is shown from 100 requests on");
    if (done % step != 0 || !m_output_mutex.tryLock())
        return;
    Basis::assertThat(done != 0, "progress is shown from one percent on");
    const unsigned long percent = done * 100 / m_total_requests;
    if (percent < 100)
        printStep(done, percent);
    m_output_mutex.unlock();
}

void CFileAccessRequestHandler::ProgressMeter::printStep(unsigned long done,
                                                         unsigned long percent) const
{
    const std::uint64_t elapsed =
        (Basis::Timer::s_fMicroTimer() - m_start_time) / secondMicroseconds;
    const std::uint64_t left = (m_total_requests - done) * elapsed / done;
    Basis::ostringstream text = Basis::outputStream(fsperfAllocator());
    text << '\r' << std::setw(3) << percent << "% - ";
    writeTime(text, elapsed);
    text << ", ";
    writeTime(text, left);
    text << " left";
    std::cout << text.view() << std::flush;
}

void CFileAccessRequestHandler::ProgressMeter::notifyProgressLeft(unsigned long left)
{
    notifyProgress(m_total_requests - left);
}

void CFileAccessRequestHandler::ProgressMeter::stop()
{
    if (!m_total_requests || !m_start_time)
        return;
    Basis::assertThat(m_output_mutex.tryLock(), "nobody prints behind the end of a pass");
    const std::uint64_t elapsed =
        (Basis::Timer::s_fMicroTimer() - m_start_time) / secondMicroseconds;
    Basis::ostringstream text = Basis::outputStream(fsperfAllocator());
    text << "\r100% - ";
    writeTime(text, elapsed);
    text << Basis::string(20, ' ', &fsperfAllocator());
    std::cout << text.view() << std::endl;
    m_output_mutex.unlock();
}

}  // namespace vetraTests
