#pragma once

#include <memory>

#include "Basis/Allocator.h"

namespace VetraFuzz {

/// To be called once, before the first input: what the tool prints goes nowhere, and containers
/// that do not name a domain get no memory, so that a plain copy of a text ends the run.
void prepareProcess();

/// A domain for the objects of one input.
///
/// Its end stops the program if this domain or the process-wide one still holds anything.
class InputDomain {
public:
    InputDomain();
    ~InputDomain();

    InputDomain(const InputDomain&) = delete;
    InputDomain& operator=(const InputDomain&) = delete;

    Basis::Allocator& allocator() const { return *domain; }

private:
    std::shared_ptr<Basis::Allocator> domain;
};

}  // namespace VetraFuzz
