#include "Diagnose/ArgumentHelper.h"

#include <cctype>
#include <charconv>
#include <limits>
#include <string_view>

namespace Diagnose {

namespace {

// How far a unit shifts a number; negative for what is no unit.
int shiftOf(std::string_view unit)
{
    if (unit.empty())
        return 0;
    const auto upper = [](char letter) {
        return static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    };
    constexpr std::string_view letters = "BKMGTP";
    const std::size_t index = letters.find(upper(unit[0]));
    const bool hasByteSign = unit.size() == 2 && index != 0 && upper(unit[1]) == 'B';
    if (index == std::string_view::npos || (unit.size() != 1 && !hasByteSign))
        return -1;
    return static_cast<int>(index) * 10;
}

}  // namespace

bool ArgumentHelper::decodeSizeArgument(const char* text, unsigned long& value)
{
    const std::string_view whole(text);
    unsigned long number = 0;
    const auto [end, error] = std::from_chars(whole.data(), whole.data() + whole.size(), number);
    if (error != std::errc())
        return false;
    const int shift = shiftOf(whole.substr(static_cast<std::size_t>(end - whole.data())));
    if (shift < 0 || number > (std::numeric_limits<unsigned long>::max() >> shift))
        return false;
    value = number << shift;
    return true;
}

}  // namespace Diagnose
