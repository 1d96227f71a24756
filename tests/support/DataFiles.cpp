#include "support/DataFiles.h"

#include "support/TempDirectory.h"

#include <algorithm>
#include <limits>
#include <map>
#include <sstream>
#include <utility>

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
    struct Run {
        long begin = std::numeric_limits<long>::max();
        std::map<long, std::string> files; // by the number in their names: the clock may be set back
    };
    std::map<long, Run> runs; // by process
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with(stem) || !(name.ends_with(".data") || name.ends_with(".tmp")))
            continue;
        const std::vector<long> numbers = numbersOf(name.substr(stem.size()));
        Run& run = runs[numbers.at(1)];
        run.begin = std::min(run.begin, numbers.at(0));
        run.files[numbers.at(2)] = readFile(entry.path().string());
    }
    std::map<std::pair<long, long>, const Run*> inOrder;
    for (const auto& [process, run] : runs)
        inOrder[{run.begin, process}] = &run;
    std::string all;
    for (const auto& [begin, run] : inOrder)
        for (const auto& [number, text] : run->files)
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
