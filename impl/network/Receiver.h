#pragma once

#include <cstdint>

#include "Basis/Containers.h"
#include "JoltNet/RequestSet.h"
#include "JoltTrace/Tracer.h"

namespace vetraTests {

using Basis::string;

/// "host:port".
string JoinHostAndPort(const string& host, unsigned short port, Basis::Allocator& allocator);

/// Fetches a number of bytes from a peer's server while something else is measured.
///
/// Threads:    one at a time; the request itself runs on a thread of the engine, for which join
///             waits. Errors of the network become a line on standard output and a false result.
class Receiver {
public:
    /// `size` is in bytes. Throws JoltNet::NetException if host and port make no address.
    Receiver(Basis::Allocator& allocator, const string& hostName, unsigned short portNumber,
             unsigned long bytes);
    virtual ~Receiver();
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    /// Sets the request going; true at once if it already runs. A failure while it is set going is
    /// handled by run, so that true comes back then, too.
    virtual bool start();
    virtual bool stop();
    virtual bool stopAndWait();
    /// Waits for the request. False if it has failed.
    virtual bool join();
    virtual void run(void* argument);
    virtual const char* getThreadName() const;

protected:
    bool running = false;
    bool stopRequested = false;
    JoltTrace::Tracer tracer;
    string host;
    unsigned short port;
    std::uint64_t size;
    JoltNet::RequestSet requests;
};

}  // namespace vetraTests
