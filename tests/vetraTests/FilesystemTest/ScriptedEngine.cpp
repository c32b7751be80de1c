#include "tests/vetraTests/FilesystemTest/ScriptedEngine.h"

#include "vetraTests/FSPerf/FSPerf.h"

namespace ioTests {

ScriptedEngine& engine()
{
    static ScriptedEngine instance;
    return instance;
}

namespace {

Basis::string numbered(const char* kind)
{
    Basis::string text(kind, Basis::Allocator::global().get());
    return text.append(std::to_string(engine().commandLines.size())).append("\n");
}

}  // namespace

}  // namespace ioTests

namespace vetraTests {

int runTestWrapper(Basis::string& args)
{
    ioTests::ScriptedEngine& engine = ioTests::engine();
    engine.commandLines.emplace_back(args);
    return engine.commandLines.size() == engine.failAt + 1 ? engine.failure : 0;
}

Basis::string getJSONStats()
{
    return ioTests::numbered("json");
}

Basis::string getHRStats()
{
    return ioTests::numbered("report");
}

Basis::string getSummaryReport()
{
    return ioTests::numbered("row");
}

}  // namespace vetraTests
