#include "support/DataFiles.h"

#include "support/TempDirectory.h"

#include <map>
#include <sstream>

namespace Velmor {

namespace {
std::vector<long> numbersOf(const std::string& name) {
    std::vector<long> numbers;
    for (size_t place = name.find('-'); place != std::string::npos; place = name.find('-', place + 1))
        numbers.push_back(std::stol(name.substr(place + 1)));
    return numbers;
}
} // namespace

std::string dataText(const std::string& directory, const std::string& stem) {
    std::map<std::vector<long>, std::string> files; // by the moment, the process and the number in their names
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(stem) && (name.ends_with(".data") || name.ends_with(".tmp")))
            files[numbersOf(name.substr(stem.size()))] = readFile(entry.path().string());
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
