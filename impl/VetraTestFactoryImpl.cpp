#include "impl/VetraTestFactoryImpl.h"

#include <iostream>
#include <string_view>

#include "impl/network/NetworkTest.h"
#include "vetraTests/FilesystemTest.h"
#include "vetraTests/LandscapeTest.h"

namespace Vetra {

namespace {

template <class Test>
TestPointer make(Basis::Allocator& allocator)
{
    return std::allocate_shared<Test>(std::pmr::polymorphic_allocator<Test>(&allocator), allocator);
}

struct Registration {
    std::string_view testClass;
    TestPointer (*create)(Basis::Allocator&);
};

constexpr Registration registrations[] = {
    {"DataVolumeIO", &make<vetraTests::DataVolumeIO>},
    {"LogVolumeIO", &make<vetraTests::LogVolumeIO>},
    {"BackupIO", &make<vetraTests::BackupIO>},
    {"MixedStressIO", &make<vetraTests::MixedStressIO>},
    {"EvalOS", &make<vetraTests::EvalOS>},
    {"NetworkTest", &make<vetraTests::NetworkTest>},
};

}  // namespace

VetraTestFactoryImpl::VetraTestFactoryImpl(Basis::Allocator&) {}

TestPointer VetraTestFactoryImpl::createInstance(Basis::Allocator& allocator, string& testClass)
{
    for (const Registration& registration : registrations) {
        if (testClass == registration.testClass) {
            std::cout << "Creating Test instance " << testClass << "..." << std::endl;
            return registration.create(allocator);
        }
    }
    std::cout << testClass << " is not registered." << std::endl;
    return nullptr;
}

}  // namespace Vetra
