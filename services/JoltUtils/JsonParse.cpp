#include <cstring>
#include <nlohmann/json.hpp>

#include "JoltUtils/Json.h"

namespace JoltUtils {

namespace {

// Builds the values while the parser reads, so that no second tree exists and the depth is bounded.
class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
public:
    TreeBuilder(JsonObject& topObject, JsonAllocator& jsonAllocator)
        : top(topObject), allocator(jsonAllocator), open(&jsonAllocator.domain())
    {
    }

    bool null() override
    {
        TypedJson* place = nextPlace();
        return place != nullptr;
    }
    bool boolean(bool value) override
    {
        return store([&](TypedJson& place) { place.setBoolean(value); });
    }
    bool number_integer(number_integer_t value) override
    {
        // The reader gives numbers with a minus here, all others as unsigned.
        const double number = value == 0 ? -0.0 : static_cast<double>(value);
        return store([&](TypedJson& place) { place.setNumber(number); });
    }
    bool number_unsigned(number_unsigned_t value) override
    {
        return store([&](TypedJson& place) { place.setNumber(static_cast<double>(value)); });
    }
    bool number_float(number_float_t value, const string_t&) override
    {
        return store([&](TypedJson& place) { place.setNumber(value); });
    }
    bool string(string_t& value) override
    {
        return store([&](TypedJson& place) { place.setString(value, allocator); });
    }
    bool binary(binary_t&) override { return false; }

    bool start_object(std::size_t) override
    {
        if (open.empty() && !topSeen) {
            topSeen = true;
            open.push_back({nullptr, &top});
            return true;
        }
        return open.size() < jsonMaxDepth && store([&](TypedJson& place) {
                   open.push_back({nullptr, &place.setObject(allocator)});
               });
    }
    bool start_array(std::size_t) override
    {
        return open.size() < jsonMaxDepth && store([&](TypedJson& place) {
                   open.push_back({&place.setArray(allocator), nullptr});
               });
    }
    bool key(string_t& value) override
    {
        JsonObject& object = *open.back().object;
        const auto member = object.try_emplace(Basis::string(value, &allocator.domain())).first;
        member->second.setNull();
        memberPlace = &member->second;
        return true;
    }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override
    {
        return false;
    }

private:
    struct Container {
        JsonArray* array;
        JsonObject* object;
    };

    // Where the value that was just read belongs; null for a value outside of the top object.
    TypedJson* nextPlace()
    {
        if (open.empty())
            return nullptr;
        if (open.back().array)
            return &open.back().array->emplace_back();
        return memberPlace;
    }
    template <class Setter>
    bool store(Setter set)
    {
        TypedJson* place = nextPlace();
        if (place)
            set(*place);
        return place != nullptr;
    }
    bool close()
    {
        open.pop_back();
        return true;
    }

    JsonObject& top;
    JsonAllocator& allocator;
    Basis::vector<Container> open;
    TypedJson* memberPlace = nullptr;
    bool topSeen = false;
};

}  // namespace

bool jsonParse(const char* text, unsigned long length, JsonObject& object, JsonAllocator& allocator)
{
    object.clear();
    // The reader takes a NUL for the end of the text; no JSON holds one.
    if (std::memchr(text, '\0', length))
        return false;
    TreeBuilder builder(object, allocator);
    if (nlohmann::json::sax_parse(text, text + length, &builder))
        return true;
    object.clear();
    return false;
}

}  // namespace JoltUtils
