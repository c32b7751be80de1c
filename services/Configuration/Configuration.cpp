#include "Configuration/Configuration.h"

namespace config {

std::shared_ptr<Configuration> Configuration::getServiceConfig()
{
    static const std::shared_ptr<Configuration> instance = std::make_shared<Configuration>();
    return instance;
}

}  // namespace config
