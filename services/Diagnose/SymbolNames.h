#pragma once

#include <string>
#include <string_view>

namespace Diagnose {

/// The name of a function as people know it, from the one in a symbol table: demangled, with its
/// parameters, without what the compiler split it into (".cold", ".part.0") and without the
/// arguments of templates that everybody leaves to their defaults.
std::string readableName(std::string_view symbol);

/// A demangled name with the standard library's templates as one writes them: "std::string",
/// "std::vector<int>".
std::string shortenedTemplates(std::string_view demangled);

/// The full name of a function without return type, parameters and template arguments:
/// "vetra::Queue::push" for "void vetra::Queue<int>::push<long>(long) const".
std::string qualifiedName(std::string_view readable);

}  // namespace Diagnose
