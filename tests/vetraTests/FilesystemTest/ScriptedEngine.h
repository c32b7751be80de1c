#pragma once

#include <string>
#include <vector>

#include "Basis/Containers.h"
#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/Guards.h"
#include "vetraTests/FilesystemTest.h"

namespace ioTests {

/// What the engine was asked for, and what it answers.
struct ScriptedEngine {
    std::vector<std::string> commandLines;
    std::size_t failAt = SIZE_MAX;  ///< index of the run that fails
    int failure = 4;
};

ScriptedEngine& engine();

/// One test of a file system on a host of a given name, with the engine's record emptied.
template <class Test>
class OnHost {
public:
    explicit OnHost(const char* host) : environment(host)
    {
        engine() = {};
        test = std::make_unique<Test>(*Basis::Allocator::global());
    }

    std::string configure(const std::string& config)
    {
        const unitTests::CapturedOutput out;
        Basis::string text(config, Basis::Allocator::global().get());
        test->setTestConfig(text);
        return out.text();
    }
    std::string run()
    {
        const unitTests::CapturedOutput out;
        status = test->runTest();
        return out.text();
    }
    std::string json() { return std::string(test->getTestJsonResult()); }
    std::string report() { return std::string(test->getTestHumanReadableResult()); }

    int status = 99;
    std::unique_ptr<Test> test;

private:
    struct Host {
        explicit Host(const char* name)
        {
            const char* before = ::getenv("HOST");
            hadHost = before != nullptr;
            old = hadHost ? before : "";
            name ? ::setenv("HOST", name, 1) : ::unsetenv("HOST");
        }
        ~Host() { hadHost ? ::setenv("HOST", old.c_str(), 1) : ::unsetenv("HOST"); }
        bool hadHost;
        std::string old;
    } environment;
};

}  // namespace ioTests
