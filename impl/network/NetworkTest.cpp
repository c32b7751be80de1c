#include "impl/network/NetworkTest.h"

#include <unistd.h>

#include <iostream>
#include <string>

#include "JoltUtils/Json.h"
#include "System/Environment.h"
#include "Version/Version.h"
#include "impl/network/RemoteCommand.h"
#include "impl/network/VNSNetTester.h"

namespace vetraTests {

namespace {

constexpr std::int32_t testHasRun = 0;
constexpr std::int32_t testHasFailed = -1;
constexpr unsigned long loadSize = 65535;
constexpr int assumedPort = 4464;
constexpr unsigned secondsBeforeProbe = 1;

string versionText(Basis::Allocator& allocator)
{
    Basis::ostringstream stream = Basis::outputStream(allocator);
    // A piece that the build did not supply is left out.
    stream.exceptions(std::ios_base::goodbit);
    stream << "NetworkTest-" << zdbver_version() << " (" << zdbver_compiledate() << ")";
    return stream.str();
}

// The port is what stands between the first colon of a line and the next blank. Throws what stoi
// throws for a text there that is no number.
int findPort(const string& host)
{
    string command("ssh ", host.get_allocator());
    command.append(host).append(" \"netstat -tulpn | grep VNSNetServer \"");
    RemoteCommand netstat(command);
    for (string line(host.get_allocator()); netstat.nextLine(line);) {
        const std::size_t colon = line.find(':');
        if (colon == string::npos)
            continue;
        const std::size_t blank = line.find(' ', colon);
        if (blank != string::npos)
            return std::stoi(std::string(line, colon + 1, blank - colon - 1));
    }
    return assumedPort;
}

bool failed(const char* message, const string& detail)
{
    std::cout << message << detail << std::endl;
    return false;
}

// Leaves the server running if anything fails between its start and its stop.
bool measurePeer(VNSNetTester& tester, const string& host,
                 Basis::map<string, NetworkTestRecord>& results)
{
    const string nothing(host.get_allocator());
    std::cout << "VNSNetServer starting on " << host << std::endl;
    if (!tester.startServer(host))
        return failed("VNSNetServer starting on remote host failed", nothing);
    const int foundPort = findPort(host);
    ::sleep(secondsBeforeProbe);
    const auto port = static_cast<unsigned short>(foundPort);
    if (!tester.checkServer(host, port))
        return failed("Server is not running properly on host ", host);
    const std::int32_t bidi = tester.getAverageThroughPut(host, port, loadSize, true);
    const std::int32_t oneWay = tester.getAverageThroughPut(host, port, loadSize, false);
    std::cout << "Average throughtput (MBit/s): " << oneWay << std::endl;
    std::cout << "Average bidi throughtput (MBit/s): " << bidi << std::endl;
    results.emplace(host, NetworkTestRecord{loadSize, oneWay, bidi});
    if (!tester.stopServer(host, port))
        return failed("Stopping Server failed on host ", host);
    return true;
}

}  // namespace

NetworkTest::NetworkTest(Basis::Allocator& ownerAllocator)
    : allocator(ownerAllocator),
      testConfig(&allocator),
      testVersion(versionText(allocator)),
      testOutputLocation(&allocator),
      peerHosts(&allocator),
      testResults(&allocator),
      jsonAllocator(allocator)
{
}

void NetworkTest::setTestConfig(string& config)
{
    testConfig = config;
    peerHosts.clear();
    const string ownHost(System::Environment::getenv("HOST", ""), &allocator);
    std::cout << "Configuring NetworkTest for host " << ownHost << std::endl;

    JoltUtils::JsonObject object(jsonAllocator);
    if (!JoltUtils::jsonParse(testConfig.data(), testConfig.size(), object, jsonAllocator)) {
        std::cout << "Failed to parse json size=" << testConfig.size()
                  << " , TestConfig=" << testConfig << std::endl;
    }
    for (const auto& [key, value] : object) {
        if (key == "InternHosts" && value.type() == JoltUtils::JsonType::Object)
            addPeersOf(value.object(), ownHost);
    }
}

void NetworkTest::addPeersOf(const JoltUtils::JsonObject& pairs, const string& ownHost)
{
    for (const auto& [client, peer] : pairs) {
        if (client == ownHost || client == "localhost") {
            if (peer.type() == JoltUtils::JsonType::String)
                peerHosts.emplace_back(peer.text());
            continue;
        }
        std::cout << "Skip NetworkTest InternHosts item \"" << client << "\":\""
                  << JoltUtils::json2str(peer, string(&allocator)) << "\" as client is " << client
                  << std::endl;
    }
}

std::int32_t NetworkTest::runTest()
{
    setTestResult(false);
    VNSNetTester tester(allocator);
    if (!tester.IsInitialized())
        return testHasFailed;
    for (const string& host : peerHosts) {
        if (!measurePeer(tester, host, testResults))
            return testHasFailed;
    }
    setTestResult(true);
    return testHasRun;
}

void NetworkTest::getTestJsonResult(JoltUtils::JsonObject& object)
{
    for (const auto& [host, record] : testResults) {
        JoltUtils::TypedJson value;
        JoltUtils::JsonObject& members = value.setObject(jsonAllocator);
        members[text("LoadSize")].setNumber(static_cast<double>(record.LoadSize));
        members[text("Throughput")].setNumber(record.Throughput);
        members[text("ThroughputBidi")].setNumber(record.ThroughputBidi);
        object.emplace(host, std::move(value));
    }
}

string NetworkTest::getTestJsonResult()
{
    const JoltUtils::JsonAllocator source(JoltUtils::JsonAllocator::getDefaultAllocator());
    JoltUtils::JsonObject object(source);
    getTestJsonResult(object);
    Basis::ostringstream stream = Basis::outputStream(allocator);
    JoltUtils::jsonFormat(object, stream, true);
    return stream.str();
}

string NetworkTest::getTestHumanReadableResult()
{
    Basis::ostringstream stream = Basis::outputStream(allocator);
    stream << "NetworkTest Result:" << std::endl;
    for (const auto& [host, record] : testResults) {
        stream << "Result for: " << host << std::endl;
        stream << "    LoadSize(Bytes): " << record.LoadSize << std::endl;
        stream << "    Throughput(MBits/s): " << record.Throughput << std::endl;
        stream << "    ThroughputBidi(MBits/s): " << record.ThroughputBidi << std::endl;
    }
    return stream.str();
}

}  // namespace vetraTests
