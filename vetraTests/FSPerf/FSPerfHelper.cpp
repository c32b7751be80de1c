#include "vetraTests/FSPerf/FSPerfHelper.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <string_view>

#include "Basis/Crash.h"
#include "vetraTests/FSPerf/FSPerfCmdOpts.h"

namespace vetraTests {

namespace {

// The domain counts from the start of the program, whether or not a run takes place.
[[maybe_unused]] const Basis::Allocator& builtAtStart = fsperfAllocator();

constexpr std::size_t headerWidth = 76;  // and two columns of frame at each side
constexpr std::size_t labelWidth = 40;

struct Unit {
    unsigned shift;
    const char* name;
};

constexpr Unit units[] = {{50, "PB"}, {40, "TB"}, {30, "GB"}, {20, "MB"}, {10, "KB"}, {0, "B"}};

void printSetting(std::string_view label, std::string_view value)
{
    const Basis::string filling(labelWidth - label.size(), '.', &fsperfAllocator());
    std::cout << "   " << label << filling << value << std::endl;
}

const char* testModeText(const CCmdOptions& options)
{
    if (options.m_test_initial_write && options.m_test_overwrite)
        return options.m_test_read ? "all" : "write";
    if (options.m_test_initial_write)
        return "initial_write";
    return options.m_test_overwrite ? "overwrite" : "read";
}

const char* measurementsText(const CCmdOptions& options)
{
    static constexpr const char* texts[] = {"Unknown", "throughput", "latency", "all"};
    return options.m_measurements < std::size(texts) ? texts[options.m_measurements] : texts[0];
}

const char* outputTypeText(const CCmdOptions& options)
{
    static constexpr const char* texts[] = {"short", "verbose", "full", "json", "json_short"};
    const auto type = static_cast<std::size_t>(options.m_output_type);
    return type < std::size(texts) ? texts[type] : "Unknown";
}

const char* profilerModeText(const CCmdOptions& options)
{
    static constexpr const char* texts[] = {"off",     "all",    "main",
                                            "trigger", "submit", "completion"};
    const auto mode = static_cast<std::size_t>(options.m_profiler_mode);
    Basis::assertThat(mode < std::size(texts), "the profiler mode is one of six");
    return texts[mode];
}

}  // namespace

const std::shared_ptr<Basis::Allocator>& fsperfAllocatorHandle()
{
    static const std::shared_ptr<Basis::Allocator> handle =
        Basis::Allocator::createChild(Basis::Allocator::global(), "FSPerf", 0);
    return handle;
}

Basis::string memSize2Str(unsigned long bytes)
{
    const Unit* unit = std::find_if(std::begin(units), std::end(units), [bytes](const Unit& one) {
        return (bytes & ((1UL << one.shift) - 1)) == 0;
    });
    Basis::ostringstream text = Basis::outputStream(fsperfAllocator());
    text << (bytes >> unit->shift) << unit->name;
    return text.str();
}

void printBlockHeader(const char* text, char frame)
{
    if (!text || !*text)
        return;
    const std::string_view title(text);
    const std::size_t width = std::max(headerWidth, title.size());
    const Basis::string border(width + 4, frame, &fsperfAllocator());
    const Basis::string filling(width - title.size(), ' ', &fsperfAllocator());
    const bool hasBars = std::string_view("-/=\\").find(frame) != std::string_view::npos;
    const char side = hasBars ? '|' : frame;
    std::cout << std::endl
              << border << std::endl
              << side << ' ' << title << filling << ' ' << side << std::endl
              << border << std::endl
              << std::endl;
}

void printCommandLine(const Basis::string& args)
{
    std::cout << "Original command line was:" << args << std::endl << std::endl;
}

void printExtractedCmdArgs(const CCmdOptions& options)
{
    std::cout << "The tests will be executed with the following settings:" << std::endl
              << std::endl;
    printSetting("Test mode:", testModeText(options));
    printSetting("Measurements", measurementsText(options));
    printSetting("Program output:", outputTypeText(options));
    printSetting("Block size:", memSize2Str(options.m_block_size));
    printSetting("File size:", memSize2Str(options.m_file_size));
    printSetting("Alloc size:", memSize2Str(options.m_alloc_size));
    printSetting("I/O access order:", options.m_random_io_order ? "random" : "sequential");
    printSetting("Randomize data:", options.m_randomize_data ? "yes" : "no");
    printSetting("No cleanup: ", options.m_cleanup ? "no" : "yes");
    printSetting("No initialization:", options.m_initialize ? "no" : "yes");
    printSetting("Profiler mode:", profilerModeText(options));
    printSetting("Profiler base name:", options.m_profiler_base_name);
    printSetting("Directory path:", options.m_directory_path);

    std::cout << "   Additional program parameters:" << std::endl;
    for (const Basis::string& parameter : options.m_parameters)
        std::cout << "      " << parameter << std::endl;
    if (options.m_parameters.empty())
        std::cout << "      None" << std::endl;
    std::cout << std::endl;
}

}  // namespace vetraTests
