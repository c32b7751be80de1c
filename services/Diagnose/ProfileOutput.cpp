#include "Diagnose/ProfileOutput.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <string_view>

#include "Diagnose/DotWriter.h"
#include "Diagnose/SymbolNames.h"
#include "Diagnose/SymbolTable.h"

namespace Diagnose {

namespace {

// What runs before the first function of the program's or of a thread's own.
constexpr std::string_view startUpFunctions[] = {"_start",
                                                 "__libc_start_main",
                                                 "__libc_start_main_impl",
                                                 "__libc_start_call_main",
                                                 "clone",
                                                 "__clone",
                                                 "clone3",
                                                 "__clone3",
                                                 "start_thread",
                                                 "execute_native_thread_routine",
                                                 "std::execute_native_thread_routine",
                                                 "std::thread::_State_impl::_M_run",
                                                 "std::thread::_Invoker::operator()",
                                                 "std::thread::_Invoker::_M_invoke",
                                                 "std::__invoke",
                                                 "std::__invoke_impl"};
// Libraries whose names for such functions are not in their files.
constexpr std::string_view startUpLibraries[] = {
    "[libc.so", "[libc-", "[libstdc++", "[libpthread", "[ld-linux", "[libasan", "[libtsan"};

bool isStartUp(const std::string& name)
{
    if (name.starts_with('['))
        return std::any_of(std::begin(startUpLibraries), std::end(startUpLibraries),
                           [&](std::string_view library) { return name.starts_with(library); });
    const std::string function = qualifiedName(name);
    return std::find(std::begin(startUpFunctions), std::end(startUpFunctions), function) !=
           std::end(startUpFunctions);
}

// Gives each name a number.
class NameNumbers {
public:
    explicit NameNumbers(NamedStacks& namedStacks) : stacks(namedStacks) {}

    void add(const std::vector<std::string>& names, std::uint64_t samples)
    {
        NamedStacks::Stack stack{{}, samples};
        for (const std::string& name : names) {
            const auto [entry, isNew] = numbers.try_emplace(name, stacks.names.size());
            if (isNew)
                stacks.names.push_back(name);
            stack.functions.push_back(entry->second);
        }
        stacks.stacks.push_back(std::move(stack));
    }

private:
    NamedStacks& stacks;
    std::map<std::string, std::size_t> numbers;
};

// Names the frames of stacks; the same address is looked up once.
class FrameNames {
public:
    std::vector<std::string> of(const StackTable::Stack& stack)
    {
        std::vector<std::string> names;
        for (std::size_t i = 0; i < stack.addresses.size(); ++i) {
            // A caller's address is the one behind the call, which may be that of another function.
            const bool isInnermost = i + 1 == stack.addresses.size();
            names.push_back(nameOf(stack.addresses[i] - (isInnermost ? 0 : 1)));
        }
        return names;
    }

private:
    const std::string& nameOf(std::uint64_t address)
    {
        const auto [entry, isNew] = known.try_emplace(address);
        if (isNew)
            entry->second = symbols.nameOf(address);
        return entry->second;
    }

    SymbolTable symbols;
    std::map<std::uint64_t, std::string> known;
};

std::vector<std::string> titleOf(std::string_view what, const ProfileGraph& graph,
                                 const ProfileCircumstances& circumstances,
                                 const std::string& function)
{
    const double seconds = std::chrono::duration<double>(circumstances.duration).count();
    std::string rate = fmt::format(" at {} a second", circumstances.samplesPerSecond);
    if (circumstances.samplesPerSecond == 0)
        rate = circumstances.duration.count() == 0 ? "" : " at several rates";
    const SampleCounts& counted = circumstances.summary.counted;
    std::vector<std::string> title{
        std::string(what),
        fmt::format("{} samples in {:.2f} s{}; in all {} of processor time, {} of wait time",
                    graph.allSamples, seconds, rate, counted.processor, counted.wait),
        fmt::format("{} threads, {} samples dropped", circumstances.summary.threads,
                    circumstances.summary.dropped)};
    if (circumstances.summary.missed != 0)
        title.back() += fmt::format(", {} turns missed", circumstances.summary.missed);
    if (!function.empty())
        title.push_back(fmt::format("{} and below: {} of {} samples kept", function, graph.samples,
                                    graph.allSamples));
    return title;
}

ProfileGraph draw(const NamedStacks& stacks, std::uint64_t allSamples, std::string_view what,
                  const ProfileCircumstances& circumstances, const std::string& function)
{
    const CallGraph callGraph = CallGraph::of(stacks);
    ProfileGraph graph;
    graph.samples = callGraph.samples;
    graph.allSamples = allSamples;
    graph.functions = stacks.names.size();
    graph.dot = toDot(callGraph, titleOf(what, graph, circumstances, function));
    return graph;
}

}  // namespace

void cutStartUp(std::vector<std::string>& stack)
{
    const auto own = std::find_if(stack.begin(), stack.end(),
                                  [](const std::string& name) { return !isStartUp(name); });
    stack.erase(stack.begin(), own == stack.end() ? stack.end() - 1 : own);
}

bool cutToFunction(std::vector<std::string>& stack, const std::string& function)
{
    const auto found = std::find_if(stack.begin(), stack.end(), [&](const std::string& name) {
        return qualifiedName(name) == function;
    });
    const bool isThere = found != stack.end();
    stack.erase(stack.begin(), found);
    return isThere;
}

ProfileOutput drawProfile(const std::vector<StackTable::Stack>& stacks,
                          const ProfileCircumstances& circumstances, const std::string& function)
{
    NamedStacks processor;
    NamedStacks wait;
    NameNumbers processorNumbers(processor);
    NameNumbers waitNumbers(wait);
    FrameNames frameNames;
    SampleCounts all;
    for (const StackTable::Stack& stack : stacks) {
        all += stack.counts;
        std::vector<std::string> names = frameNames.of(stack);
        cutStartUp(names);
        if (!function.empty() && !cutToFunction(names, qualifiedName(function)))
            continue;
        if (stack.counts.processor != 0)
            processorNumbers.add(names, stack.counts.processor);
        if (!stack.waitChannel.empty())
            names.push_back("[kernel " + stack.waitChannel + "]");
        if (stack.counts.wait != 0)
            waitNumbers.add(names, stack.counts.wait);
    }
    return {draw(processor, all.processor, "Processor time: what threads did while they ran",
                 circumstances, function),
            draw(wait, all.wait, "Wait time: where threads slept", circumstances, function)};
}

}  // namespace Diagnose
