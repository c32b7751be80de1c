#pragma once

#include <cstdint>

#include "Basis/Containers.h"

namespace vetraTests {

using Basis::string;

/// Starts, probes, measures and stops the measuring server of a peer.
///
/// Units:      loads are bytes, rates Mbit/s (10^6).
/// Lifetime:   one at a time in a process: it brings the network engine up and down.
/// Threads:    one.
/// Errors:     what cannot be started, probed or stopped is a false result after a line on standard
///             output. A peer that is lost in a measurement is a JoltNet::NetException.
class VNSNetTester {
public:
    explicit VNSNetTester(Basis::Allocator& ownerAllocator);
    virtual ~VNSNetTester();
    VNSNetTester(const VNSNetTester&) = delete;
    VNSNetTester& operator=(const VNSNetTester&) = delete;

    virtual bool stopServer(const string& host, unsigned short port);
    /// Starts the server through ssh and shows its first line. The server lies below the directory
    /// that the variable `remote_base_dir` names, else below the current one. A host or directory
    /// that a shell would take for something else is refused.
    virtual bool startServer(const string& host);
    virtual bool checkServer(const string& host, unsigned short port);
    /// The mean rate of a series of exchanges; 0 if the series has failed. `bidi` counts the bytes
    /// of both directions.
    virtual std::int32_t getAverageThroughPut(const string& host, unsigned short port,
                                              unsigned long size, bool bidi);
    /// Searches the load with the best one-way rate: doubles it until that is behind, then scans
    /// what lies between. `*optimalSize` is written only when a load is found.
    virtual std::int32_t getOptimalAverageThroughPut(const string& host, unsigned short port,
                                                     unsigned long* optimalSize);
    virtual void setIterNo(int iterations);
    /// Exchanges of a series; 10 for any number below 1.
    virtual int getIterNo();
    virtual bool IsInitialized();
    virtual void initEnv();
    virtual void uninitEnv();

    /// `microseconds` must not be 0.
    long getThroughPut(unsigned long bytes, long microseconds);

protected:
    /// Microseconds of one exchange of a series, -1 if it has failed.
    virtual long exchange(const string& payload, const string& host, unsigned short port,
                          bool bidi);

private:
    bool exchangeNotice(const string& requestName, const string& host, unsigned short port);
    bool doublingPhase(const string& host, unsigned short port, std::int64_t& limit,
                       std::int64_t& start);

    string measureName;
    string checkName;
    string prologueName;
    string stopName;
    string dualName;
    string bidiName;
    Basis::Allocator& allocator;
    std::int32_t iterNo = 10;
    bool initialized = false;
};

}  // namespace vetraTests
