#pragma once

#include "Basis/Containers.h"

namespace vetraTests {

/// Gives the value of the first KEY=VALUE word with that key. Returns false, and leaves `value`, if
/// there is none.
bool retrieveAccessModeValue(const Basis::vector<Basis::string>& params, const char* key,
                             Basis::string& value);

/// The file layer's number for the access mode that the parameters ask for: 10 for "off", 12 for
/// "on" when writing, 11 for everything else, "on" when reading included.
int retrieveAccessMode(const Basis::vector<Basis::string>& params, bool write);

}  // namespace vetraTests
