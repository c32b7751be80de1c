#include "fuzz/FuzzHarness.h"

#include <iostream>
#include <memory_resource>
#include <streambuf>

#include "Basis/Crash.h"

namespace VetraFuzz {

namespace {

// Takes everything: a stream without a buffer would be in a failed state and format nothing.
class Sink : public std::streambuf {
protected:
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

}  // namespace

void prepareProcess()
{
    static Sink sink;
    std::cout.rdbuf(&sink);
    std::pmr::set_default_resource(std::pmr::null_memory_resource());
}

InputDomain::InputDomain()
    : domain(Basis::Allocator::createChild(Basis::Allocator::global(), "INPUT", 0))
{
}

InputDomain::~InputDomain()
{
    Basis::assertThat(domain->bytes() == 0 && domain->liveAllocations() == 0,
                      "the objects of an input give back all that they took");
    domain.reset();
    Basis::assertThat(Basis::Allocator::global()->bytes() == 0,
                      "nothing stays behind in the process-wide domain");
}

}  // namespace VetraFuzz
