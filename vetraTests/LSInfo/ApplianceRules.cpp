// The server models that are certified for the database.

#include <algorithm>
#include <iostream>
#include <iterator>

#include "vetraDefines.h"
#include "vetraTests/LSInfo/CertifiedModels.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace vetraTests {

namespace {

constexpr std::string_view rule = "validateApplianceSystemType";
constexpr std::string_view item = "('appliancetype'";

}  // namespace

string ValidateSystemInfo::validateApplianceSystemType(const SystemInfo& facts, const string&)
{
    const string productName = facts.getProductName();
    string failure(productName, &allocator);
    failure.append(
        " is not a certified ZIRN Server.\n"
        " Due to new validations, this information can be outdated. \n"
        " Please look into the KOR ZIRN PAM for more details");
    try {
        return certifiedModelOutcome(productName, failure);
    } catch (const Vetra::VetraException& exception) {
        // A failure is reported whether or not the model had been found.
        std::cout << "It is not a certified ZIRN Server." << exception << std::endl;
        return conclude(rule, Outcome::failed(item, productName, failure));
    }
}

string ValidateSystemInfo::certifiedModelOutcome(const string& productName, const string& failure)
{
    const bool isCertified = std::find(std::begin(certifiedModels), std::end(certifiedModels),
                                       std::string_view(productName)) != std::end(certifiedModels);
    if (isCertified)
        return conclude(rule, Outcome::passed(item, productName));
    return conclude(rule, Outcome::failed(item, productName, failure));
}

}  // namespace vetraTests
