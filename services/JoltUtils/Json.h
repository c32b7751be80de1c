#pragma once

#include <ostream>

#include "Basis/Containers.h"
#include "JoltUtils/TypedJson.h"

namespace JoltUtils {

/// Containers inside one another that the parser accepts.
inline constexpr unsigned jsonMaxDepth = 512;

/// Fills `object` with the members of a JSON text, which must hold one object and nothing else.
///
/// Returns false, with `object` empty, for text that is no JSON, no object, no valid UTF-8, nested
/// deeper than jsonMaxDepth, or with a number that no double can hold. Of members with the same key
/// the last one counts.
bool jsonParse(const char* text, unsigned long length, JsonObject& object,
               JsonAllocator& allocator);

/// Writes an object as JSON text: on one line without blanks if `compact`, else indented. Whole
/// numbers have no fraction; others have as many digits as are needed to read the same double back.
/// Bytes that are no UTF-8 become U+FFFD, since the text must be readable by any parser.
void jsonFormat(const JsonObject& object, std::ostream& stream, bool compact);

/// Appends the compact JSON text of any value to `text` and returns it.
Basis::string json2str(const TypedJson& value, Basis::string text);

}  // namespace JoltUtils
