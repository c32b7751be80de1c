#pragma once

namespace System {

/// Opens "/dev/null" in the place of each standard stream that the caller has closed. Otherwise
/// the next file that is opened takes its number, and what is meant for the terminal goes there.
void openStandardStreams();

/// Lets a file that has reached the size limit of the process fail as any other that cannot be
/// written, instead of ending the process. Programs that this one starts are not affected.
void surviveFileSizeLimit();

/// Lets writing to a reader that has gone fail, instead of ending the process: a run whose terminal
/// is lost still writes its results. Programs that this one starts are not affected.
void surviveLostReader();

}  // namespace System
