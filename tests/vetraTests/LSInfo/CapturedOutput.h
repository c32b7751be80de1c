#pragma once

#include <iostream>
#include <sstream>
#include <string>

namespace vetraTests {

/// Collects what is written to std::cout while it lives.
class CapturedOutput {
public:
    CapturedOutput() : before(std::cout.rdbuf(collected.rdbuf())) {}
    ~CapturedOutput() { std::cout.rdbuf(before); }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    std::string text() const { return collected.str(); }

private:
    std::ostringstream collected;
    std::streambuf* before;
};

}  // namespace vetraTests
