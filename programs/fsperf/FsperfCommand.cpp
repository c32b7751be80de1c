#include "programs/fsperf/FsperfCommand.h"

#include <exception>
#include <iostream>
#include <string_view>

#include "Diagnose/Shell.h"
#include "Version/Version.h"
#include "vetraTests/FSPerf/FSPerf.h"

namespace Fsperf {

namespace {

using Basis::string;

constexpr int exceptionStatus = 1;

constexpr const char* ownOptions =
    "\n"
    "fsperf [OPTION]... DIRECTORY measures the file system of DIRECTORY.\n"
    "\n"
    "  -t all|read|write|initial_write|overwrite    which tests (default all)\n"
    "  -m throughput|latency|all                    what is measured (default throughput)\n"
    "  -b SIZE                                      size of one request (default 4MB)\n"
    "  -f SIZE                                      size of the data file (default 16GB)\n"
    "  -s SIZE                                      size of the buffer (default that of the file)\n"
    "  -i random|sequential                         order of the blocks (default random)\n"
    "  -c                                           do not write random data\n"
    "  -o short|verbose|full|json|json_short        output (default short)\n"
    "  -p MODE:NAME                                 profile into NAME-cpu.dot and NAME-wait.dot;\n"
    "                                               MODE is all, main, trigger, submit, "
    "completion\n"
    "  noclean                                      leave the data file\n"
    "  noinit                                       use the data file of an earlier run\n"
    "  --param KEY=VALUE                            a parameter of the list above\n"
    "  -h, --help; -v, --version\n"
    "\n"
    "The data file is DIRECTORY/datavol.dat; one that exists is replaced. Options stand before "
    "the\n"
    "directory. Exit status: 0 all tests ran, 1 unexpected error, 2 arguments refused, 3 set-up\n"
    "failed, 4 initial write failed, 5 overwrite failed, 6 read failed, 7 no data file.\n";

string argumentString(int argc, char** argv)
{
    string args("fsperf", &vetraTests::fsperfAllocator());
    for (int i = 1; i < argc; ++i)
        args.append(" ").append(argv[i]);
    return args;
}

// With the engine's own grammar, but without its messages: the run itself has said them.
bool isJsonAskedFor(string& args)
{
    vetraTests::CCmdOptions options;
    options.evaluateOutputType(args);
    return options.m_output_type == vetraTests::OutputType::JSON ||
           options.m_output_type == vetraTests::OutputType::JSON_SHORT;
}

int measure(string args)
{
    const int code = vetraTests::runTestWrapper(args);
    if (code != vetraTests::runSucceeded)
        return code;
    if (isJsonAskedFor(args))
        std::cout << vetraTests::getJSONStats() << std::flush;
    else
        std::cout << vetraTests::getHRStats() << vetraTests::getSummaryReport() << std::flush;
    return code;
}

}  // namespace

int runFsperf(int argc, char** argv)
{
    const std::string_view first = argc > 1 ? argv[1] : "--help";
    if (argc <= 2 && (first == "-h" || first == "--help")) {
        std::cout << vetraTests::testUsage() << ownOptions << std::flush;
        return 0;
    }
    if (argc == 2 && (first == "-v" || first == "--version")) {
        std::cout << "fsperf-" << zdbver_version() << " (" << zdbver_compiledate() << ")"
                  << std::endl;
        return 0;
    }
    try {
        return measure(argumentString(argc, argv));
    } catch (const std::exception& exception) {
        std::cout << std::flush;
        // The message of a failed command has no end of its own.
        if (dynamic_cast<const Diagnose::CommandException*>(&exception))
            std::cerr << std::endl;
        std::cerr << "fsperf: " << exception.what() << std::endl;
        return exceptionStatus;
    }
}

}  // namespace Fsperf
