#pragma once

#include <string_view>

#include "Basis/Containers.h"

namespace FileAccess {

/// The file system that a path lies on, by `statfs`.
///
/// Type codes below 10 are unknown and memory file systems, those from 10 to 28 real ones.
class FileSystem {
public:
    static constexpr int firstValid = 10;
    static constexpr int endOfValid = 29;
    /// Whether the database supports a file system, by type code.
    static const bool SUPPORTED[endOfValid];

    /// Inspects the path. Both flags are reserved and true.
    FileSystem(const Basis::string& path, bool resolve, bool inspect);

    int getType() const { return type; }
    bool isValid() const { return type >= firstValid && type < endOfValid; }
    bool isSupported() const { return isValid() && SUPPORTED[type]; }
    /// Such as "ext4"; ext2, ext3 and ext4, which share one magic number, are told apart by the
    /// mount table. "unknown" for what cannot be inspected.
    const Basis::string& getTypeStr() const { return typeName; }

protected:
    /// For a type that was found elsewhere.
    FileSystem(int typeCode, std::string_view name, Basis::Allocator& allocator)
        : type(typeCode), typeName(name, &allocator)
    {
    }

private:
    int type = 0;
    Basis::string typeName;
};

}  // namespace FileAccess
