#include <string_view>

#include "vetraTests/FSPerf/FSPerfHelper.h"

namespace vetraTests {

namespace {

// The defaults and ranges are those of the file layer; the engine sets some of its own.
constexpr std::string_view usageLines[] = {
    "********************************************************************************",
    "**Tests file system performance for given scenarios/configuration parameters. **",
    "********************************************************************************",
    "* Available OPTIONS:                                                           *",
    "*    --param KEY=VALUE                                                         *",
    "*      The '--param' option sets ZIRN configuration parameters.                *",
    "*        There are three groups of parameters that can be specified:           *",
    "*        BASIC, EXTENDED and INTERNAL. INTERNAL parameters are best left       *",
    "*        unchanged and might not be supported in productive ZIRN systems.      *",
    "*                                                                              *",
    "*        BASIC parameters:                                                     *",
    "*            - async_read_submit:                                              *",
    "*              Controls whether read requests are submitted asynchronously.    *",
    "*                 - off                                                        *",
    "*                 - on (Default)                                               *",
    "*                                                                              *",
    "*            - async_write_submit_active:                                      *",
    "*              Controls whether write requests can be submitted asynchronously.*",
    "*                 - off                                                        *",
    "*                 - auto (decide based on underlying file system, Default)     *",
    "*                 - on                                                         *",
    "*                                                                              *",
    "*            - async_write_submit_blocks:                                      *",
    "*              Controls which blocks are written asynchronously. Only relevant *",
    "*              if async_write_submit_active is 'on' or 'auto' and file system  *",
    "*              is flagged as requiring asynchronous write submits.             *",
    "*                 - none                                                       *",
    "*                 - new                                                        *",
    "*                 - all (Default)                                              *",
    "*                                                                              *",
    "*        EXTENDED parameters:                                                  *",
    "*           - size_kernel_io_queue:                                            *",
    "*             Size of the kernel I/O queue per completion queue.               *",
    "*             Value must be in [128, 2048]. Default is 512.                    *",
    "*                                                                              *",
    "*           - max_parallel_io_requests:                                        *",
    "*             Maximum number of parallel I/O requests per completion queue.    *",
    "*             Must be in [1, size_kernel_io_queue], Default is 64.             *",
    "*                                                                              *",
    "*           - min_submit_batch_size:                                           *",
    "*             Minimum batch size for asynchronous submits.                     *",
    "*             Must be in [1, max_submit_batch_size[, Default is 16.            *",
    "*                                                                              *",
    "*           - max_submit_batch_size:                                           *",
    "*             Maximum batch size for asynchronous submits.                     *",
    "*             Must be in ]min_submit_batch_size, max_parallel_io_requests],    *",
    "*             Default is 64.                                                   *",
    "*                                                                              *",
    "*           - num_submit_queues:                                               *",
    "*             Number of submit queues. Must be in [1, 16], Default is 1.       *",
    "*                                                                              *",
    "*           - num_completion_queues:                                           *",
    "*             Number of completion queues. Must be in [1, 16], Default is 1.   *",
    "*                                                                              *",
    "********************************************************************************",
};

}  // namespace

Basis::string testUsage()
{
    Basis::string text(&fsperfAllocator());
    for (const std::string_view line : usageLines)
        text.append(line).append(1, '\n');
    return text;
}

}  // namespace vetraTests
