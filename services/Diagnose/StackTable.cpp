#include "Diagnose/StackTable.h"

#include <algorithm>
#include <bit>

namespace Diagnose {

namespace {

constexpr std::uint32_t none = 0;

std::size_t hashOf(std::uint32_t parent, std::uint64_t address)
{
    std::uint64_t mixed = (address ^ (std::uint64_t{parent} << 40)) * 0x9e3779b97f4a7c15;
    mixed ^= mixed >> 32;
    return mixed * 0xd6e8feb86659fd93 >> 16;
}

}  // namespace

StackTable::StackTable(std::size_t mostFrames)
    : capacity(mostFrames + 1), index(std::bit_ceil(2 * capacity), none)
{
    nodes.reserve(capacity);
    channels.reserve(mostWaitChannels);
    clear();
}

void StackTable::clear()
{
    std::fill(index.begin(), index.end(), none);
    nodes.assign(1, {0, none, false, {}});
    channels.clear();
    counted = {};
}

// Returns 0 if the table is full.
std::uint32_t StackTable::child(std::uint32_t parent, std::uint64_t address, bool isChannel)
{
    const std::size_t mask = index.size() - 1;
    std::size_t place = hashOf(parent, address) & mask;
    for (; index[place] != none; place = (place + 1) & mask) {
        const Node& node = nodes[index[place]];
        if (node.parent == parent && node.address == address && node.isChannel == isChannel)
            return index[place];
    }
    if (nodes.size() == capacity)
        return none;
    index[place] = static_cast<std::uint32_t>(nodes.size());
    nodes.push_back({address, parent, isChannel, {}});
    return index[place];
}

// The parent itself if the channel is not known.
std::uint32_t StackTable::channelNode(std::uint32_t parent, std::string_view channel)
{
    if (channel.empty())
        return parent;
    const auto found = std::find(channels.begin(), channels.end(), channel);
    const auto number = static_cast<std::uint64_t>(found - channels.begin());
    if (found == channels.end()) {
        if (channels.size() == mostWaitChannels)
            return parent;
        channels.emplace_back(channel);
    }
    return child(parent, number, true);
}

bool StackTable::add(std::span<const std::uint64_t> innermostFirst, SampleCounts counts,
                     std::string_view waitChannel)
{
    std::uint32_t node = 0;
    for (auto address = innermostFirst.rbegin(); address != innermostFirst.rend(); ++address) {
        node = child(node, *address, false);
        if (node == none)
            return false;
    }
    const std::uint32_t waitNode = counts.wait != 0 ? channelNode(node, waitChannel) : node;
    if (node == none || waitNode == none)
        return false;
    nodes[node].counts.processor += counts.processor;
    nodes[waitNode].counts.wait += counts.wait;
    counted += counts;
    return true;
}

StackTable::Stack StackTable::stackAt(std::uint32_t number) const
{
    Stack stack;
    stack.counts = nodes[number].counts;
    for (; number != none; number = nodes[number].parent) {
        if (nodes[number].isChannel)
            stack.waitChannel = channels[nodes[number].address];
        else
            stack.addresses.push_back(nodes[number].address);
    }
    std::reverse(stack.addresses.begin(), stack.addresses.end());
    return stack;
}

std::vector<StackTable::Stack> StackTable::stacks() const
{
    std::vector<Stack> all;
    for (std::uint32_t number = 1; number < nodes.size(); ++number) {
        if (nodes[number].counts.sum() != 0)
            all.push_back(stackAt(number));
    }
    return all;
}

}  // namespace Diagnose
