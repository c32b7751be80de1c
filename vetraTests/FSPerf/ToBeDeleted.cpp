#include "vetraTests/FSPerf/ToBeDeleted.h"

#include <string_view>

#include "vetraTests/FSPerf/FSPerfHelper.h"

namespace vetraTests {

bool retrieveAccessModeValue(const Basis::vector<Basis::string>& params, const char* key,
                             Basis::string& value)
{
    for (const Basis::string& word : params) {
        const std::size_t separator = word.find('=');
        if (separator == Basis::string::npos || word.compare(0, separator, key) != 0)
            continue;
        value.assign(word, separator + 1);
        return true;
    }
    return false;
}

int retrieveAccessMode(const Basis::vector<Basis::string>& params, bool write)
{
    constexpr int off = 10;
    constexpr int other = 11;
    constexpr int on = 12;

    Basis::string value(&fsperfAllocator());
    retrieveAccessModeValue(params, write ? "async_write_submit_active" : "async_read_submit",
                            value);
    if (value == "off")
        return off;
    return write && value == "on" ? on : other;
}

}  // namespace vetraTests
