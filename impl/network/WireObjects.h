#pragma once

#include <cstdint>

#include "JoltNet/AutonomousRequest.h"

namespace vetraTests {

/// Asks the peer's server for as many bytes. On the wire it is the plain decimal number.
class BidiRequestObject : public JoltNet::AutonomousRequestObject {
public:
    explicit BidiRequestObject(std::uint64_t bytes) : size(bytes) {}

    void serialize(JoltUtils::Serializer& serializer) const override;
    void deserialize(JoltUtils::Deserializer& deserializer) override;
    void destruct() override;

private:
    std::uint64_t size;
};

/// Takes nothing of what comes back: only the time counts that it takes.
class BidiResponseObject : public JoltNet::AutonomousRequestObject {
public:
    void serialize(JoltUtils::Serializer& serializer) const override;
    void deserialize(JoltUtils::Deserializer& deserializer) override;
    void destruct() override;
};

}  // namespace vetraTests
