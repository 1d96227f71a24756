// The entry of the collector's program.

#include "platform/Machine.h"
#include "platform/MessageQueues.h"
#include "platform/Platform.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"

#include <cstdlib>
#include <iostream>
#include <span>
#include <stdexcept>
#include <string>

namespace {

constexpr int startupFailed = -1;
constexpr int stuck = 1; // the service manager is to start it anew

/// One kind of quotes can stand within the other; a text with both has no form in the command line.
std::string quoted(const std::string& text) {
    if (text.find('"') != std::string::npos && text.find('\'') != std::string::npos)
        throw std::invalid_argument("The argument " + text + " holds both kinds of quotes; use at most one kind.");
    const char quote = text.find('"') == std::string::npos ? '"' : '\'';
    return quote + text + quote;
}

/// An argument as it goes into the one text of the command line, in which a dash or a quote ends a word.
std::string asWord(const std::string& argument) {
    const bool isOption = argument.size() > 1 && argument.front() == '-';
    if (!isOption)
        return quoted(argument);
    if (argument[1] == '-' || argument.size() == 2)
        return argument;
    return argument.substr(0, 2) + " " + quoted(argument.substr(2));
}

std::string joinCommandLine(std::span<char*> arguments) {
    std::string line = "dummy";
    for (const char* argument : arguments)
        line += " " + asWord(argument);
    return line;
}

int run(const std::string& commandLine) {
    Velmor::Runtally collector(commandLine);
    if (!collector.configure())
        return startupFailed;
    collector.run();
    const int result = Velmor::programState().isStuck ? stuck : 0;
    if (collector.isInUse())
        std::_Exit(result); // all is delivered, and what such a thread works with must not go
    return result;
}

int answerQuestions(const std::string& argument) {
    if (argument == "--version")
        std::cout << "runtally " << VELMOR_VERSION << '\n';
    else
        std::cout << "Usage: runtally [-c FILE]\n\n"
                     "Collects the usage of applications on this machine, in the foreground.\n\n"
                     "  -c FILE     read this configuration file\n"
                     "  --help      say this\n"
                     "  --version   tell the version\n\n"
                     "SIGTERM ends it after a last delivery, SIGHUP lets it read its configuration again.\n";
    return 0;
}

} // namespace

int main(int count, char** values) {
    const std::span<char*> arguments(values + 1, count > 0 ? static_cast<size_t>(count) - 1 : 0);
    if (arguments.size() == 1 && (std::string(arguments[0]) == "--help" || std::string(arguments[0]) == "--version"))
        return answerQuestions(arguments[0]);
    Velmor::platform().messageQueues->receiveSystemRequests();
    Velmor::platform().machine->raiseHandleLimit();
    Velmor::platform().machine->limitRights();
    int result = startupFailed;
    try {
        result = run(joinCommandLine(arguments));
    } catch (const std::exception& failure) {
        Velmor::programState().startupFailure = failure.what();
    }
    if (result == startupFailed)
        std::cerr << "runtally: " << Velmor::programState().startupFailure << '\n';
    return result;
}
