#pragma once

#include <cstdint>
#include <ostream>

#include "Configuration/ConfigurationHandler.h"

namespace FileAccess {

/// The parameters of the section "fileio", as they are in force.
struct FileIOParameters {
    enum class WriteSubmit { off, on, automatic };
    enum class WriteBlocks { none, onlyNew, all };

    std::uint32_t numCompletionQueues = 1;     ///< [1, 16]
    std::uint32_t numSubmitQueues = 1;         ///< [1, 16]
    std::uint32_t sizeKernelIoQueue = 512;     ///< [128, 2048]
    std::uint32_t maxParallelIoRequests = 64;  ///< [1, sizeKernelIoQueue]
    std::uint32_t minSubmitBatchSize = 16;     ///< [1, maxSubmitBatchSize[
    std::uint32_t maxSubmitBatchSize = 64;     ///< ]minSubmitBatchSize, maxParallelIoRequests]
    bool asyncReadSubmit = true;
    WriteSubmit asyncWriteSubmitActive = WriteSubmit::automatic;
    WriteBlocks asyncWriteSubmitBlocks = WriteBlocks::all;

    /// Reads the section. A number out of its range is put to the nearest that is allowed, numbers
    /// that clash to the nearest consistent set, and what is no number or no known word to the
    /// default.
    static FileIOParameters read(const Configuration::ConfigurationHandler& configuration);
};

/// Writes all parameters as `key=value` pairs between commas.
std::ostream& operator<<(std::ostream& stream, const FileIOParameters& parameters);

}  // namespace FileAccess
