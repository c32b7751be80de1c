#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "Basis/Containers.h"
#include "JoltUtils/TypedJson.h"
#include "vetraDefines.h"

namespace Vetra {

/// One entry of the configuration's list of tests. String getters return copies in the entry's
/// domain.
class TestConfig {
public:
    explicit TestConfig(Basis::Allocator& ownerAllocator);
    virtual ~TestConfig() = default;

    string getTestPackage() const { return string(testPackage, &allocator); }
    void setTestPackage(const string& package) { testPackage = package; }
    /// Kept as the file gives it; nothing acts on it.
    std::int32_t getTestTimeout() const { return testTimeout; }
    void setTestTimeout(int timeout) { testTimeout = timeout; }
    /// 0 for an entry without an id, whatever its key in the map is.
    double getTestId() const { return testId; }
    void setTestId(double id) { testId = id; }
    /// The entry's "config" object as JSON text; empty if it has none.
    string getConfigString() const { return string(configString, &allocator); }
    void setConfigString(const string& config) { configString = config; }
    string getTestClass() const { return string(testClass, &allocator); }
    void setTestClass(const string& name) { testClass = name; }

private:
    Basis::Allocator& allocator;
    string testPackage;
    std::int32_t testTimeout = 0;
    double testId = 0.0;
    string configString;
    string testClass;
};

/// The tests in the order in which they run.
using TestConfigMap = Basis::map<double, std::shared_ptr<TestConfig>>;

/// The configuration file as a whole.
///
/// Strict about keys, lenient about presence: an unknown key or a value of another type ends the
/// run, a missing key leaves its default.
class UserConfig {
public:
    explicit UserConfig(Basis::Allocator& ownerAllocator);
    virtual ~UserConfig() = default;

    /// Reads the text of a configuration file into this object.
    ///
    /// Raises Vetra__ERR_INVALID_JSON or Vetra__ERR_INVALID_USER_CONFIG. Keys act in byte order, so
    /// those before the one at fault have taken effect, also the making of the output directory.
    void readJsonUserConfig(string& text);

    /// The summary that is shown before the tests run.
    string printUserConfigToString() const;

    bool getUseZdb() const { return useZdb; }
    void setUseZdb(bool use) { useZdb = use; }
    void getBladesList(Basis::vector<string>& blades) const { blades = bladesList; }
    void setBladesList(const Basis::vector<string>& blades) { bladesList = blades; }
    /// Where result files go; at the start the current directory of the time of construction.
    string getOutputDir() const { return string(outputDir, &allocator); }
    void setOutputDir(const string& directory) { outputDir = directory; }
    string getReportID() const { return string(reportId, &allocator); }
    void setReportID(const string& id) { reportId = id; }
    /// The maps share their entries.
    void getTestConfigMap(TestConfigMap& tests) const { tests = testConfigMap; }
    void setTestConfigMap(const TestConfigMap& tests) { testConfigMap = tests; }

private:
    void readMember(const string& key, const JoltUtils::TypedJson& value);
    void readBlades(const JoltUtils::JsonArray& blades);
    void readOutputDir(const string& directory);
    void readTests(const JoltUtils::JsonArray& tests);

    Basis::Allocator& allocator;
    bool useZdb = false;
    Basis::vector<string> bladesList;
    TestConfigMap testConfigMap;
    string outputDir;
    string reportId;
};

}  // namespace Vetra
