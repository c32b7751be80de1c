#pragma once

#include <atomic>
#include <cstddef>

#include "FileAccess/IOControlBlock.h"

namespace FileAccess {

/// Requests on their way to the kernel, first in, first out: a list through the control blocks, so
/// it never fills and allocates nothing. Threads: any number may push; one at a time may take.
class RequestQueue {
public:
    RequestQueue() : last(&stub), first(&stub) {}
    RequestQueue(const RequestQueue&) = delete;
    RequestQueue& operator=(const RequestQueue&) = delete;

    /// Adds a request. Everything written into the block before is seen by the one who takes it.
    void push(IOControlBlock* block)
    {
        block->next.store(nullptr, std::memory_order_relaxed);
        IOControlBlock* const before = last.exchange(block, std::memory_order_seq_cst);
        before->next.store(block, std::memory_order_release);
    }

    /// Takes the oldest request; null if there is none, or if the one who pushed it has not linked
    /// it yet, which isEmpty tells apart.
    IOControlBlock* take();

    /// False as soon as a push has begun. Only for the one who may take.
    bool isEmpty() const { return first == &stub && last.load(std::memory_order_seq_cst) == &stub; }

private:
    alignas(64) std::atomic<IOControlBlock*> last;  // written by those who push
    alignas(64) IOControlBlock* first;              // written by the one who takes
    IOControlBlock stub;
};

inline IOControlBlock* RequestQueue::take()
{
    IOControlBlock* head = first;
    IOControlBlock* following = head->next.load(std::memory_order_acquire);
    if (head == &stub) {
        if (!following)
            return nullptr;
        first = head = following;
        following = head->next.load(std::memory_order_acquire);
    }
    if (following) {
        first = following;
        return head;
    }
    if (head != last.load(std::memory_order_acquire))
        return nullptr;
    // The last one can be taken only with another one behind it.
    push(&stub);
    following = head->next.load(std::memory_order_acquire);
    if (!following)
        return nullptr;
    first = following;
    return head;
}

}  // namespace FileAccess
