#include "Diagnose/SymbolNames.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Diagnose::qualifiedName;
using Diagnose::readableName;
using Diagnose::shortenedTemplates;

struct Pair {
    const char* given;
    const char* expected;
};

class Readable : public testing::TestWithParam<Pair> {};
class Shortened : public testing::TestWithParam<Pair> {};
class Qualified : public testing::TestWithParam<Pair> {};

TEST_P(Readable, Symbol)
{
    EXPECT_EQ(readableName(GetParam().given), GetParam().expected);
}

TEST_P(Shortened, Name)
{
    EXPECT_EQ(shortenedTemplates(GetParam().given), GetParam().expected);
}

TEST_P(Qualified, Name)
{
    EXPECT_EQ(qualifiedName(GetParam().given), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Each, Readable,
    testing::Values(Pair{"main", "main"}, Pair{"i", "i"}, Pair{"_start", "_start"}, Pair{"", ""},
                    Pair{"_ZN10FileAccess12SubmitThread3runEv", "FileAccess::SubmitThread::run()"},
                    Pair{"_ZN10FileAccess12SubmitThread3runEv.cold",
                         "FileAccess::SubmitThread::run()"},
                    Pair{"_Z3fooi.constprop.0.isra.0.cold", "foo(int)"},
                    Pair{"_Z3fooi.part.12", "foo(int)"}, Pair{"_Z3fooi.lto_priv.0", "foo(int)"},
                    Pair{"plain.part.0", "plain"}, Pair{"plain.particular", "plain.particular"},
                    Pair{"file.c", "file.c"}, Pair{"_ZNotAName", "_ZNotAName"},
                    Pair{"_ZNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEE6appendEPKc",
                         "std::string::append(char const*)"},
                    Pair{"_ZN12_GLOBAL__N_11fEv", "(anonymous namespace)::f()"}));

INSTANTIATE_TEST_SUITE_P(
    Each, Shortened,
    testing::Values(
        Pair{"f()", "f()"},
        Pair{"f(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > "
             "const&)",
             "f(std::string const&)"},
        Pair{"A::name[abi:cxx11]() const", "A::name() const"},
        Pair{"std::vector<int, std::allocator<int> >::push_back(int&&)",
             "std::vector<int>::push_back(int&&)"},
        Pair{"std::map<std::__cxx11::basic_string<char, std::char_traits<char>, "
             "std::allocator<char> >, int, std::less<std::__cxx11::basic_string<char, "
             "std::char_traits<char>, std::allocator<char> > >, "
             "std::allocator<std::pair<std::__cxx11::basic_string<char, std::char_traits<char>, "
             "std::allocator<char> > const, int> > >::find(int)",
             "std::map<std::string, int>::find(int)"},
        Pair{"std::__cxx11::basic_string<char, std::char_traits<char>, "
             "std::pmr::polymorphic_allocator<char> >::size() const",
             "std::pmr::string::size() const"},
        Pair{"std::basic_string_view<char, std::char_traits<char> >::find(char)",
             "std::string_view::find(char)"},
        Pair{"std::unique_ptr<A, std::default_delete<A> >::get()", "std::unique_ptr<A>::get()"},
        Pair{"std::vector<A, Pool<A> >::clear()", "std::vector<A, Pool<A>>::clear()"},
        Pair{"f(std::allocator<int>)", "f(std::allocator<int>)"},
        Pair{"g<std::allocator<int> >()", "g<std::allocator<int>>()"},
        Pair{"h(std::span<io_event, 18446744073709551615ul>)", "h(std::span<io_event>)"},
        Pair{"std::function<void (int, std::vector<int, std::allocator<int> >)>::operator()(int) "
             "const",
             "std::function<void (int, std::vector<int>)>::operator()(int) const"},
        Pair{"std::basic_ostream<char, std::char_traits<char> >& std::operator<< "
             "<std::char_traits<char> >(std::basic_ostream<char, std::char_traits<char> >&, char "
             "const*)",
             "std::ostream& std::operator<< <std::char_traits<char>>(std::ostream&, char const*)"},
        Pair{"bool operator< <int>(A<int> const&)", "bool operator< <int>(A<int> const&)"},
        Pair{"A<(B)1>::operator->()", "A<(B)1>::operator->()"},
        Pair{"f<decltype (a->b)>(int)", "f<decltype (a->b)>(int)"},
        Pair{"void f<{lambda(int)#1}>(int)", "void f<{lambda(int)#1}>(int)"},
        Pair{"f<int", "f<int>"}, Pair{"f>int", "f>int"}, Pair{"<", "<>"}));

INSTANTIATE_TEST_SUITE_P(
    Each, Qualified,
    testing::Values(
        Pair{"main", "main"}, Pair{"", ""}, Pair{"runTests(A&, B&)", "runTests"},
        Pair{"Vetra::VetraHelper::runTests(Vetra::UserConfig&)", "Vetra::VetraHelper::runTests"},
        Pair{"FileAccess::SubmitThread::run()", "FileAccess::SubmitThread::run"},
        Pair{"void vetra::Queue<int, A<long>>::push<long>(long) const", "vetra::Queue::push"},
        Pair{"std::ostream& std::operator<< <std::char_traits<char>>(std::ostream&, char)",
             "std::operator<<"},
        Pair{"A::operator()(int) const", "A::operator()"},
        Pair{"A::operator unsigned long() const", "A::operator unsigned long"},
        Pair{"operator new(unsigned long)", "operator new"},
        Pair{"bool operator< <int>(A<int> const&)", "operator<"},
        Pair{"A::operator->()", "A::operator->"},
        Pair{"(anonymous namespace)::f(int)", "(anonymous namespace)::f"},
        Pair{"void (anonymous namespace)::f<int>(int)", "(anonymous namespace)::f"},
        Pair{"f(int)::{lambda(int)#1}::operator()(int) const", "f::{lambda(int)#1}::operator()"},
        Pair{"A::f() const::{lambda()#1}::operator()() const", "A::f::{lambda()#1}::operator()"},
        Pair{"f(void (*)(int), int)", "f"}, Pair{"A::~A()", "A::~A"},
        Pair{"[kernel futex_wait]", "[kernel futex_wait]"},
        Pair{"[libc.so.6+0x12]", "[libc.so.6+0x12]"}));

TEST(SymbolNames, NestWithoutEnd)
{
    std::string deep;
    for (int i = 0; i < 100000; ++i)
        deep += "A<";

    EXPECT_FALSE(shortenedTemplates(deep).empty());
    EXPECT_EQ(qualifiedName(deep), "A");
}

}  // namespace
