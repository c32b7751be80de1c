#pragma once

#include <map>
#include <string>
#include <string_view>

#include "vetraTests/FSPerf/FSPerfCmdOpts.h"

namespace vetraTests {

Basis::string arguments(std::string_view text);

/// Field names with their values as text.
using Fields = std::map<std::string, std::string>;

/// All fields of a record but the configuration.
Fields fieldsOf(const CCmdOptions& options);

/// Those of `fields` that are other than in `usual`.
Fields differences(const Fields& usual, const Fields& fields);

/// The value that is in force in the section of the file layer; "(unset)" if there is none.
std::string inForce(const Configuration::TempConfiguration& configuration, std::string_view key);

/// The nine parameters that the engine sets by itself.
Fields defaultsInForce(const Configuration::TempConfiguration& configuration);

/// A new record that has evaluated a string, with all that it printed.
struct Evaluation {
    explicit Evaluation(std::string_view text);

    /// What the string changed against a string with the directory alone.
    Fields changes() const;

    CCmdOptions options;
    bool succeeded = false;
    std::string output;
    std::string errors;
};

}  // namespace vetraTests
