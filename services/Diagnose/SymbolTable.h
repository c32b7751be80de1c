#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Diagnose {

/// Names code addresses of this process by the files that are loaded at the time of construction.
/// Threads: one at a time.
class SymbolTable {
public:
    SymbolTable();
    ~SymbolTable();
    SymbolTable(const SymbolTable&) = delete;
    SymbolTable& operator=(const SymbolTable&) = delete;

    /// The readable name of the function; "[file+0x12ab]" if the file has no name for it, and
    /// "[0x12ab]" if no file is loaded there.
    std::string nameOf(std::uint64_t address);

private:
    class Module;
    std::vector<std::unique_ptr<Module>> modules;
};

}  // namespace Diagnose
