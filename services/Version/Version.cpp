#include "Version/Version.h"

#include "VersionData.h"

const char* zdbver_version()
{
    return VETRA_VERSION;
}

const char* zdbver_compiledate()
{
    return VETRA_BUILD_DATE;
}
