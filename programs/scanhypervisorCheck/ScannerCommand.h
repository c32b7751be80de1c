#pragma once

#include <filesystem>

#include "programs/scanhypervisorCheck/HypervisorScan.h"

namespace HypervisorScan {

/// What `main` does: without arguments it prints the two lines that the tool looks for, with an
/// empty value behind the blank on bare metal.
///
/// Returns the exit status: 0, or 64 after one line on standard error for an argument that it does
/// not know.
int runScanner(int argc, const char* const* argv, const CpuidReader& cpuid,
               const std::filesystem::path& dmiDirectory);

}  // namespace HypervisorScan
