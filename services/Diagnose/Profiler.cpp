#include "Diagnose/Profiler.h"

#include <pthread.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <new>
#include <sstream>
#include <string>

#include "Diagnose/FilePair.h"
#include "Diagnose/ProfileOutput.h"
#include "Diagnose/ProfilerCommand.h"
#include "Diagnose/Sampler.h"
#include "Diagnose/Samples.h"
#include "Diagnose/SamplingSignal.h"
#include "Diagnose/Shell.h"
#include "Diagnose/SystemError.h"

namespace Diagnose {

namespace {

// The profiler of this process.
class Profiler {
public:
    void execute(const ProfilerCommand& command, std::ostream& answer);

    /// Waits for the present command and turn; no other begins before `goOn`.
    void holdStill();
    void goOn();
    /// Instead of `goOn`, in a child that was forked.
    void endInChild();

private:
    using Clock = std::chrono::steady_clock;

    void clear(std::ostream& answer);
    void start(unsigned samplesPerSecond, std::ostream& answer);
    void stop(std::ostream& answer);
    void print(const ProfilerCommand& command, std::ostream& answer);
    Clock::duration sinceStart() const;

    std::mutex mutex;
    std::unique_ptr<Samples> samples;  // their memory is taken by the first command
    std::unique_ptr<Sampler> sampler;
    Clock::time_point startedAt;
    Clock::duration finished{0};  // how long it ran before it was started the last time
    unsigned currentRate = 0;
    unsigned rate = 0;  // of all samples; 0 for several
};

void Profiler::execute(const ProfilerCommand& command, std::ostream& answer)
{
    const std::scoped_lock lock(mutex);
    if (!samples)
        samples = std::make_unique<Samples>();
    switch (command.verb) {
        case ProfilerCommand::Verb::Clear:
            return clear(answer);
        case ProfilerCommand::Verb::Start:
            return start(command.samplesPerSecond, answer);
        case ProfilerCommand::Verb::Stop:
            return stop(answer);
        case ProfilerCommand::Verb::Print:
            return print(command, answer);
    }
}

void Profiler::holdStill()
{
    mutex.lock();
    if (sampler)
        sampler->holdStill();
}

void Profiler::goOn()
{
    if (sampler)
        sampler->goOn();
    mutex.unlock();
}

// The child has what was sampled so far, but nobody who goes on with it.
void Profiler::endInChild()
{
    if (sampler) {
        sampler->endInChild();
        sampler.reset();
        finished += Clock::now() - startedAt;
    }
    mutex.unlock();
}

void Profiler::clear(std::ostream& answer)
{
    samples->clear();
    finished = {};
    startedAt = Clock::now();
    rate = currentRate;
    answer << "all samples forgotten\n";
}

Profiler::Clock::duration Profiler::sinceStart() const
{
    return sampler ? Clock::now() - startedAt : Clock::duration(0);
}

void Profiler::start(unsigned samplesPerSecond, std::ostream& answer)
{
    if (sampler)
        refuseCommand("the profiler runs already");
    try {
        sampler = std::make_unique<Sampler>(*samples, samplesPerSecond);
    } catch (const SystemException& exception) {
        std::ostringstream reason;
        reason << "the profiler cannot sample by signal " << samplingSignal() << ": "
               << SystemError{exception.systemError()};
        refuseCommand(reason.view());
    }
    startedAt = Clock::now();
    const bool isFirst = finished == Clock::duration(0);
    currentRate = samplesPerSecond;
    rate = isFirst || rate == samplesPerSecond ? samplesPerSecond : 0;
    answer << "sampling " << samplesPerSecond << " times a second\n";
}

void Profiler::stop(std::ostream& answer)
{
    if (!sampler)
        refuseCommand("the profiler does not run");
    sampler.reset();
    finished += Clock::now() - startedAt;
    const Samples::Summary summary = samples->summary();
    answer << summary.counted.processor << " samples of processor time and " << summary.counted.wait
           << " of wait time from " << summary.threads << " threads, " << summary.dropped
           << " dropped";
    if (summary.missed != 0)
        answer << ", " << summary.missed << " turns missed";
    answer << '\n';
}

void sayWhatWasWritten(const std::string& path, const ProfileGraph& graph, std::ostream& answer)
{
    answer << path << ": " << graph.samples;
    if (graph.samples != graph.allSamples)
        answer << " of " << graph.allSamples;
    answer << " samples in " << graph.functions << " functions\n";
}

void Profiler::print(const ProfilerCommand& command, std::ostream& answer)
{
    const ProfileCircumstances circumstances{finished + sinceStart(), rate, samples->summary()};
    const ProfileOutput output = drawProfile(samples->stacks(), circumstances, command.function);
    writeBoth({command.processorFile, output.processor.dot}, {command.waitFile, output.wait.dot});
    sayWhatWasWritten(command.processorFile, output.processor, answer);
    sayWhatWasWritten(command.waitFile, output.wait, answer);
}

// Never destroyed: a sampler may run until the end of the process.
Profiler& theProfiler()
{
    static Profiler* const profiler = new Profiler;
    return *profiler;
}

void holdStill()
{
    theProfiler().holdStill();
}

void goOn()
{
    theProfiler().goOn();
}

void endInChild()
{
    theProfiler().endInChild();
}

// A child that was forked in the middle of a turn would wait for ever for what the sampler's thread
// had locked, in here or in the library that walks, since it has no such thread. Not left to the
// first command, as a fork that is under way calls what was there when it began. A failure is that
// of memory.
const bool isForkable = ::pthread_atfork(&holdStill, &goOn, &endInChild) == 0;

}  // namespace

void executeProfilerCommand(const std::vector<std::string>& words, std::ostream& answer)
{
    if (!isForkable)
        throw std::bad_alloc();
    theProfiler().execute(ProfilerCommand::read(words), answer);
}

}  // namespace Diagnose
