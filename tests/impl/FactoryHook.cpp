#include "tests/impl/FactoryHook.h"

#include <utility>

#include "impl/VetraTestFactoryImpl.h"

// The linker sends the driver's calls of createInstance to the name with "__wrap_" in front, and
// gives us the factory's own under "__real_".
#define CREATE_INSTANCE                                                           \
    "_ZN5Vetra20VetraTestFactoryImpl14createInstanceERN5Basis9AllocatorERNSt7__c" \
    "xx1112basic_stringIcSt11char_traitsIcENSt3pmr21polymorphic_allocatorIcEEEE"

namespace unitTests {

Vetra::TestPointer createHooked(Vetra::VetraTestFactoryImpl* factory, Basis::Allocator& allocator,
                                Basis::string& testClass) __asm__("__wrap_" CREATE_INSTANCE);
Vetra::TestPointer createReally(Vetra::VetraTestFactoryImpl* factory, Basis::Allocator& allocator,
                                Basis::string& testClass) __asm__("__real_" CREATE_INSTANCE);

namespace {

FactoryHook::Create hook;

}  // namespace

FactoryHook::FactoryHook(Create create)
{
    hook = std::move(create);
}

FactoryHook::~FactoryHook()
{
    hook = nullptr;
}

Vetra::TestPointer createHooked(Vetra::VetraTestFactoryImpl* factory, Basis::Allocator& allocator,
                                Basis::string& testClass)
{
    return hook ? hook(allocator, testClass) : createReally(factory, allocator, testClass);
}

}  // namespace unitTests
