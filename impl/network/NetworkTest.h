#pragma once

#include <cstdint>

#include "JoltUtils/TypedJson.h"
#include "VetraTestInterface.h"

namespace vetraTests {

using Basis::string;

/// What was measured with one peer.
struct NetworkTestRecord {
    std::uint64_t LoadSize = 0;       ///< bytes
    std::int32_t Throughput = 0;      ///< Mbit/s, one way
    std::int32_t ThroughputBidi = 0;  ///< Mbit/s, both ways together
};

/// The test that measures the network between this host and its peers, one after the other.
///
/// Its configuration names pairs of client and peer; those count whose client is this host, by the
/// variable HOST, or "localhost". runTest returns 0 once each of them was measured, whatever the
/// rates, and -1 as soon as one cannot be started, probed or stopped; the records so far stay.
/// Exceptions of the network within a measurement, and of a port that is no number, pass through.
class NetworkTest : public Vetra::VetraTestInterface {
public:
    explicit NetworkTest(Basis::Allocator& ownerAllocator);

    string getTestName() const override;
    string getTestVersion() const override;
    string getTestUsage() const override;
    string getDefaultTestConfig() const override;
    void setTestTrigger(string& trigger) override;
    string getTestTrigger() const override;
    void setTestConfig(string& config) override;
    string getTestConfig() const override;
    std::int64_t getTestEstimatedDuration() override;
    float getTestProgressPercentage() override;
    void setUp() override;
    void tearDown() override;
    std::int32_t interruptTest() override;
    std::int32_t runTest() override;
    void setTestResult(bool result) override;
    bool getTestResult() override;
    string getTestJsonResult() override;
    string getTestHumanReadableResult() override;
    void Destroy() override;
    void setTestOutputLocation(string& location) override;
    string getTestOutputLocation() override;
    void setTestHost(string& host) override;
    string getTestHost() override;
    void setTestContactInfo(string& contactInfo) override;
    string getTestContactInfo() override;
    void notifyTestStatus() override;
    void postTestAction() override;

    /// Adds a member for each peer that was measured.
    void getTestJsonResult(JoltUtils::JsonObject& object);
    void createInputJO(JoltUtils::JsonObject& object) const;
    void createResultJO(JoltUtils::JsonObject& object) const;
    void createTypesJO(JoltUtils::JsonObject& object) const;

private:
    string text(const char* characters) const { return string(characters, &allocator); }
    void addPeersOf(const JoltUtils::JsonObject& pairs, const string& ownHost);

    Basis::Allocator& allocator;
    string testConfig;
    string testVersion;
    string testOutputLocation;
    bool testResult = false;
    Basis::vector<string> peerHosts;
    Basis::map<string, NetworkTestRecord> testResults;
    JoltUtils::JsonAllocator jsonAllocator;
};

}  // namespace vetraTests
