#pragma once

#include <functional>
#include <string>
#include <vector>

#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace unitTests {

/// What EvalOS::runTest gets from its neighbours, and what it asked of them. They answer from the
/// object that is alive, one at a time.
class Neighbours {
public:
    Neighbours();
    ~Neighbours();

    Neighbours(const Neighbours&) = delete;
    Neighbours& operator=(const Neighbours&) = delete;

    /// One call of ValidateSystemInfo::validate.
    struct Validation {
        std::vector<vetraTests::RulePointer> checks;
        int count;
        std::string title;
        std::string arch;
    };

    std::string arch = "x86";
    std::string facts = "{\n}\n";
    /// What the report holds besides the title: nothing, or the block of the title's rule.
    bool isReportEmpty = false;
    bool isTraceConfigured = true;
    std::function<void()> whileGathering = [] {};

    int gatherings = 0;
    std::vector<Validation> validations;
    /// "directory fileType formatterType" of each set-up of the trace.
    std::vector<std::string> traceSetUps;
};

}  // namespace unitTests
