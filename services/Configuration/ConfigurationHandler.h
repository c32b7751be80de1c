#pragma once

#include <string_view>

#include "Basis/Containers.h"

namespace Configuration {

/// Where a service reads its parameters.
class ConfigurationHandler {
public:
    virtual ~ConfigurationHandler() = default;

    /// Gives the value of a parameter that is in force. Returns false, and leaves `value`, if it is
    /// not set.
    virtual bool getParameterValue(std::string_view section, std::string_view key,
                                   Basis::string& value) const = 0;
};

}  // namespace Configuration
