#include "Basis/Text.h"

#include <cstdlib>
#include <string>

namespace Basis {

std::string_view behindFirst(std::string_view text, std::string_view separator)
{
    const std::size_t position = text.find(separator);
    return position == std::string_view::npos ? text : text.substr(position + separator.size());
}

std::string_view beforeFirst(std::string_view text, std::string_view separator)
{
    return text.substr(0, text.find(separator));
}

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \r\n\t";
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

vector<std::string_view> split(std::string_view text, char separator, Allocator& allocator)
{
    vector<std::string_view> pieces(&allocator);
    while (!text.empty()) {
        const std::size_t end = text.find(separator);
        pieces.push_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return pieces;
}

bool readLine(std::istream& input, string& line)
{
    constexpr int end = std::char_traits<char>::eof();
    line.clear();
    std::streambuf* const buffer = input.rdbuf();
    if (!input.good() || !buffer)
        return false;
    for (;;) {
        int letter = end;
        try {
            letter = buffer->sbumpc();
        } catch (const std::ios_base::failure&) {
            // What cannot be read, such as a directory, ends here.
        }
        if (letter == '\n')
            return true;
        if (letter == end) {
            input.setstate(std::ios_base::eofbit);
            return !line.empty();
        }
        line.push_back(static_cast<char>(letter));
    }
}

void appendPrintable(std::string& out, std::string_view text)
{
    static const char digits[] = "0123456789abcdef";
    for (const char letter : text) {
        const auto byte = static_cast<unsigned char>(letter);
        if (letter == '\n') {
            out += "\\n";
        } else if (byte < 0x20 || byte == 0x7f) {
            out += "\\x";
            out += digits[byte >> 4];
            out += digits[byte & 15];
        } else {
            out += letter;
        }
    }
}

std::int32_t toInt32(std::string_view text)
{
    const std::string terminated(text);
    const long value = std::strtol(terminated.c_str(), nullptr, 10);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
}

}  // namespace Basis
