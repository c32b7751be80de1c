#pragma once

#include <memory>

#include "Basis/Allocator.h"
#include "Basis/Containers.h"

namespace vetraTests {

class CCmdOptions;

/// The domain "FSPerf", which every string and container of the engine takes its memory from.
///
/// It is there before the first static object that asks for it, and outlives all that did.
const std::shared_ptr<Basis::Allocator>& fsperfAllocatorHandle();
inline Basis::Allocator& fsperfAllocator()
{
    return *fsperfAllocatorHandle();
}

/// The shortest exact text of a size: the largest unit from PB down to B that divides it, with the
/// number in front, such as "4KB". 0 is "0PB".
Basis::string memSize2Str(unsigned long bytes);

/// Prints a framed heading, 80 columns wide or as wide as the text needs. Nothing for a null or
/// empty text. Frames of '-', '/', '=' and '\' get bars at their sides, others their own character.
void printBlockHeader(const char* text, char frame);

/// Prints the argument string as it was given.
void printCommandLine(const Basis::string& args);

/// Prints the settings that an argument string came to, one a row.
void printExtractedCmdArgs(const CCmdOptions& options);

/// The usage text, each line 80 columns wide and ended by a line feed.
Basis::string testUsage();

}  // namespace vetraTests
