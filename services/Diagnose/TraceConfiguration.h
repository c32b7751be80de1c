#pragma once

#include <string_view>

#include "Diagnose/TraceTopic.h"

namespace Diagnose {

/// The set-up of the diagnostic trace, which is separate from a program's own log.
///
/// The trace file is "<program>_<pid>.diag.trc" in the directory given, or it is standard error. A
/// file comes into being with
/// the first line that is traced, so a quiet run leaves none. If it cannot be written, one line on
/// standard error says so and tracing stops; the program goes on.
/// Threads: any.
class TraceConfiguration {
public:
    /// True once initializeExecutable has been called.
    static bool isConfigured();

    /// Sets the layer up. File type 1 is a plain text file, formatter type 1 a line of time,
    /// thread, level, topic and text; there are no others. A second call changes nothing.
    static void initializeExecutable(std::string_view directory, int fileType, int formatterType);

    /// The same, with standard error in the place of the file.
    static void initializeStandardError();

    /// Writes one line, for TraceTopic. Without a set-up the line is dropped.
    static void write(const char* topic, TraceLevel level, std::string_view text);
};

}  // namespace Diagnose
