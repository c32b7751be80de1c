#pragma once

#include <cstdint>

namespace unitTests {

/// Holds System::getSystemMilliTimeLocal at one value until the end of its scope.
class FixedMilliTime {
public:
    explicit FixedMilliTime(std::int64_t milliseconds);
    ~FixedMilliTime();

    FixedMilliTime(const FixedMilliTime&) = delete;
    FixedMilliTime& operator=(const FixedMilliTime&) = delete;
};

}  // namespace unitTests
