#include "Configuration/TempConfiguration.h"

#include <string>

#include "Basis/Crash.h"

namespace Configuration {

TempConfiguration::TempConfiguration(Basis::Allocator& ownerAllocator, const char* name,
                                     const char* secondName)
    : allocator(ownerAllocator),
      ownName(name, &ownerAllocator),
      stored(&ownerAllocator),
      inForce(&ownerAllocator)
{
    Basis::assertThat(!secondName, "a temporary configuration has one name");
}

void TempConfiguration::clear()
{
    stored.clear();
    inForce.clear();
}

void TempConfiguration::setParameterValue(std::string_view section, std::string_view key,
                                          const char* layer, std::uint64_t value)
{
    setParameterValue(section, key, layer, std::string_view(std::to_string(value)));
}

void TempConfiguration::setParameterValue(std::string_view section, std::string_view key,
                                          const char* layer, std::string_view value)
{
    Basis::assertThat(!layer, "a temporary configuration has one layer");
    auto& parameters = stored[Basis::string(section, &allocator)];
    parameters[Basis::string(key, &allocator)] = value;
}

void TempConfiguration::reconfigure()
{
    inForce = stored;
}

bool TempConfiguration::getParameterValue(std::string_view section, std::string_view key,
                                          Basis::string& value) const
{
    const auto parameters = inForce.find(Basis::string(section, &allocator));
    if (parameters == inForce.end())
        return false;
    const auto parameter = parameters->second.find(Basis::string(key, &allocator));
    if (parameter == parameters->second.end())
        return false;
    value = parameter->second;
    return true;
}

}  // namespace Configuration
