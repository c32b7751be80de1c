#include "programs/vetraApi/Record.h"

#include "Basis/Text.h"
#include "JoltUtils/Json.h"

namespace VetraApi {

namespace {

constexpr std::string_view opening = "('";
constexpr std::string_view closing = "')";
constexpr std::string_view fieldSeparator = "','";
// A quote and a comma, the code's digit, a comma and a quote.
constexpr std::string_view beforeCode = "',";
constexpr std::string_view behindCode = ",'";
constexpr std::size_t codeSeparatorSize = beforeCode.size() + 1 + behindCode.size();

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

bool startsWithCode(std::string_view text)
{
    return text.size() >= codeSeparatorSize && Basis::startsWith(text, beforeCode) &&
           isDigit(text[beforeCode.size()]) &&
           Basis::startsWith(text.substr(beforeCode.size() + 1), behindCode);
}

// The only message that holds a text of the host: it begins with the value.
constexpr std::string_view itemThatRepeatsItsValue = "appliancetype";

// Where the value ends: at the last separator, or at the last one whose message is in order.
std::size_t endOfValueIn(std::string_view text, bool isValueRepeated)
{
    std::size_t last = std::string_view::npos;
    std::size_t lastInOrder = std::string_view::npos;
    for (std::size_t at = text.find(beforeCode); at != std::string_view::npos;
         at = text.find(beforeCode, at + 1)) {
        if (!startsWithCode(text.substr(at)))
            continue;
        last = at;
        const std::string_view message = text.substr(at + codeSeparatorSize);
        if (isValueRepeated && !message.empty() && Basis::startsWith(message, text.substr(0, at)))
            lastInOrder = at;
    }
    return lastInOrder == std::string_view::npos ? last : lastInOrder;
}

void appendMember(Basis::string& json, std::string_view name, std::string_view text,
                  const JoltUtils::JsonAllocator& allocator)
{
    JoltUtils::TypedJson value;
    value.setString(text, allocator);
    json.append("\"").append(name).append("\":");
    json.append(JoltUtils::json2str(value, Basis::string(&allocator.domain())));
}

}  // namespace

std::optional<Record> splitRecord(std::string_view text)
{
    if (text.size() < opening.size() + closing.size() || !Basis::startsWith(text, opening) ||
        !text.ends_with(closing))
        return std::nullopt;
    // Without the brackets first: a message may end in what looks like a code before its last
    // quote.
    text = text.substr(opening.size(), text.size() - opening.size() - closing.size());

    const std::size_t endOfItem = text.find(fieldSeparator);
    if (endOfItem == std::string_view::npos)
        return std::nullopt;
    const std::string_view rest = text.substr(endOfItem + fieldSeparator.size());
    const std::size_t endOfValue =
        endOfValueIn(rest, text.substr(0, endOfItem) == itemThatRepeatsItsValue);
    if (endOfValue == std::string_view::npos)
        return std::nullopt;
    return Record{text.substr(0, endOfItem), rest.substr(0, endOfValue),
                  rest[endOfValue + beforeCode.size()] - '0',
                  rest.substr(endOfValue + codeSeparatorSize)};
}

Basis::string jsonOf(std::string_view action, const Record& record, Basis::Allocator& allocator)
{
    const JoltUtils::JsonAllocator values(allocator);
    Basis::string json("{", &allocator);
    appendMember(json, "action", action, values);
    appendMember(json.append(","), "item", record.item, values);
    appendMember(json.append(","), "value", record.value, values);
    json.append(",\"code\":").push_back(static_cast<char>('0' + record.code));
    appendMember(json.append(","), "message", record.message, values);
    json.append("}");
    return json;
}

int exitStatusOf(int code)
{
    switch (code) {
        case 0:
        case 3:
            return 0;
        case 1:
            return 1;
        case 4:
            return 2;
        default:
            return 3;
    }
}

}  // namespace VetraApi
