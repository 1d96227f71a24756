// The entry of the collector's program.

#include "platform/Machine.h"
#include "platform/MessageQueues.h"
#include "platform/Platform.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

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

std::string joinCommandLine(const std::vector<const char*>& arguments) {
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

/// What the command line asks for. What stands behind the file of -c goes to the command line's own reading, which is
/// lenient.
struct Request {
    bool isHelp = false;
    bool isVersion = false;
    bool isCheck = false;
    bool isJson = false;
    std::vector<const char*> rest; // for the run
    std::string mistake;
};

const std::vector<std::string_view> knownWords{"-c", "-h", "--help", "--version", "--check", "--json"};

bool takeQuestion(std::string_view word, Request& request) {
    request.isHelp |= word == "--help" || word == "-h";
    request.isVersion |= word == "--version";
    request.isCheck |= word == "--check";
    request.isJson |= word == "--json";
    return word != "-c" && std::find(knownWords.begin(), knownWords.end(), word) != knownWords.end();
}

Request readRequest(std::span<char*> arguments) {
    Request request;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view word = arguments[i];
        if (takeQuestion(word, request))
            continue;
        const bool isFile = word.starts_with("-c") || word == "--c";
        if (request.rest.empty() && !isFile) {
            request.mistake = "The word \"" + std::string(word) + "\" isn't known; " +
                              Velmor::hintOr(word, knownWords, "runtally --help tells what is");
            return request;
        }
        request.rest.push_back(arguments[i]);
        if (request.rest.size() > 1 || (word != "-c" && word != "--c"))
            continue;
        if (++i == arguments.size() || *arguments[i] == '\0' || takeQuestion(arguments[i], request)) {
            request.mistake = "The option -c has no file behind it; name the configuration file.";
            return request;
        }
        request.rest.push_back(arguments[i]);
    }
    if (request.isJson && !request.isCheck)
        request.mistake = "The option --json goes with --check; add that.";
    return request;
}

int tellUsage() {
    std::cout << "Usage: runtally [-c FILE] [--check [--json]]\n\n"
                 "Collects the usage of applications on this machine, in the foreground.\n\n"
                 "  -c FILE     read this configuration file\n"
                 "  --check     only say what is wrong in all files that a start would read; the exit status is 0 if\n"
                 "              nothing is, 1 for warnings, 2 if a start would fail or record nothing\n"
                 "  --json      say it as JSON\n"
                 "  -h, --help  say this\n"
                 "  --version   tell the version\n\n"
                 "SIGTERM ends it after a last delivery, SIGHUP lets it read its configuration again.\n";
    return 0;
}

int check(const std::string& commandLine, bool isJson) {
    Velmor::platform().messageQueues->obeySystemRequests();
    Velmor::platform().machine->limitRights();
    const Velmor::Findings findings = Velmor::Runtally(commandLine).check(true);
    std::cout << (isJson ? findings.json() : findings.text());
    return findings.exitStatus();
}

int collect(const std::string& commandLine) {
    Velmor::platform().messageQueues->receiveSystemRequests();
    Velmor::platform().machine->raiseHandleLimit();
    Velmor::platform().machine->limitRights();
    return run(commandLine);
}

int serve(std::span<char*> arguments) {
    const Request request = readRequest(arguments);
    if (!request.mistake.empty())
        throw std::invalid_argument(request.mistake);
    if (request.isHelp)
        return tellUsage();
    if (request.isVersion) {
        std::cout << "runtally " << VELMOR_VERSION << '\n';
        return 0;
    }
    const std::string commandLine = joinCommandLine(request.rest);
    return request.isCheck ? check(commandLine, request.isJson) : collect(commandLine);
}

} // namespace

int main(int count, char** values) {
    int result = startupFailed;
    try {
        result = serve({values + 1, count > 0 ? static_cast<size_t>(count) - 1 : 0});
    } catch (const std::exception& failure) {
        Velmor::programState().startupFailure = failure.what();
    }
    if (result == startupFailed)
        std::cerr << "runtally: " << Velmor::programState().startupFailure << '\n';
    return result;
}
