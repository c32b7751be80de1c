#pragma once

#include <cstdint>
#include <string_view>

#include "Basis/Containers.h"

namespace JoltUtils {

/// The memory of JSON values: all values of one parse take it from here.
class JsonAllocator {
public:
    explicit JsonAllocator(Basis::Allocator& domain) : source(domain) {}

    JsonAllocator(const JsonAllocator&) = delete;
    JsonAllocator& operator=(const JsonAllocator&) = delete;

    /// The domain for values that belong to nobody in particular: the process-wide one.
    static Basis::Allocator& getDefaultAllocator();

    Basis::Allocator& domain() const { return source; }

private:
    Basis::Allocator& source;
};

enum class JsonType : std::uint8_t {
    Null = 0,
    Boolean = 1,
    Number = 2,
    String = 3,
    Array = 4,
    Object = 5,
};

class TypedJson;
class JsonObject;
using JsonArray = Basis::vector<TypedJson>;

/// One JSON value: a type and what it holds. Values are moved, never copied.
///
/// Sixteen bytes, because an array of a hundred million small numbers is an input like any other.
/// Errors: asking for what the value does not hold stops the program.
class TypedJson {
public:
    TypedJson() = default;
    TypedJson(TypedJson&& other) noexcept;
    TypedJson& operator=(TypedJson&& other) noexcept;
    ~TypedJson();

    JsonType type() const { return tag; }

    bool boolean() const;
    double number() const;
    const Basis::string& text() const;
    const JsonArray& array() const;
    const JsonObject& object() const;

    /// The setters replace what was there. References stay valid until the next one.
    void setNull();
    void setBoolean(bool value);
    void setNumber(double value);
    Basis::string& setString(std::string_view value, const JsonAllocator& allocator);
    JsonArray& setArray(const JsonAllocator& allocator);
    JsonObject& setObject(const JsonAllocator& allocator);

private:
    JsonType tag = JsonType::Null;
    union {
        bool booleanValue;
        double numberValue;
        Basis::string* stringValue;
        JsonArray* arrayValue;
        JsonObject* objectValue;
    };
};

/// The members of a JSON object, in byte order of their keys, whatever the order in the text.
class JsonObject : public Basis::map<Basis::string, TypedJson> {
public:
    explicit JsonObject(const JsonAllocator& allocator)
        : Basis::map<Basis::string, TypedJson>(&allocator.domain())
    {
    }
};

}  // namespace JoltUtils
