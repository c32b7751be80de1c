#pragma once

#include <memory>
#include <string>

#include "Basis/Containers.h"
#include "JoltUtils/Serializable.h"

namespace JoltNet {

/// What an autonomous request sends, or makes of the answer.
class AutonomousRequestObject : public JoltUtils::Serializable {
public:
    /// Called once when the request that owns the object goes, before the object does.
    virtual void destruct() = 0;
};

/// A request that a RequestSet carries out on a thread of its own.
class AutonomousRequest {
public:
    using Object = std::shared_ptr<AutonomousRequestObject>;

    /// `address` is "host:port". Takes the two objects over: the first one is sent, the second one
    /// gets the answer.
    AutonomousRequest(const char* requestName, std::string_view address, Object requestObject,
                      Object responseObject);
    ~AutonomousRequest();
    AutonomousRequest(const AutonomousRequest&) = delete;
    AutonomousRequest& operator=(const AutonomousRequest&) = delete;

    /// Sends the object's bytes as one string, and reads the answer to its end, whether or not the
    /// response wants all of it. Throws NetException.
    void carryOut();

private:
    std::string name;
    std::string host;
    unsigned short port = 0;
    Object request;
    Object response;
};

}  // namespace JoltNet
