#pragma once

/// The version string of this build, such as "0.1.0"; null if the build supplied none.
const char* zdbver_version();

/// The date of this build as YYYY-MM-DD in UTC; null if the build supplied none.
const char* zdbver_compiledate();
