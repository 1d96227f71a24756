#include "support/DataFiles.h"

#include "support/TempDirectory.h"

#include <map>
#include <sstream>

namespace Velmor {

std::string dataText(const std::string& directory, const std::string& stem) {
    std::map<long, std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(stem) && (name.ends_with(".data") || name.ends_with(".tmp")))
            files[std::stol(name.substr(name.rfind('-') + 1))] = readFile(entry.path().string());
    }
    std::string all;
    for (const auto& [counter, text] : files)
        all += text;
    return all;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream rest(text);
    for (std::string line; std::getline(rest, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> dataLines(const std::string& directory, const std::string& stem) {
    return linesOf(dataText(directory, stem));
}

} // namespace Velmor
