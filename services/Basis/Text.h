#pragma once

#include <cstdint>
#include <istream>
#include <string>
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

/// Reads a line without its end, as std::getline does. False at the end of the input, or where it
/// can be read no further; an allocation that fails passes out, which std::getline would hide.
bool readLine(std::istream& input, string& line);

/// Appends foreign text so that it stays one line on any terminal: a line feed becomes "\\n", other
/// control characters "\\x" and two digits.
void appendPrintable(std::string& out, std::string_view text);

/// The decimal number at the beginning, as `strtol` reads it: leading white space and a sign are
/// taken, anything behind the digits is ignored, no digits give 0, and the value saturates at 64
/// bits. The low 32 bits of that are returned.
std::int32_t toInt32(std::string_view text);

}  // namespace Basis
