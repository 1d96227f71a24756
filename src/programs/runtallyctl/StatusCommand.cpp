#include "programs/runtallyctl/StatusCommand.h"

#include "platform/MessageQueues.h"
#include "platform/Platform.h"
#include "programs/runtallyctl/Commands.h"
#include "programs/runtallyctl/Table.h"
#include "shared/library/common/ipc/IPCMessage.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/common/time/TimeSpan.h"
#include "shared/library/common/time/Timer.h"

#include <array>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

namespace Velmor {

namespace {
using nlohmann::json;

constexpr uint32_t watchPause = 1000; // milliseconds
constexpr uint32_t watchStep = 50;
constexpr const char* clearScreen = "\x1b[H\x1b[2J";

std::string text(const json& value) {
    return value.is_string() ? printable(value.get<std::string>()) : value.is_null() ? "-" : value.dump();
}

std::string momentText(const json& value) {
    return value.is_number() ? timeText(value.get<int64_t>()) : "-";
}

std::string spanText(int64_t seconds) {
    return TimeSpan(static_cast<int32_t>(seconds)).toString();
}

std::string secondsText(const json& value) {
    std::array<char, 32> digits{};
    std::snprintf(digits.data(), digits.size(), "%.2f", value.get<double>());
    return digits.data();
}

/// Bytes in the unit in which they have up to four digits.
std::string sizeText(const json& value) {
    if (!value.is_number())
        return "-";
    constexpr std::array units{"B", "KiB", "MiB", "GiB", "TiB"};
    auto number = value.get<uint64_t>();
    size_t unit = 0;
    for (; number >= 10000 && unit + 1 < units.size(); ++unit)
        number /= 1024;
    return std::to_string(number) + " " + units.at(unit);
}

void printFacts(const json& status) {
    const int64_t now = status.at("now").get<int64_t>();
    const json& own = status.at("own");
    Table table({Align::left, Align::left});
    table.add({"Running", momentText(status.at("started")) + ", for " +
                              spanText(now - status.at("started").get<int64_t>()) + "; version " +
                              text(status.at("version")) + ", process " + text(status.at("process")) +
                              ", main thread " + text(status.at("mainThread"))});
    if (const json& configuration = status.at("configuration"); !configuration.is_null())
        table.add({"Configuration", text(configuration.at("file")) + ", since " +
                                        momentText(configuration.at("since")) + ", " + text(configuration.at("rules")) +
                                        " rules, hash " + text(configuration.at("hash"))});
    for (const json& source : status.at("sources")) {
        const std::string lacks = text(source.at("lacks"));
        table.add({"Source " + text(source.at("name")),
                   std::string(source.at("on").get<bool>() ? "on" : "off") + (lacks.empty() ? "" : "; " + lacks)});
    }
    table.add({"Processes", text(status.at("tracked")) + " tracked, " + text(status.at("waitingForName")) +
                                " waiting for a name, " + text(status.at("waitingForStart")) +
                                " ends waiting for a start"});
    const json& files = status.at("dataFiles");
    if (!files.is_null())
        table.add({"Data files", text(files.at("count")) + " not taken away, " + sizeText(files.at("bytes")) +
                                     ", oldest " + momentText(files.at("oldest")) + "; " +
                                     sizeText(files.at("freeSpace")) + " free"});
    table.add({"Own use", secondsText(own.at("processorSeconds")) + " s of processor time, " +
                              sizeText(own.at("memory")) + ", " + text(own.at("handles")) + " open handles"});
    table.print(std::cout);
}

void printRecords(const json& list) {
    if (list.empty()) // while another configuration is being put in force
        return;
    Table table({Align::left, Align::right, Align::right, Align::left, Align::left});
    table.add({"Records", "Written", "Since delivery", "Last delivery", "Next delivery"});
    for (const json& kind : list)
        table.add({text(kind.at("kind")), text(kind.at("written")), text(kind.at("writtenSinceDelivery")),
                   momentText(kind.at("lastDelivery")), momentText(kind.at("nextDelivery"))});
    std::cout << '\n';
    table.print(std::cout);
}

void printLosses(const json& losses) {
    Table table({Align::left, Align::right, Align::left, Align::left});
    table.add({"Lost", "Number", "First", "Last"});
    bool isAny = false;
    for (const auto& [cause, loss] : losses.items()) {
        if (loss.at("count") == 0)
            continue;
        isAny = true;
        table.add({cause, text(loss.at("count")), momentText(loss.at("first")), momentText(loss.at("last"))});
    }
    if (!isAny)
        return;
    std::cout << '\n';
    table.print(std::cout);
}

void printWorkers(const json& list) {
    Table table({Align::left, Align::left, Align::left, Align::right, Align::right});
    table.add({"Worker", "State", "Last sign of life", "Restarts", "Kills"});
    for (const json& worker : list)
        table.add({text(worker.at("name")), worker.at("on").get<bool>() ? text(worker.at("state")) : "off",
                   momentText(worker.at("lastSign")), text(worker.at("restarts")), text(worker.at("kills"))});
    std::cout << '\n';
    table.print(std::cout);
}

void print(const json& status) {
    std::cout << text(status.at("sentence")) << "\n\n";
    printFacts(status);
    printRecords(status.at("records"));
    printLosses(status.at("losses"));
    printWorkers(status.at("workers"));
    std::cout << "\nLast messages\n";
    for (const json& message : status.at("messages"))
        std::cout << text(message.at("text")) << '\n';
    std::cout.flush();
}

int printOnce(const StatusOptions& options) {
    std::string answer;
    if (const int status = ask(std::string(CommandWord::sendStatus), options.timeout, answer);
        status != CommandStatus::done)
        return status;
    const json status = json::parse(answer);
    if (options.watches && !options.asJson)
        std::cout << clearScreen;
    if (options.asJson)
        std::cout << answer << std::endl; // a reader may follow at once
    else
        print(status);
    return status.at("well").get<bool>() ? CommandStatus::done : CommandStatus::failed;
}

void printInForce(const json& status) {
    const json& configuration = status.at("configuration");
    std::cout << "In force since " << momentText(configuration.at("since")) << ", with "
              << text(configuration.at("rules")) << " rules; hash " << text(configuration.at("hash")) << "\n\n";
    Table table({Align::left, Align::right, Align::left, Align::left});
    table.add({"File", "Bytes", "Changed", "SHA-256"});
    for (const json& file : configuration.at("files"))
        table.add(
            {text(file.at("path")), text(file.at("size")), momentText(file.at("modified")), text(file.at("sha256"))});
    table.print(std::cout);
    for (const json& source : status.at("sources"))
        std::cout << "Source " << text(source.at("name")) << ": " << (source.at("on").get<bool>() ? "on" : "off")
                  << '\n';
    for (const json& kind : status.at("records"))
        std::cout << "Records " << text(kind.at("kind")) << ": next delivery " << momentText(kind.at("nextDelivery"))
                  << '\n';
}
} // namespace

int reconfigure(int32_t timeout) {
    std::string answer;
    if (const int status = ask(std::string(CommandWord::reconfigure), timeout, answer); status != CommandStatus::done)
        return status;
    const json outcome = json::parse(answer);
    if (const std::string problem = text(outcome.at("problem")); !problem.empty()) {
        std::cerr << "The configuration isn't in force: " << problem << '\n';
        return CommandStatus::failed;
    }
    printInForce(outcome);
    return CommandStatus::done;
}

int printStatus(const StatusOptions& options) {
    if (options.watches)
        platform().messageQueues->receiveSystemRequests();
    uint32_t request = 0;
    while (true) {
        const int status = printOnce(options);
        const bool isAnswered = status == CommandStatus::done || status == CommandStatus::failed;
        if (!options.watches || !isAnswered || !std::cout)
            return status;
        if (Timer::waitUntil(watchPause, watchStep, [&] { return platform().messageQueues->peek(request); }))
            return status;
    }
}

} // namespace Velmor
