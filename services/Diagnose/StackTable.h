#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Diagnose {

/// How many samples found a thread running, and how many found it asleep.
struct SampleCounts {
    std::uint64_t processor = 0;
    std::uint64_t wait = 0;

    SampleCounts& operator+=(SampleCounts other)
    {
        processor += other.processor;
        wait += other.wait;
        return *this;
    }
    std::uint64_t sum() const { return processor + wait; }
};

/// Counts samples by their stacks. Stacks share what they have in common from the outermost frame
/// on, and the memory for all of them is taken at construction.
class StackTable {
public:
    /// A stack that some samples had.
    struct Stack {
        std::vector<std::uint64_t> addresses;  ///< outermost frame first
        std::string waitChannel;               ///< where in the kernel it slept; empty if not known
        SampleCounts counts;
    };

    static constexpr std::size_t defaultFrames = 1U << 17;
    static constexpr std::size_t mostWaitChannels = 256;

    /// `mostFrames` is how many frames all stacks together may have, common ones counted once.
    explicit StackTable(std::size_t mostFrames = defaultFrames);

    /// Counts samples under a stack, whose innermost frame comes first. Those found asleep go below
    /// the wait channel, if there is one. False if the table is full; what was counted before
    /// stays.
    bool add(std::span<const std::uint64_t> innermostFirst, SampleCounts counts,
             std::string_view waitChannel);
    void clear();

    SampleCounts total() const { return counted; }
    /// Every distinct stack with its counts, in no order that matters.
    std::vector<Stack> stacks() const;

private:
    struct Node {
        std::uint64_t address;  // of a wait channel its number
        std::uint32_t parent;
        bool isChannel;
        SampleCounts counts;
    };

    std::uint32_t child(std::uint32_t parent, std::uint64_t address, bool isChannel);
    std::uint32_t channelNode(std::uint32_t parent, std::string_view channel);
    Stack stackAt(std::uint32_t node) const;

    std::vector<Node> nodes;  // the first one is above all outermost frames
    std::size_t capacity;
    std::vector<std::uint32_t> index;  // numbers of nodes by parent and address; 0 is none
    std::vector<std::string> channels;
    SampleCounts counted;
};

}  // namespace Diagnose
