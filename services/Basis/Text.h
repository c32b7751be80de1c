#pragma once

#include <cstdint>
#include <string_view>

#include "Basis/Containers.h"

namespace Basis {

inline bool contains(std::string_view text, std::string_view word)
{
    return text.find(word) != std::string_view::npos;
}

inline bool startsWith(std::string_view text, std::string_view beginning)
{
    return text.substr(0, beginning.size()) == beginning;
}

/// What follows the first separator; the whole text if there is none.
std::string_view behindFirst(std::string_view text, std::string_view separator);

/// What precedes the first separator; the whole text if there is none.
std::string_view beforeFirst(std::string_view text, std::string_view separator);

/// The text without blanks, carriage returns, line feeds and tabs at both ends.
std::string_view trimmed(std::string_view text);

/// The pieces between the separators. An empty text has none, and nothing follows a separator that
/// ends the text. The pieces view `text`.
vector<std::string_view> split(std::string_view text, char separator, Allocator& allocator);

/// The decimal number at the beginning, as `strtol` reads it: leading white space and a sign are
/// taken, anything behind the digits is ignored, no digits give 0, and the value saturates at 64
/// bits. The low 32 bits of that are returned.
std::int32_t toInt32(std::string_view text);

}  // namespace Basis
