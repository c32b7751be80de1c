#include "impl/VetraTestFactoryImpl.h"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <type_traits>

#include "tests/impl/DriverTest.h"
#include "tests/services/support/Guards.h"
#include "vetraTests/LandscapeTest.h"

namespace {

using Vetra::TestPointer;
using Vetra::VetraTestFactoryImpl;

static_assert(std::has_virtual_destructor_v<VetraTestFactoryImpl>);
static_assert(sizeof(VetraTestFactoryImpl) == sizeof(void*), "the factory has no data");

class VetraTestFactoryImplTest : public unitTests::DriverTest {
protected:
    TestPointer create(std::string_view testClass)
    {
        Basis::string name = text(testClass);
        return VetraTestFactoryImpl(*domain).createInstance(*domain, name);
    }
};

TEST_F(VetraTestFactoryImplTest, MakesEvalOSAndSaysSo)
{
    const TestPointer test = create("EvalOS");

    ASSERT_NE(test, nullptr);
    EXPECT_NE(dynamic_cast<vetraTests::EvalOS*>(test.get()), nullptr);
    EXPECT_EQ(test->getTestName(), "EvalOS");
    EXPECT_EQ(output.text(), "Creating Test instance EvalOS...\n");
}

TEST_F(VetraTestFactoryImplTest, TestAndItsReferenceCountStandInTheDomainGiven)
{
    const unitTests::NoDefaultResource guard;

    TestPointer test = create("EvalOS");

    EXPECT_GE(domain->bytes(), sizeof(vetraTests::EvalOS));
    EXPECT_EQ(test->getTestUsage().get_allocator().resource(), domain.get());
    EXPECT_EQ(test.use_count(), 1);
    test.reset();
    EXPECT_EQ(domain->bytes(), 0U);
}

TEST_F(VetraTestFactoryImplTest, EachCallMakesATestOfItsOwn)
{
    const TestPointer first = create("EvalOS");
    const TestPointer second = create("EvalOS");

    EXPECT_NE(first, second);
}

TEST_F(VetraTestFactoryImplTest, EmptyClassIsNotRegistered)
{
    EXPECT_EQ(create(""), nullptr);

    EXPECT_EQ(output.text(), " is not registered.\n");
}

TEST_F(VetraTestFactoryImplTest, ClassOfOtherCaseIsNotRegistered)
{
    EXPECT_EQ(create("evalos"), nullptr);
    EXPECT_EQ(create("EVALOS"), nullptr);

    EXPECT_EQ(output.text(), "evalos is not registered.\nEVALOS is not registered.\n");
}

TEST_F(VetraTestFactoryImplTest, ClassWithMoreOrFewerLettersIsNotRegistered)
{
    for (const std::string_view name :
         {"EvalOS ", " EvalOS", "EvalO", "EvalOS2", "vetraTests::EvalOS"})
        EXPECT_EQ(create(name), nullptr) << name;
    EXPECT_EQ(create(std::string_view("EvalOS\0", 7)), nullptr);
}

TEST_F(VetraTestFactoryImplTest, PrintsBeforeItConstructs)
{
    unitTests::RefusingDomain refusing;
    Basis::string name = text("EvalOS");

    EXPECT_THROW(VetraTestFactoryImpl(*domain).createInstance(refusing, name), std::bad_alloc);

    EXPECT_EQ(output.text(), "Creating Test instance EvalOS...\n");
}

TEST_F(VetraTestFactoryImplTest, IgnoresTheDomainOfItsConstruction)
{
    unitTests::RefusingDomain refusing;
    Basis::string name = text("EvalOS");

    EXPECT_NE(VetraTestFactoryImpl(refusing).createInstance(*domain, name), nullptr);
}

}  // namespace
