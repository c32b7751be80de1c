#include "Basis/Allocator.h"

#include <utility>

#include "Basis/Crash.h"

namespace Basis {

const std::shared_ptr<Allocator>& Allocator::global()
{
    static const std::shared_ptr<Allocator> domain = std::make_shared<Allocator>(nullptr, "GLOBAL");
    return domain;
}

std::shared_ptr<Allocator> Allocator::createChild(const std::shared_ptr<Allocator>& parent,
                                                  std::string_view name, unsigned flags)
{
    assertThat(flags == 0, "an allocation domain has no flags");
    return std::make_shared<Allocator>(parent, name);
}

Allocator::Allocator(std::shared_ptr<Allocator> parentDomain, std::string_view ownName)
    : parent(std::move(parentDomain)), domainName(ownName)
{
}

Allocator::~Allocator()
{
    if (bytes() == 0 && liveAllocations() == 0)
        return;
    const std::string text = "allocation domain " + domainName + " ends with " +
                             std::to_string(bytes()) + " bytes in " +
                             std::to_string(liveAllocations()) + " allocations still held";
    assertThat(false, text.c_str());
}

void* Allocator::do_allocate(std::size_t size, std::size_t alignment)
{
    std::pmr::memory_resource* source = parent.get();
    if (!source)
        source = std::pmr::new_delete_resource();
    void* block = source->allocate(size, alignment);

    const std::size_t held = heldBytes.fetch_add(size, std::memory_order_relaxed) + size;
    heldBlocks.fetch_add(1, std::memory_order_relaxed);
    std::size_t highest = highestBytes.load(std::memory_order_relaxed);
    while (held > highest && !highestBytes.compare_exchange_weak(highest, held))
        continue;
    return block;
}

void Allocator::do_deallocate(void* block, std::size_t size, std::size_t alignment)
{
    heldBytes.fetch_sub(size, std::memory_order_relaxed);
    heldBlocks.fetch_sub(1, std::memory_order_relaxed);
    std::pmr::memory_resource* source = parent.get();
    if (!source)
        source = std::pmr::new_delete_resource();
    source->deallocate(block, size, alignment);
}

bool Allocator::do_is_equal(const std::pmr::memory_resource& other) const noexcept
{
    return this == &other;
}

}  // namespace Basis
