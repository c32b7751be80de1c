#include "programs/VNSNetServerBidi/ServerProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "Diagnose/TraceConfiguration.h"
#include "Diagnose/TraceTopic.h"
#include "JoltNet/Engine.h"
#include "JoltNet/NetException.h"
#include "JoltNet/Request.h"
#include "Version/Version.h"
#include "programs/VNSNetServerBidi/MeasuringServer.h"
#include "programs/VNSNetServerBidi/Patience.h"
#include "programs/VNSNetServerBidi/UserRegistry.h"

namespace NetServer {

namespace {

constexpr int cannotServe = 1;
constexpr int badArguments = 64;
constexpr const char* noOutput = "cannot write to standard output";

constexpr int pauseMilliseconds = 20;

std::atomic<MeasuringServer*> runningServer{nullptr};

volatile std::sig_atomic_t isToEnd = 0;

void endServer(int)
{
    isToEnd = 1;
    if (MeasuringServer* const server = runningServer.load())
        server->stop();
}

void setSignals()
{
    struct sigaction action {};
    action.sa_handler = &endServer;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &action, nullptr);
    ::sigaction(SIGHUP, &action, nullptr);
}

// Whoever does not read the line takes the server for one that has not started.
void say(const std::string& line)
{
    std::cout << line << std::endl;
    if (!std::cout)
        throw std::runtime_error(noOutput);
}

// Whoever started this reads until all have closed their end.
void closeStandardStreams()
{
    const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int stream = 0; stream <= 2; ++stream) {
        if (nothing < 0)
            ::close(stream);
        else
            ::dup2(nothing, stream);
    }
    if (nothing > 2)
        ::close(nothing);
}

// Whoever cannot be told where the server listens is no user of it.
void leaveRunning(unsigned short port)
{
    JoltNet::Engine::initialize(config::Configuration::getServiceConfig(), port, false);
    try {
        JoltNet::Request("StopVNS", "127.0.0.1", port, 0).in();
    } catch (const JoltNet::NetException&) {
        // It has ended.
    }
    JoltNet::Engine::terminate();
}

bool joinRunning(Holder& holder)
{
    const UserRegistry::Joining joining = UserRegistry::joinRunning();
    holder = joining.holder;
    if (!joining.port)
        return false;
    try {
        say("VNSNetServerBidi: one more user of the server that listens on port " +
            std::to_string(*joining.port));
    } catch (...) {
        leaveRunning(*joining.port);
        throw;
    }
    return true;
}

std::unique_ptr<UserRegistry> makeRegistry()
{
    return std::make_unique<UserRegistry>(
        []() -> std::optional<unsigned short> {
            MeasuringServer* const running = runningServer.load();
            return running ? running->addUser() : std::nullopt;
        },
        [] {
            if (MeasuringServer* const running = runningServer.load())
                running->dropUser();
        });
}

// The server that signals and joiners find, until nobody can be about to.
class RunningServer {
public:
    RunningServer(MeasuringServer& server, UserRegistry* userRegistry) : registry(userRegistry)
    {
        if (registry)
            server.onLastUser([this] { registry->close(); });
        runningServer = &server;
    }
    ~RunningServer()
    {
        if (registry)
            registry->closeAndWait();
        runningServer = nullptr;
    }
    RunningServer(const RunningServer&) = delete;
    RunningServer& operator=(const RunningServer&) = delete;

private:
    UserRegistry* registry;
};

// A server that could accept nobody would stay there silently.
void expectSpareDescriptor()
{
    const JoltNet::Descriptor spare(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    if (spare.number() < 0)
        throw std::system_error(errno, std::generic_category(), "no descriptor for a peer");
}

void serve(MeasuringServer& server, bool isForeground, int report)
{
    if (isForeground)
        expectSpareDescriptor();  // in the background, the report's will be free
    say("VNSNetServerBidi: listening on port " + std::to_string(server.port()));
    if (!isForeground) {
        [[maybe_unused]] const ssize_t written = ::write(report, "", 1);
        ::close(report);
        closeStandardStreams();
    }
    server.run();
}

// Joins the server that runs, or becomes the one that runs. Between the two may lie the moment in
// which the other one ends.
void joinOrServe(const ServerOptions& options, int report)
{
    Patience patience(Patience::Clock::now());
    for (; !isToEnd; ::poll(nullptr, 0, pauseMilliseconds)) {
        Holder holder = Holder::silent;
        // Who asks for a place of their own gets a server of their own.
        if (!options.isPlaceGiven && joinRunning(holder))
            return;
        // The name is taken before the port: of two that start at once, one joins the other. At an
        // address of its own, others may not reach the server.
        const std::unique_ptr<UserRegistry> registry =
            options.isAddressGiven ? nullptr : makeRegistry();
        const bool isToWait = registry && registry->isNameTaken() && !options.isPlaceGiven;
        if (isToWait && patience.isLeft(holder, Patience::Clock::now()))
            continue;
        MeasuringServer server(options);
        const RunningServer running(server, registry.get());
        if (!isToEnd)
            serve(server, options.isForeground, report);
        return;
    }
}

// Whoever watches the server sees why it has dropped a peer. In the background nobody does, and a
// host that is measured keeps no file of it.
void traceToWatcher()
{
    Diagnose::TraceConfiguration::initializeStandardError();
    Diagnose::TraceTopic::setGlobalTraceLevel(Diagnose::TraceLevel::Warning);
}

int serveAndTell(const ServerOptions& options, int report)
{
    setSignals();
    if (options.isForeground)
        traceToWatcher();
    try {
        joinOrServe(options, report);
    } catch (const std::exception& exception) {
        std::cerr << "VNSNetServerBidi: " << exception.what() << std::endl;
        return cannotServe;
    }
    return 0;
}

// The child's own status, if it has ended before it could serve.
int statusOfChild(pid_t child, int report)
{
    char byte = 0;
    ssize_t received = 0;
    do {
        received = ::read(report, &byte, 1);
    } while (received < 0 && errno == EINTR);
    int status = 0;
    if (received == 1)
        return 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR)
        continue;
    return WIFEXITED(status) ? WEXITSTATUS(status) : cannotServe;
}

// The parent ends when the child listens.
int serveInBackground(const ServerOptions& options)
{
    int report[2];
    const pid_t child = ::pipe2(report, O_CLOEXEC) == 0 ? ::fork() : -1;
    if (child < 0) {
        std::cerr << "VNSNetServerBidi: cannot go to the background" << std::endl;
        return cannotServe;
    }
    if (child != 0) {
        ::close(report[1]);
        return statusOfChild(child, report[0]);
    }
    ::close(report[0]);
    ::setsid();
    [[maybe_unused]] const int changed = ::chdir("/");
    return serveAndTell(options, report[1]);
}

}  // namespace

int runServerProcess(int argc, const char* const* argv, bool hasOutput)
{
    std::string complaint;
    const std::optional<ServerOptions> options = readOptions(argc, argv, complaint);
    if (!options) {
        std::cerr << "VNSNetServerBidi: " << complaint << std::endl;
        return badArguments;
    }
    if (!hasOutput) {
        std::cerr << "VNSNetServerBidi: " << noOutput << std::endl;
        return cannotServe;
    }
    if (options->action == ServerOptions::Action::help) {
        std::cout << helpText << std::flush;
        return 0;
    }
    if (options->action == ServerOptions::Action::version) {
        std::cout << "VNSNetServerBidi-" << zdbver_version() << " (" << zdbver_compiledate() << ")"
                  << std::endl;
        return 0;
    }
    return options->isForeground ? serveAndTell(*options, -1) : serveInBackground(*options);
}

}  // namespace NetServer
