#pragma once

#include <filesystem>

#include "programs/scanhypervisorCheck/HypervisorScan.h"

namespace HypervisorScan {

/// What `main` does: without arguments it prints the two lines that the tool looks for, with an
/// empty value behind the blank on bare metal.
///
/// Returns the exit status: 0, or after one line on standard error 64 for an argument that it does
/// not know and 74 if the standard output cannot be written.
int runScanner(int argc, const char* const* argv, const CpuidReader& cpuid,
               const std::filesystem::path& dmiDirectory);

}  // namespace HypervisorScan
