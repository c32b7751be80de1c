#include "tests/vetraTests/FSPerf/Options.h"

#include <iostream>

#include "tests/services/support/CapturedOutput.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"

namespace vetraTests {

Basis::string arguments(std::string_view text)
{
    return Basis::string(text, &fsperfAllocator());
}

Fields fieldsOf(const CCmdOptions& options)
{
    Fields fields = {
        {"cleanup", std::to_string(options.m_cleanup)},
        {"initialize", std::to_string(options.m_initialize)},
        {"test_initial_write", std::to_string(options.m_test_initial_write)},
        {"test_overwrite", std::to_string(options.m_test_overwrite)},
        {"test_read", std::to_string(options.m_test_read)},
        {"random_io_order", std::to_string(options.m_random_io_order)},
        {"randomize_data", std::to_string(options.m_randomize_data)},
        {"output_type", std::to_string(static_cast<int>(options.m_output_type))},
        {"measurements", std::to_string(options.m_measurements)},
        {"block_size", std::to_string(options.m_block_size)},
        {"file_size", std::to_string(options.m_file_size)},
        {"alloc_size", std::to_string(options.m_alloc_size)},
        {"block_size_text", std::string(options.m_block_size_text)},
        {"file_size_text", std::string(options.m_file_size_text)},
        {"directory_path", std::string(options.m_directory_path)},
        {"profiler_mode", std::to_string(static_cast<int>(options.m_profiler_mode))},
        {"profiler_base_name", std::string(options.m_profiler_base_name)},
    };
    std::string& parameters = fields["parameters"];
    for (const Basis::string& parameter : options.m_parameters)
        parameters.append(parameter).append(1, '\n');
    return fields;
}

Fields differences(const Fields& usual, const Fields& fields)
{
    Fields other;
    for (const auto& [name, value] : fields) {
        if (usual.at(name) != value)
            other[name] = value;
    }
    return other;
}

std::string inForce(const Configuration::TempConfiguration& configuration, std::string_view key)
{
    Basis::string value("(unset)", &fsperfAllocator());
    configuration.getParameterValue("fileio", key, value);
    return std::string(value);
}

Fields defaultsInForce(const Configuration::TempConfiguration& configuration)
{
    Fields values;
    for (const char* key :
         {"num_completion_queues", "size_kernel_io_queue", "max_parallel_io_requests",
          "max_submit_batch_size", "min_submit_batch_size", "async_read_submit",
          "num_submit_queues", "async_write_submit_blocks", "async_write_submit_active"})
        values[key] = inForce(configuration, key);
    return values;
}

Evaluation::Evaluation(std::string_view text)
{
    const unitTests::CapturedOutput out(std::cout);
    const unitTests::CapturedOutput err(std::cerr);
    succeeded = options.evaluate(arguments(text));
    output = out.text();
    errors = err.text();
}

Fields Evaluation::changes() const
{
    return differences(fieldsOf(Evaluation("fsperf .").options), fieldsOf(options));
}

}  // namespace vetraTests
