#pragma once

#include <string>

namespace Diagnose {

/// A file as it shall be.
struct WantedFile {
    std::string path;
    std::string content;
};

/// Writes two files, both or none: until both are complete they stand beside the wanted ones under
/// other names. Whatever stood there before is replaced, a symbolic link itself and not what it
/// points to; a failure leaves it as it was. Throws a CommandException that names the path and the
/// system error.
void writeBoth(const WantedFile& first, const WantedFile& second);

}  // namespace Diagnose
