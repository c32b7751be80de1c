#pragma once

#include <iostream>
#include <string>

#include "tests/services/support/CapturedOutput.h"
#include "tests/vetraTests/FSPerf/FakeFileLayer.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"
#include "vetraTests/FSPerf/FileAccessReqHdlr.h"

namespace vetraTests {

/// The handler with its fields open.
class OpenHandler : public CFileAccessRequestHandler {
public:
    using CFileAccessRequestHandler::m_barrier;
    using CFileAccessRequestHandler::m_control_block_buffer;
    using CFileAccessRequestHandler::m_control_blocks;
    using CFileAccessRequestHandler::m_data_buffer;
    using CFileAccessRequestHandler::m_error;
    using CFileAccessRequestHandler::m_file;
    using CFileAccessRequestHandler::m_file_factory;
    using CFileAccessRequestHandler::m_num_requests_i;
    using CFileAccessRequestHandler::m_output_mutex;
    using CFileAccessRequestHandler::m_profiler_running;
};

constexpr std::uint64_t testBlock = 4096;

/// Options of a run over `blocks` blocks with one buffer as large as the file.
struct TestOptions : CCmdOptions {
    explicit TestOptions(std::uint64_t blocks = 10)
    {
        reset();
        m_block_size = testBlock;
        m_file_size = blocks * testBlock;
        m_alloc_size = m_file_size;
        m_directory_path = "/data";
    }
    TestOptions& parameter(const char* word)
    {
        m_parameters.emplace_back(word);
        return *this;
    }
    TestOptions& output(OutputType type)
    {
        m_output_type = type;
        return *this;
    }
};

/// What an operation printed.
struct Printed {
    std::string output;
    std::string errors;
};

template <class Operation>
Printed printedBy(Operation operation)
{
    const unitTests::CapturedOutput out(std::cout);
    const unitTests::CapturedOutput err(std::cerr);
    operation();
    return {out.text(), err.text()};
}

inline Basis::string text(std::string_view characters)
{
    return Basis::string(characters, &fsperfAllocator());
}

inline Basis::vector<unsigned long> newOrder()
{
    return Basis::vector<unsigned long>(&fsperfAllocator());
}

}  // namespace vetraTests
