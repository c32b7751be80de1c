#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>

namespace Basis {

/// A named allocation domain: a memory resource that counts what its users hold.
///
/// Units:      bytes as requested, without the overhead of the heap.
/// Ownership:  a child takes its memory from its parent, which must outlive it; createChild sees to
///             that. The destructor stops the program if anything allocated here is still held,
///             since its owner would be left with a dangling resource.
/// Threads:    all operations may be called from any thread.
/// Errors:     allocation throws std::bad_alloc; the counters then stay as they were.
class Allocator : public std::pmr::memory_resource {
public:
    /// The process-wide domain, parent of all others. Built at the first call.
    static const std::shared_ptr<Allocator>& global();

    /// A domain below this one. `flags` is reserved and must be 0.
    static std::shared_ptr<Allocator> createChild(const std::shared_ptr<Allocator>& parent,
                                                  std::string_view name, unsigned flags);

    /// Use createChild; public only for the sake of std::make_shared.
    Allocator(std::shared_ptr<Allocator> parentDomain, std::string_view ownName);
    ~Allocator() override;

    Allocator(const Allocator&) = delete;
    Allocator& operator=(const Allocator&) = delete;

    const std::string& name() const { return domainName; }
    std::size_t bytes() const { return heldBytes.load(std::memory_order_relaxed); }
    std::size_t peakBytes() const { return highestBytes.load(std::memory_order_relaxed); }
    std::size_t liveAllocations() const { return heldBlocks.load(std::memory_order_relaxed); }

private:
    void* do_allocate(std::size_t size, std::size_t alignment) override;
    void do_deallocate(void* block, std::size_t size, std::size_t alignment) override;
    bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override;

    std::shared_ptr<Allocator> parent;
    std::string domainName;
    std::atomic<std::size_t> heldBytes{0};
    std::atomic<std::size_t> highestBytes{0};
    std::atomic<std::size_t> heldBlocks{0};
};

}  // namespace Basis
