#pragma once

#include <functional>

#include "VetraTestInterface.h"

namespace unitTests {

/// Stands in front of VetraTestFactoryImpl::createInstance until the end of its scope. Without a
/// hook the factory itself answers.
class FactoryHook {
public:
    /// Returns the test for a class name, or null.
    using Create = std::function<Vetra::TestPointer(Basis::Allocator&, const Basis::string&)>;

    explicit FactoryHook(Create create);
    ~FactoryHook();

    FactoryHook(const FactoryHook&) = delete;
    FactoryHook& operator=(const FactoryHook&) = delete;
};

}  // namespace unitTests
