// Outcome records, which escape nothing: splitting them, and the JSON of what came out.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Basis/Crash.h"
#include "Basis/Text.h"
#include "JoltUtils/Json.h"
#include "fuzz/FuzzHarness.h"
#include "programs/vetraApi/Record.h"

namespace {

using Basis::assertThat;
using JoltUtils::JsonType;
using VetraApi::Record;

// A quotation mark, a comma, the digit, a comma, a quotation mark.
bool holdsCodeField(std::string_view text)
{
    for (char digit = '0'; digit <= '9'; ++digit) {
        const char field[] = {'\'', ',', digit, ',', '\'', '\0'};
        if (Basis::contains(text, field))
            return true;
    }
    return false;
}

// Nothing is lost and nothing is added, and the cuts are where they should be.
void checkFields(const Record& record, std::string_view text)
{
    std::string whole = "('";
    whole.append(record.item).append("','").append(record.value).append("',");
    whole.append(std::to_string(record.code)).append(",'").append(record.message).append("')");
    assertThat(whole == text, "the fields make up the record");
    assertThat(!Basis::contains(record.item, "','"), "the item ends at the first separator");
    const bool repeatsItsValue = record.item == "appliancetype" && !record.message.empty() &&
                                 Basis::startsWith(record.message, record.value);
    assertThat(repeatsItsValue || !holdsCodeField(record.message), "the code is the last one");
    const int status = VetraApi::exitStatusOf(record.code);
    assertThat(status >= 0 && status <= 3, "a code becomes one of four exit statuses");
}

void checkJson(const Record& record, Basis::Allocator& allocator)
{
    const Basis::string json = VetraApi::jsonOf("CHECK_CPU", record, allocator);
    JoltUtils::JsonAllocator values(allocator);
    JoltUtils::JsonObject members(values);
    assertThat(JoltUtils::jsonParse(json.data(), json.size(), members, values),
               "the JSON of a record can be read");
    assertThat(members.size() == 5, "the JSON of a record has five members");
    for (const auto& [name, value] : members) {
        assertThat(value.type() == (name == "code" ? JsonType::Number : JsonType::String),
                   "a member has its type");
        if (name == "code")
            assertThat(value.number() == record.code, "the code is kept");
    }
}

void checkRecord(std::string_view text, Basis::Allocator& allocator)
{
    const auto record = VetraApi::splitRecord(text);
    if (!record)
        return;
    checkFields(*record, text);
    checkJson(*record, allocator);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    VetraFuzz::prepareProcess();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const VetraFuzz::InputDomain domain;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    checkRecord(text, domain.allocator());
    // The same as a record's inside: arbitrary text seldom has the brackets.
    std::string whole = "('";
    whole.append(text).append("')");
    checkRecord(whole, domain.allocator());
    return 0;
}
