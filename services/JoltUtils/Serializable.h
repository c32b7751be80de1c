#pragma once

#include <cstddef>

namespace JoltUtils {

/// Takes the bytes of an object on their way out.
class Serializer {
public:
    virtual ~Serializer() = default;
    /// Takes bytes as they are, without a length or a mark of its own.
    virtual void write(const void* bytes, std::size_t length) = 0;
};

/// Gives the bytes that came in for an object.
class Deserializer {
public:
    virtual ~Deserializer() = default;
    /// Fills up to `length` bytes and returns how many; fewer only if there are no more.
    virtual std::size_t read(void* bytes, std::size_t length) = 0;
};

/// What can be turned into bytes and back.
class Serializable {
public:
    virtual ~Serializable() = default;
    virtual void serialize(Serializer& serializer) const = 0;
    virtual void deserialize(Deserializer& deserializer) = 0;
};

}  // namespace JoltUtils
