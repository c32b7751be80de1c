#include "impl/network/WireObjects.h"

#include <charconv>

namespace vetraTests {

void BidiRequestObject::serialize(JoltUtils::Serializer& serializer) const
{
    char digits[20];
    const auto result = std::to_chars(digits, digits + sizeof digits, size);
    serializer.write(digits, static_cast<std::size_t>(result.ptr - digits));
}

void BidiRequestObject::deserialize(JoltUtils::Deserializer&) {}

void BidiRequestObject::destruct() {}

void BidiResponseObject::serialize(JoltUtils::Serializer&) const {}

void BidiResponseObject::deserialize(JoltUtils::Deserializer&) {}

void BidiResponseObject::destruct() {}

}  // namespace vetraTests
