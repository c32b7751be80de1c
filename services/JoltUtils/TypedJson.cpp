#include "JoltUtils/TypedJson.h"

#include <utility>

#include "Basis/Crash.h"

namespace JoltUtils {

namespace {

template <class Held, class... Arguments>
Held* make(const JsonAllocator& allocator, Arguments&&... arguments)
{
    std::pmr::polymorphic_allocator<> source(&allocator.domain());
    auto* place = source.allocate_object<Held>();
    try {
        return new (place) Held(std::forward<Arguments>(arguments)...);
    } catch (...) {
        source.deallocate_object(place);
        throw;
    }
}

// The containers know their domain, so a value need not carry it.
template <class Held>
void destroy(Held* held)
{
    std::pmr::polymorphic_allocator<> source(held->get_allocator().resource());
    held->~Held();
    source.deallocate_object(held);
}

}  // namespace

Basis::Allocator& JsonAllocator::getDefaultAllocator()
{
    return *Basis::Allocator::global();
}

TypedJson::TypedJson(TypedJson&& other) noexcept
{
    *this = std::move(other);
}

TypedJson& TypedJson::operator=(TypedJson&& other) noexcept
{
    if (this == &other)
        return *this;
    setNull();
    tag = std::exchange(other.tag, JsonType::Null);
    switch (tag) {
        case JsonType::Boolean:
            booleanValue = other.booleanValue;
            break;
        case JsonType::Number:
            numberValue = other.numberValue;
            break;
        case JsonType::String:
            stringValue = other.stringValue;
            break;
        case JsonType::Array:
            arrayValue = other.arrayValue;
            break;
        case JsonType::Object:
            objectValue = other.objectValue;
            break;
        case JsonType::Null:
            break;
    }
    return *this;
}

TypedJson::~TypedJson()
{
    setNull();
}

bool TypedJson::boolean() const
{
    Basis::assertThat(tag == JsonType::Boolean, "the JSON value is a boolean");
    return booleanValue;
}

double TypedJson::number() const
{
    Basis::assertThat(tag == JsonType::Number, "the JSON value is a number");
    return numberValue;
}

const Basis::string& TypedJson::text() const
{
    Basis::assertThat(tag == JsonType::String, "the JSON value is a string");
    return *stringValue;
}

const JsonArray& TypedJson::array() const
{
    Basis::assertThat(tag == JsonType::Array, "the JSON value is an array");
    return *arrayValue;
}

const JsonObject& TypedJson::object() const
{
    Basis::assertThat(tag == JsonType::Object, "the JSON value is an object");
    return *objectValue;
}

void TypedJson::setNull()
{
    switch (std::exchange(tag, JsonType::Null)) {
        case JsonType::String:
            destroy(stringValue);
            break;
        case JsonType::Array:
            destroy(arrayValue);
            break;
        case JsonType::Object:
            destroy(objectValue);
            break;
        case JsonType::Null:
        case JsonType::Boolean:
        case JsonType::Number:
            break;
    }
}

void TypedJson::setBoolean(bool value)
{
    setNull();
    booleanValue = value;
    tag = JsonType::Boolean;
}

void TypedJson::setNumber(double value)
{
    setNull();
    numberValue = value;
    tag = JsonType::Number;
}

Basis::string& TypedJson::setString(std::string_view value, const JsonAllocator& allocator)
{
    setNull();
    stringValue = make<Basis::string>(allocator, value, &allocator.domain());
    tag = JsonType::String;
    return *stringValue;
}

JsonArray& TypedJson::setArray(const JsonAllocator& allocator)
{
    setNull();
    arrayValue = make<JsonArray>(allocator, &allocator.domain());
    tag = JsonType::Array;
    return *arrayValue;
}

JsonObject& TypedJson::setObject(const JsonAllocator& allocator)
{
    setNull();
    objectValue = make<JsonObject>(allocator, allocator);
    tag = JsonType::Object;
    return *objectValue;
}

}  // namespace JoltUtils
