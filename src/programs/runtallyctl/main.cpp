// The administrator's tool: commands to the running collector, and the reading of its data files.

#include "programs/runtallyctl/Commands.h"
#include "programs/runtallyctl/StatusCommand.h"
#include "programs/runtallyctl/UsageReport.h"
#include "shared/library/common/errors/Findings.h"
#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/ipc/IPCMessage.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/logger/LoggerUnit.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>
#include <iostream>

namespace {

constexpr int32_t defaultTimeout = 10; // seconds
constexpr int32_t longestTime = 86400;

struct Options {
    std::vector<std::string> paths;
    bool asJson = false;
    int32_t timeout = defaultTimeout;
    int32_t longTimeout = 60; // seconds; workers have to end
    int32_t seconds = 0;
    std::string catalogue = "/etc/velmor";
    Velmor::StatusOptions status;
    std::function<int()> action;
};

void addReading(CLI::App& tool, Options& options) {
    const auto add = [&](const char* name, const char* text, int (*print)(const std::vector<std::string>&, bool)) {
        CLI::App* command = tool.add_subcommand(name, text);
        command->add_option("paths", options.paths, "Data files, or directories of them")->required();
        command->add_flag("--json", options.asJson, "Print JSON");
        command->callback(
            [&options, print] { options.action = [&options, print] { return print(options.paths, options.asJson); }; });
    };
    add("usage", "Usage of applications by user, from delivered data files", Velmor::printUsage);
    add("records", "The single records of delivered data files", Velmor::printRecords);
}

void addTimeout(CLI::App* command, int32_t& seconds) {
    command->add_option("--timeout", seconds, "Seconds to wait for the reply")
        ->capture_default_str()
        ->check(CLI::Range(1, longestTime));
}

/// Whether a first word is a command or an option; if not, says so, with the command that was most likely meant.
bool isKnown(const CLI::App& tool, const std::string& word) {
    std::vector<std::string> names;
    for (const CLI::App* command : tool.get_subcommands({}))
        names.push_back(command->get_name());
    const std::vector<std::string_view> known(names.begin(), names.end());
    if (word.starts_with('-') || std::find(known.begin(), known.end(), word) != known.end())
        return true;
    std::cerr << '"' << Velmor::printable(word) << "\" is no command; "
              << Velmor::hintOr(word, known, "\"runtallyctl --help\" lists them") << '\n';
    return false;
}

void addCommands(CLI::App& tool, Options& options) {
    tool.add_subcommand("die", "End the collector, after its last delivery")->callback([&options] {
        options.action = [] { return Velmor::sendCommand(std::string(Velmor::CommandWord::die)); };
    });
    CLI::App* again =
        tool.add_subcommand("reconfigure", "Let the collector read its configuration again, and say what is in force");
    addTimeout(again, options.longTimeout);
    again->callback([&options] { options.action = [&options] { return Velmor::reconfigure(options.longTimeout); }; });
    CLI::App* dump = tool.add_subcommand("dump", "Deliver all data now");
    addTimeout(dump, options.timeout);
    dump->callback([&options] {
        options.action = [&options] {
            return Velmor::sendAndWait(std::string(Velmor::CommandWord::dump), options.timeout);
        };
    });
    CLI::App* info = tool.add_subcommand("info", "Process id and main thread id of the collector");
    addTimeout(info, options.timeout);
    info->add_flag("--json", options.asJson, "Print JSON");
    info->callback(
        [&options] { options.action = [&options] { return Velmor::printInfo(options.timeout, options.asJson); }; });
    CLI::App* status =
        tool.add_subcommand("status", "How the collector is: sources, records, losses, workers, messages");
    status->add_flag("--json", options.status.asJson, "Print one JSON object");
    status->add_flag("--watch", options.status.watches, "Print it again each second");
    addTimeout(status, options.status.timeout);
    status->callback([&options] { options.action = [&options] { return Velmor::printStatus(options.status); }; });
    CLI::App* listen = tool.add_subcommand("listen", "Print the messages that the collector sends to the core service");
    listen->add_option("--catalogue", options.catalogue, "Directory in which LogMessages lies")->capture_default_str();
    listen->add_option("--seconds", options.seconds, "End after this time")->check(CLI::Range(1, longestTime));
    listen->callback(
        [&options] { options.action = [&options] { return Velmor::listen(options.catalogue, options.seconds); }; });
}

} // namespace

int main(int count, char** values) {
    Velmor::LoggerUnit::setDebugLevel(0);
    CLI::App tool("Commands to the running collector, and reading of its data files.", "runtallyctl");
    tool.footer("Exit status: 0 done; 1 the tool itself failed, or the collector has lost something; 2 a file or a "
                "record can't be read; 3 no collector\n"
                "listens, or no reply came in time; 4 not allowed; above 100 a mistake in the command line.");
    tool.set_version_flag("--version", std::string("runtallyctl ") + VELMOR_VERSION);
    tool.require_subcommand(1);
    Options options;
    addReading(tool, options);
    addCommands(tool, options);
    if (count > 1 && !isKnown(tool, values[1])) // NOLINT(cppcoreguidelines-pro-bounds-pointer-arithmetic)
        return static_cast<int>(CLI::ExitCodes::ExtrasError);
    CLI11_PARSE(tool, count, values);
    try {
        const int status = options.action();
        std::cout.flush();
        if (std::cout)
            return status;
        std::cerr << "The output can't be written\n";
    } catch (const Velmor::IPCException& failure) {
        std::string text;
        failure.describe(text);
        std::cerr << text << '\n';
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
    }
    return Velmor::CommandStatus::failed;
}
