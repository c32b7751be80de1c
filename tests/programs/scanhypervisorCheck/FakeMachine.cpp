#include "tests/programs/scanhypervisorCheck/FakeMachine.h"

#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>

using HypervisorScan::CpuidRegisters;

namespace {

constexpr std::uint32_t highestBasicLeaf = 0x16;
constexpr std::uint32_t hypervisorBit = 0x80000000;

std::filesystem::path makeDirectory()
{
    std::string name = (std::filesystem::temp_directory_path() / "fakemachine-XXXXXX").string();
    if (!::mkdtemp(name.data()))
        throw std::runtime_error("cannot make " + name);
    return name;
}

}  // namespace

FakeMachine::FakeMachine() : parent(makeDirectory()), directory(parent / "id")
{
    leaves[0] = {highestBasicLeaf, 0x756e6547, 0x6c65746e, 0x49656e69};
    leaves[1] = {0x000806f8, 0x00100800, 0x7ffafbff, 0xbfebfbff};
    leaves[highestBasicLeaf] = {2600, 3800, 100, 0};
}

FakeMachine::~FakeMachine()
{
    std::filesystem::remove_all(parent);
}

void FakeMachine::setHypervisorBit()
{
    leaves[1].ecx |= hypervisorBit;
}

void FakeMachine::setSignature(std::uint32_t leaf, std::string_view letters)
{
    std::array<std::uint32_t, 3> words{};
    std::memcpy(words.data(), letters.data(), std::min(letters.size(), sizeof words));
    leaves[leaf] = {leaf + 1, words[0], words[1], words[2]};
}

void FakeMachine::setLeaf(std::uint32_t leaf, const CpuidRegisters& registers)
{
    leaves[leaf] = registers;
}

void FakeMachine::echoHighestBasicLeaf(const CpuidRegisters& registers)
{
    leaves[highestBasicLeaf] = registers;
    elsewhere = registers;
}

void FakeMachine::setDmi(std::string_view file, std::string_view text)
{
    std::filesystem::create_directory(directory);
    std::ofstream(directory / file) << text << '\n';
}

HypervisorScan::CpuidReader FakeMachine::cpuid()
{
    return [this](std::uint32_t leaf) { return read(leaf); };
}

HypervisorScan::Hypervisor FakeMachine::scan()
{
    return HypervisorScan::scan(cpuid(), directory);
}

CpuidRegisters FakeMachine::read(std::uint32_t leaf)
{
    ++readsOfLeaf[leaf];
    const auto found = leaves.find(leaf);
    return found == leaves.end() ? elsewhere : found->second;
}
