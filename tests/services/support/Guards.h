#pragma once

#include <cstdlib>
#include <memory_resource>
#include <new>
#include <optional>
#include <string>

#include "Basis/Allocator.h"

namespace unitTests {

/// Makes every allocation from the default memory resource fail with std::bad_alloc, until the end
/// of its scope: a copy that has forgotten its owner's domain is found out.
class NoDefaultResource {
public:
    NoDefaultResource() : original(std::pmr::set_default_resource(std::pmr::null_memory_resource()))
    {
    }
    ~NoDefaultResource() { std::pmr::set_default_resource(original); }

    NoDefaultResource(const NoDefaultResource&) = delete;
    NoDefaultResource& operator=(const NoDefaultResource&) = delete;

private:
    std::pmr::memory_resource* original;
};

/// Sets an environment variable, or removes it if `value` is null, until the end of its scope.
class EnvironmentVariable {
public:
    EnvironmentVariable(const char* variable, const char* value) : name(variable)
    {
        if (const char* before = std::getenv(variable))
            original = before;
        set(value);
    }
    ~EnvironmentVariable() { set(original ? original->c_str() : nullptr); }

    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

    void set(const char* value)
    {
        if (value)
            ::setenv(name, value, 1);
        else
            ::unsetenv(name);
    }

private:
    const char* name;
    std::optional<std::string> original;
};

/// A domain that refuses every request.
class RefusingDomain : public Basis::Allocator {
public:
    RefusingDomain() : Basis::Allocator(Basis::Allocator::global(), "refusing") {}

private:
    void* do_allocate(std::size_t, std::size_t) override { throw std::bad_alloc(); }
};

}  // namespace unitTests
