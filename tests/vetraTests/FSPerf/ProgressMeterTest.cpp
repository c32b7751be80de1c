#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <iomanip>
#include <thread>

#include "tests/vetraTests/FSPerf/RequestHandler.h"

namespace vetraTests {

namespace {

using Meter = CFileAccessRequestHandler::ProgressMeter;

constexpr std::uint64_t second = 1000000;

std::uint64_t manualTime = 0;
bool isManual = false;

class Progress : public testing::Test {
protected:
    Progress()
    {
        isManual = true;
        manualTime = 7 * second;
    }
    ~Progress() override { isManual = false; }
    void pass(std::uint64_t microseconds) { manualTime += microseconds; }
    std::string printedAt(unsigned long done)
    {
        return printedBy([&] { meter.notifyProgress(done); }).output;
    }

    Synchronization::Mutex mutex{"output", 1};
    Meter meter{mutex};
};

}  // namespace

// The linker leads the meter's readings of the clock here, and what is named real to the clock.
extern "C" std::uint64_t __real__ZN5Basis5Timer13s_fMicroTimerEv();
extern "C" std::uint64_t __wrap__ZN5Basis5Timer13s_fMicroTimerEv();
extern "C" std::uint64_t __wrap__ZN5Basis5Timer13s_fMicroTimerEv()
{
    return isManual ? manualTime : __real__ZN5Basis5Timer13s_fMicroTimerEv();
}

TEST_F(Progress, IsSilentBeforeTheStart)
{
    EXPECT_EQ(printedAt(0), "");
    EXPECT_EQ(printedAt(50), "");
    EXPECT_EQ(printedBy([this] { meter.notifyProgressLeft(3); }).output, "");
    EXPECT_EQ(printedBy([this] { meter.stop(); }).output, "");
}

TEST_F(Progress, IsSilentIfItsStartIsTheClocksZero)
{
    manualTime = 0;
    meter.start(1000);

    EXPECT_EQ(printedAt(500), "");
    EXPECT_EQ(printedBy([this] { meter.stop(); }).output, "");
}

TEST_F(Progress, PrintsPercentTimeAndTimeLeft)
{
    meter.start(1000);
    pass(125 * second);

    EXPECT_EQ(printedAt(500), "\r 50% -   2m 05s,   2m 05s left");
}

TEST_F(Progress, CountsWholeSecondsOnly)
{
    meter.start(1000);
    pass(60 * second - 1);

    EXPECT_EQ(printedAt(250), "\r 25% -   0m 59s,   2m 57s left");
}

TEST_F(Progress, PrintsOneDigitRightAligned)
{
    meter.start(1000);
    pass(9 * second);

    EXPECT_EQ(printedAt(10), "\r  1% -   0m 09s,  14m 51s left");
}

TEST_F(Progress, GivesLongTimesThePlacesTheyNeed)
{
    meter.start(1000);
    pass(1000 * 60 * second);

    EXPECT_EQ(printedAt(10), "\r  1% - 1000m 00s, 99000m 00s left");
}

TEST_F(Progress, PrintsAtWholeStepsOnly)
{
    meter.start(1050);
    pass(second);

    EXPECT_EQ(printedAt(9), "");
    EXPECT_NE(printedAt(10), "");
    EXPECT_EQ(printedAt(11), "");
    EXPECT_NE(printedAt(20), "");
}

TEST_F(Progress, PrintsNothingFromOneHundredPercentOn)
{
    meter.start(1000);
    pass(second);

    EXPECT_NE(printedAt(990), "");
    EXPECT_EQ(printedAt(1000), "");
    EXPECT_TRUE(mutex.tryLock()) << "left locked";
    mutex.unlock();
}

TEST_F(Progress, LeavesAStepOutWhileSomebodyPrints)
{
    meter.start(1000);
    std::string printed = "?";
    mutex.lock();
    std::thread([&] { printed = printedAt(500); }).join();
    mutex.unlock();

    EXPECT_EQ(printed, "");
    EXPECT_NE(printedAt(500), "");
}

TEST_F(Progress, GivesTheMutexBack)
{
    meter.start(1000);
    printedAt(500);

    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
}

TEST_F(Progress, CountsWhatIsLeftFromTheTotal)
{
    meter.start(1000);
    pass(3 * second);

    EXPECT_EQ(printedBy([this] { meter.notifyProgressLeft(250); }).output,
              "\r 75% -   0m 03s,   0m 01s left");
}

TEST_F(Progress, StopEndsTheLine)
{
    meter.start(1000);
    pass(61 * second);

    EXPECT_EQ(printedBy([this] { meter.stop(); }).output,
              "\r100% -   1m 01s" + std::string(20, ' ') + "\n");
    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
}

TEST_F(Progress, StopKeepsTheFields)
{
    meter.start(1000);
    printedBy([this] { meter.stop(); });
    pass(second);

    EXPECT_EQ(printedAt(500), "\r 50% -   0m 01s,   0m 01s left");
}

TEST_F(Progress, LeavesTheStreamsFormatAlone)
{
    meter.start(1000);

    EXPECT_EQ(printedBy([this] {
                  std::cout << std::setfill('x');
                  meter.notifyProgress(10);
                  std::cout << std::setw(3) << 1 << std::setfill(' ');
              }).output,
              "\r  1% -   0m 00s,   0m 00s leftxx1");
}

using ProgressDeathTest = Progress;

TEST_F(ProgressDeathTest, SecondStartStopsTheProgram)
{
    meter.start(1000);

    EXPECT_EXIT(meter.start(1000), testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("!m_total_requests && !m_start_time"));
}

TEST_F(ProgressDeathTest, StopWhileSomebodyPrintsStopsTheProgram)
{
    meter.start(1000);

    EXPECT_EXIT(
        {
            std::thread([this] { mutex.lock(); }).join();
            meter.stop();
        },
        testing::KilledBySignal(SIGABRT), testing::HasSubstr("nobody prints"));
}

TEST_F(ProgressDeathTest, TotalsTooSmallForPercentStopTheProgram)
{
    meter.start(99);

    EXPECT_EXIT(meter.notifyProgress(1), testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("from 100 requests on"));
}

TEST_F(ProgressDeathTest, NothingDoneStopsTheProgram)
{
    meter.start(1000);

    EXPECT_EXIT(meter.notifyProgress(0), testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("from one percent on"));
}

TEST(ProgressOfTheProcess, TakesTheMicrosecondClock)
{
    Synchronization::Mutex mutex("output", 1);
    Meter meter(mutex);
    meter.start(1000);

    EXPECT_THAT(printedBy([&] { meter.notifyProgress(500); }).output,
                testing::StartsWith("\r 50% -   0m "));
}

}  // namespace vetraTests
