#pragma once

#include "VetraTestInterface.h"

namespace Vetra {

/// Makes a test from the class name of its configuration entry.
class VetraTestFactoryImpl {
public:
    explicit VetraTestFactoryImpl(Basis::Allocator& ignored);
    virtual ~VetraTestFactoryImpl() = default;

    /// Returns a new test whose memory is in the given domain, null if the class is not registered.
    /// Either is said in one line on standard output, before anything is constructed.
    TestPointer createInstance(Basis::Allocator& allocator, string& testClass);
};

}  // namespace Vetra
