#include "Diagnose/StackWalker.h"

// The walk is one of another address space, as of a foreign process: all memory goes through the
// functions below, so a damaged stack leads nowhere but to the end of the walk.
#include <libunwind.h>
#include <link.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

// Not in the header, but part of the library for those who find unwind tables themselves.
extern "C" int UNW_OBJ(dwarf_search_unwind_table)(unw_addr_space_t, unw_word_t, unw_dyn_info_t*,
                                                  unw_proc_info_t*, int, void*);

namespace Diagnose {

namespace {

struct Range {
    std::uint64_t begin;
    std::uint64_t end;

    bool holds(std::uint64_t address, std::size_t size) const
    {
        return address >= begin && address < end && end - address >= size;
    }
};

struct LoadedObject {
    Range whole;
    std::vector<Range> readable;
    std::uint64_t unwindTable = 0;
};

LoadedObject describe(const dl_phdr_info& info)
{
    LoadedObject object{{UINT64_MAX, 0}, {}, 0};
    for (const ElfW(Phdr) & header : std::span(info.dlpi_phdr, info.dlpi_phnum)) {
        const Range range{info.dlpi_addr + header.p_vaddr,
                          info.dlpi_addr + header.p_vaddr + header.p_memsz};
        if (header.p_type == PT_GNU_EH_FRAME)
            object.unwindTable = range.begin;
        if (header.p_type != PT_LOAD)
            continue;
        object.whole.begin = std::min(object.whole.begin, range.begin);
        object.whole.end = std::max(object.whole.end, range.end);
        if ((header.p_flags & PF_R) != 0)
            object.readable.push_back(range);
    }
    return object;
}

// The head of the table that the linker makes for binary search.
struct UnwindTableHead {
    std::uint8_t version;
    std::uint8_t framePointerCoding;
    std::uint8_t countCoding;
    std::uint8_t tableCoding;
    std::int32_t framePointer;
    std::uint32_t count;
};
constexpr std::size_t tableEntrySize = 8;

// What every linker of today writes: 4-byte offsets relative to the table.
bool isSearchable(const UnwindTableHead& head)
{
    return head.version == 1 && head.countCoding == 0x03 && head.tableCoding == 0x3b;
}

constexpr std::size_t cachedRules = 4096;

}  // namespace

// All that a walk needs, and the functions by which the library reads it. The last argument of
// those is the state.
struct StackWalker::State {
    unw_addr_space_t space = nullptr;
    const StackCopy* copy = nullptr;
    std::vector<LoadedObject> objects;
    unsigned long long loads = 0;  // how often a library has come, and how often one has gone
    unsigned long long unloads = 0;
    std::uint64_t frames[mostFrames];
    std::size_t frameCount = 0;

    void refreshObjects(const dl_phdr_info& newest);
    void walkCopy();
    bool read(std::uint64_t address, void* target, std::size_t size) const;
    const LoadedObject* objectOf(std::uint64_t address) const;

    static int findProcInfo(unw_addr_space_t space, unw_word_t address, unw_proc_info_t* info,
                            int needsUnwindInfo, void* state);
    static void putUnwindInfo(unw_addr_space_t, unw_proc_info_t*, void*) {}
    static int findDynamicInfo(unw_addr_space_t, unw_word_t*, void*) { return -UNW_ENOINFO; }
    static int accessMemory(unw_addr_space_t, unw_word_t address, unw_word_t* value, int isWrite,
                            void* state);
    static int accessRegister(unw_addr_space_t, unw_regnum_t number, unw_word_t* value, int isWrite,
                              void* state);
    static int accessFloat(unw_addr_space_t, unw_regnum_t, unw_fpreg_t*, int, void*)
    {
        return -UNW_EBADREG;
    }
    static int resume(unw_addr_space_t, unw_cursor_t*, void*) { return -UNW_EINVAL; }
    static int findName(unw_addr_space_t, unw_word_t, char*, std::size_t, unw_word_t*, void*)
    {
        return -UNW_ENOINFO;
    }
};

const LoadedObject* StackWalker::State::objectOf(std::uint64_t address) const
{
    const auto found = std::find_if(
        objects.begin(), objects.end(),
        [address](const LoadedObject& object) { return object.whole.holds(address, 1); });
    return found == objects.end() ? nullptr : &*found;
}

// The stack from its copy, and unwind tables and what they point to from where they lie.
bool StackWalker::State::read(std::uint64_t address, void* target, std::size_t size) const
{
    const std::uint64_t copied = copy->wordCount * sizeof(std::uint64_t);
    if (Range{copy->stackAddress, copy->stackAddress + copied}.holds(address, size)) {
        const auto* const bytes = reinterpret_cast<const char*>(copy->words);
        std::memcpy(target, bytes + (address - copy->stackAddress), size);
        return true;
    }
    const LoadedObject* const object = objectOf(address);
    if (!object || std::none_of(object->readable.begin(), object->readable.end(),
                                [&](const Range& range) { return range.holds(address, size); }))
        return false;
    std::memcpy(target, reinterpret_cast<const void*>(address), size);
    return true;
}

int StackWalker::State::findProcInfo(unw_addr_space_t space, unw_word_t address,
                                     unw_proc_info_t* info, int needsUnwindInfo, void* state)
{
    const auto& self = *static_cast<const State*>(state);
    const LoadedObject* const object = self.objectOf(address);
    UnwindTableHead head;
    if (!object || !self.read(object->unwindTable, &head, sizeof head) || !isSearchable(head))
        return -UNW_ENOINFO;
    unw_dyn_info_t table{};
    table.format = UNW_INFO_FORMAT_REMOTE_TABLE;
    table.start_ip = object->whole.begin;
    table.end_ip = object->whole.end;
    table.u.rti.segbase = object->unwindTable;
    table.u.rti.table_data = object->unwindTable + sizeof head;
    table.u.rti.table_len = head.count * tableEntrySize / sizeof(unw_word_t);
    return UNW_OBJ(dwarf_search_unwind_table)(space, address, &table, info, needsUnwindInfo, state);
}

int StackWalker::State::accessMemory(unw_addr_space_t, unw_word_t address, unw_word_t* value,
                                     int isWrite, void* state)
{
    if (isWrite != 0 || !static_cast<const State*>(state)->read(address, value, sizeof *value))
        return -UNW_EINVAL;
    return 0;
}

int StackWalker::State::accessRegister(unw_addr_space_t, unw_regnum_t number, unw_word_t* value,
                                       int isWrite, void* state)
{
    const auto index = static_cast<std::size_t>(number);
    if (isWrite != 0 || index >= StackCopy::registerCount)
        return -UNW_EBADREG;
    *value = static_cast<const State*>(state)->copy->registers[index];
    return 0;
}

void StackWalker::State::refreshObjects(const dl_phdr_info& newest)
{
    if (!objects.empty() && newest.dlpi_adds == loads && newest.dlpi_subs == unloads)
        return;
    objects.clear();
    loads = newest.dlpi_adds;
    unloads = newest.dlpi_subs;
    ::dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* list) {
            static_cast<std::vector<LoadedObject>*>(list)->push_back(describe(*info));
            return 0;
        },
        &objects);
    unw_flush_cache(space, 0, 0);
}

void StackWalker::State::walkCopy()
{
    unw_cursor_t cursor;
    if (unw_init_remote(&cursor, space, this) != 0)
        return;
    bool wasInterrupted = false;
    do {
        unw_word_t address = 0;
        const bool isThere = unw_get_reg(&cursor, UNW_REG_IP, &address) == 0 && address != 0;
        // Code calls only from where code is; the walk has gone astray otherwise.
        if (!isThere || (frameCount != 0 && !objectOf(address - 1)))
            return;
        // A frame that a signal has interrupted stands where it stands, not behind a call.
        frames[frameCount] = frameCount != 0 && wasInterrupted ? address + 1 : address;
        ++frameCount;
        wasInterrupted = unw_is_signal_frame(&cursor) > 0;
    } while (frameCount < mostFrames && unw_step(&cursor) > 0);
}

StackWalker::StackWalker() : state(std::make_unique<State>())
{
    unw_accessors_t accessors{};
    accessors.find_proc_info = &State::findProcInfo;
    accessors.put_unwind_info = &State::putUnwindInfo;
    accessors.get_dyn_info_list_addr = &State::findDynamicInfo;
    accessors.access_mem = &State::accessMemory;
    accessors.access_reg = &State::accessRegister;
    accessors.access_fpreg = &State::accessFloat;
    accessors.resume = &State::resume;
    accessors.get_proc_name = &State::findName;
    state->space = unw_create_addr_space(&accessors, 0);
    if (!state->space)
        throw std::bad_alloc();
    unw_set_caching_policy(state->space, UNW_CACHE_GLOBAL);
    unw_set_cache_size(state->space, cachedRules, 0);
}

StackWalker::~StackWalker()
{
    unw_destroy_addr_space(state->space);
}

std::span<const std::uint64_t> StackWalker::walk(const StackCopy& copy)
{
    state->copy = &copy;
    state->frameCount = 0;
    // The list of libraries stays as it is until this call is over.
    ::dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* argument) {
            auto& self = *static_cast<State*>(argument);
            self.refreshObjects(*info);
            self.walkCopy();
            return 1;
        },
        state.get());
    return {state->frames, state->frameCount};
}

}  // namespace Diagnose
