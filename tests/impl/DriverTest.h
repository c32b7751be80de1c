#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "Basis/Containers.h"
#include "impl/UserConfig.h"
#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/Files.h"
#include "vetraDefines.h"

namespace unitTests {

/// What every test of the driver stands on: an empty current directory, a domain that must be at
/// zero in the end, and standard output in a string.
class DriverTest : public testing::Test {
protected:
    Basis::string text(std::string_view content) const
    {
        return Basis::string(content, domain.get());
    }

    WorkingDirectory directory;
    std::shared_ptr<Basis::Allocator> domain =
        Basis::Allocator::createChild(Basis::Allocator::global(), "driver", 0);
    CapturedOutput output;
};

/// A driver's test with a configuration.
class ConfiguredTest : public DriverTest {
protected:
    /// Reads a configuration text; returns the text of the exception, or "" if there was none.
    std::string read(std::string_view json)
    {
        Basis::string content = text(json);
        try {
            config.readJsonUserConfig(content);
        } catch (const Vetra::VetraException& exception) {
            return exception.what();
        }
        return "";
    }

    Vetra::UserConfig config{*domain};
};

}  // namespace unitTests
