#pragma once

#include <optional>
#include <string_view>

#include "Basis/Containers.h"

namespace VetraApi {

/// The four fields of an outcome record `('item','value',code,'message')`.
struct Record {
    std::string_view item;
    std::string_view value;
    int code;
    std::string_view message;
};

/// Splits a record at its first `','` and its last `',DIGIT,'`; nothing for a text that is none.
/// The fields view `text`.
///
/// Records escape nothing, so this is the best that can be had: a value may hold either separator,
/// an item the first one never, and a message that holds the second one is cut there. The message
/// of "appliancetype" may hold it, since it begins with the value: it is cut where that is so.
std::optional<Record> splitRecord(std::string_view text);

/// The JSON object of a record. Bytes that are no UTF-8 become U+FFFD.
Basis::string jsonOf(std::string_view action, const Record& record, Basis::Allocator& allocator);

/// What the exit status says of a record's code. A code that no rule gives is as bad as a rule that
/// could not run.
int exitStatusOf(int code);

}  // namespace VetraApi
