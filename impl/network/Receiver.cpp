#include "impl/network/Receiver.h"

#include <iostream>

#include "Basis/Exception.h"
#include "Diagnose/TraceTopic.h"
#include "JoltNet/NetException.h"
#include "impl/network/NetworkFailure.h"
#include "impl/network/WireObjects.h"

namespace vetraTests {

namespace {

Diagnose::TraceTopic TRACE_VNS_REC;

const struct TraceInitializer {
    TraceInitializer()
    {
        TRACE_VNS_REC.init("VNSReceiver", "reverse stream of the network test");
        TRACE_VNS_REC.initStat();
    }
    ~TraceInitializer() { TRACE_VNS_REC.destroy(); }
} TRACE_VNS_REC_TraceInitializer;

constexpr const char* requestName = "DualVNS";

template <class T, class... Arguments>
std::shared_ptr<T> madeOn(Basis::Allocator& allocator, Arguments&&... arguments)
{
    return std::allocate_shared<T>(std::pmr::polymorphic_allocator<T>(&allocator),
                                   std::forward<Arguments>(arguments)...);
}

}  // namespace

string JoinHostAndPort(const string& host, unsigned short port, Basis::Allocator& allocator)
{
    return string(host, &allocator).append(":").append(std::to_string(port));
}

Receiver::Receiver(Basis::Allocator& allocator, const string& hostName, unsigned short portNumber,
                   unsigned long bytes)
    : tracer(TRACE_VNS_REC), host(hostName, &allocator), port(portNumber), size(bytes)
{
    requests.addRequest(madeOn<JoltNet::AutonomousRequest>(
        allocator, requestName, JoinHostAndPort(host, port, allocator),
        madeOn<BidiRequestObject>(allocator, size), madeOn<BidiResponseObject>(allocator)));
}

Receiver::~Receiver() = default;

bool Receiver::start()
{
    if (running)
        return true;
    return succeeds([this] { run(nullptr); });
}

void Receiver::run(void*)
{
    running = true;
    succeeds([this] { requests.go(nullptr, -1); });
    running = false;
}

bool Receiver::stop()
{
    stopRequested = true;
    return true;
}

bool Receiver::join()
{
    return requests.join() != 0;
}

bool Receiver::stopAndWait()
{
    stop();
    return join();
}

const char* Receiver::getThreadName() const
{
    return "Receiver";
}

}  // namespace vetraTests
