#pragma once

#include <cstdint>

#include "Configuration/ConfigurationHandler.h"

namespace Configuration {

/// Parameters that live in memory as long as the object. Values that were set count from the next
/// reconfigure on, all at once.
/// Threads: one thread per object.
class TempConfiguration : public ConfigurationHandler {
public:
    /// `name` says whose parameters these are; `secondName` is reserved and null.
    TempConfiguration(Basis::Allocator& ownerAllocator, const char* name, const char* secondName);

    /// Forgets all parameters, also those in force.
    void clear();

    /// Stores one parameter; a later value replaces an earlier one. `layer` is reserved and null.
    void setParameterValue(std::string_view section, std::string_view key, const char* layer,
                           std::uint64_t value);
    void setParameterValue(std::string_view section, std::string_view key, const char* layer,
                           std::string_view value);

    /// Makes the stored values take effect.
    void reconfigure();

    bool getParameterValue(std::string_view section, std::string_view key,
                           Basis::string& value) const override;

    const Basis::string& name() const { return ownName; }

private:
    using Parameters = Basis::map<Basis::string, Basis::map<Basis::string, Basis::string>>;

    Basis::Allocator& allocator;
    Basis::string ownName;
    Parameters stored;
    Parameters inForce;
};

}  // namespace Configuration
