#include "platform/linux/naming/DesktopIndex.h"

#include "platform/linux/base/Capabilities.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr const char* searchPath[] = {"/usr/local/bin/", "/usr/bin/", "/bin/", "/usr/games/"};

/// The program of an `Exec` line, as a path; empty if it can't be told.
std::string programOf(std::string command) {
    if (command.starts_with('"'))
        command = command.substr(1, command.find('"', 1) - 1);
    else
        command.resize(std::min(command.size(), command.find(' ')));
    if (command.starts_with('/'))
        return command;
    for (const char* directory : searchPath)
        if (access((directory + command).c_str(), X_OK) == 0)
            return directory + command;
    return {};
}

/// Programs that entries use to start others: an entry says nothing about them.
bool isLauncher(const std::string& program) {
    constexpr std::array<std::string_view, 18> launchers{
        "sh",   "bash", "dash",    "env",  "python3", "perl",         "ruby",     "java", "node",
        "sudo", "snap", "flatpak", "wine", "pkexec",  "gapplication", "xdg-open", "gjs",  "nice"};
    const std::string name = program.substr(program.rfind('/') + 1);
    return std::find(launchers.begin(), launchers.end(), name) != launchers.end();
}

std::string resolved(const std::string& path) {
    std::error_code error;
    const auto real = std::filesystem::canonical(path, error);
    return error ? path : real.string();
}
} // namespace

DesktopIndex::DesktopIndex(const std::string& root)
    : watch_({root + "/usr/share/applications", root + "/usr/local/share/applications"}) {}

bool DesktopIndex::find(const std::string& executable, FileDescription& description) {
    if (watch_.hasChanged())
        read();
    const auto name = names_.find(executable);
    if (name == names_.end() || name->second.empty())
        return false;
    description.description = name->second;
    return true;
}

void DesktopIndex::read() {
    const LoweredCapabilities lowered; // everybody may read these
    names_.clear();
    for (const std::string& directory : watch_.directories()) {
        std::error_code error;
        for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
             entry.increment(error))
            if (entry->path().extension() == ".desktop")
                readEntry(entry->path().string());
    }
}

void DesktopIndex::readEntry(const std::string& path) {
    std::ifstream file(path);
    std::string name;
    std::string program;
    bool inEntry = false;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('['))
            inEntry = line == "[Desktop Entry]";
        else if (inEntry && line.starts_with("Name="))
            name = line.substr(5);
        else if (inEntry && line.starts_with("Exec="))
            program = programOf(line.substr(5));
    }
    if (name.empty() || program.empty() || isLauncher(program))
        return;
    const auto [known, isNew] = names_.try_emplace(resolved(program), name);
    if (!isNew && known->second != name)
        known->second.clear(); // several applications in one program: none of them names it
}

} // namespace Velmor
