#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "Basis/Crash.h"
#include "JoltUtils/Json.h"

namespace JoltUtils {

namespace {

// Every whole number below 2^53 is exact in a double and is written digit by digit.
constexpr double exactWholeLimit = 9007199254740992.0;

class Writer {
public:
    Writer(std::ostream& outputStream, bool onOneLine) : stream(outputStream), compact(onOneLine) {}

    void write(const TypedJson& value)
    {
        switch (value.type()) {
            case JsonType::Null:
                stream << "null";
                break;
            case JsonType::Boolean:
                stream << (value.boolean() ? "true" : "false");
                break;
            case JsonType::Number:
                write(value.number());
                break;
            case JsonType::String:
                write(value.text());
                break;
            case JsonType::Array:
                write(value.array());
                break;
            case JsonType::Object:
                write(value.object());
                break;
        }
    }

    void write(const JsonObject& object)
    {
        writeAll(object, '{', '}', [this](const auto& member) {
            write(member.first);
            stream << (compact ? ":" : ": ");
            write(member.second);
        });
    }

private:
    void write(const JsonArray& array)
    {
        writeAll(array, '[', ']', [this](const TypedJson& element) { write(element); });
    }

    void write(double number)
    {
        Basis::assertThat(std::isfinite(number), "JSON has no number that is not finite");
        // A whole number without a fraction reads back as an integer, which knows no negative zero.
        if (number == 0 && std::signbit(number)) {
            stream << "-0.0";
            return;
        }
        char digits[40];
        const bool isWhole = std::trunc(number) == number && std::fabs(number) < exactWholeLimit;
        const auto end = isWhole ? std::to_chars(digits, digits + sizeof digits, number,
                                                 std::chars_format::fixed)
                                 : std::to_chars(digits, digits + sizeof digits, number);
        stream << std::string_view(digits, static_cast<std::size_t>(end.ptr - digits));
    }

    void write(const Basis::string& text)
    {
        const nlohmann::json value = std::string(text);
        stream << value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }

    template <class Container, class WriteElement>
    void writeAll(const Container& container, char opening, char closing, WriteElement writeElement)
    {
        stream << opening;
        ++depth;
        bool isFirst = true;
        for (const auto& element : container) {
            if (!isFirst)
                stream << ',';
            isFirst = false;
            startLine();
            writeElement(element);
        }
        --depth;
        if (!isFirst)
            startLine();
        stream << closing;
    }

    void startLine()
    {
        if (!compact)
            stream << '\n' << std::string(depth * 2, ' ');
    }

    std::ostream& stream;
    bool compact;
    std::size_t depth = 0;
};

}  // namespace

void jsonFormat(const JsonObject& object, std::ostream& stream, bool compact)
{
    Writer(stream, compact).write(object);
}

Basis::string json2str(const TypedJson& value, Basis::string text)
{
    std::ostringstream stream;
    Writer(stream, true).write(value);
    text.append(stream.view());
    return text;
}

}  // namespace JoltUtils
