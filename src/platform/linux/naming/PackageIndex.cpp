#include "platform/linux/naming/PackageIndex.h"

#include "platform/linux/base/Capabilities.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string_view>
#include <unordered_map>

namespace Velmor {

namespace {
constexpr std::string_view programDirectories[] = {"/bin/", "/sbin/", "/libexec/", "/games/", "/lib/", "/opt/"};
constexpr std::string_view mergedDirectories[] = {"/bin/", "/sbin/", "/lib/", "/lib64/"}; // links into /usr

bool mayBeProgram(std::string_view path) {
    const bool inPlace = std::any_of(std::begin(programDirectories), std::end(programDirectories),
                                     [&](std::string_view part) { return path.find(part) != std::string_view::npos; });
    const std::string_view name = path.substr(path.rfind('/') + 1);
    const bool isOther = name.find(".so") != std::string_view::npos || name.ends_with(".py") || name.ends_with(".h") ||
                         name.ends_with(".ko") || name.ends_with(".a") || name.ends_with(".pm");
    return inPlace && !isOther;
}

/// A file counts under its place below /usr, however the package that brought it calls it.
uint64_t hashOf(std::string_view path) {
    std::string normal(path);
    for (const std::string_view merged : mergedDirectories)
        if (path.starts_with(merged))
            normal.insert(0, "/usr");
    return std::hash<std::string>{}(normal);
}
} // namespace

PackageIndex::PackageIndex(const std::string& root) : root_(root + "/var/lib/dpkg/"), watch_({root_ + "info", root_}) {}

bool PackageIndex::find(const std::string& executable, FileDescription& description) {
    if (watch_.hasChanged())
        read();
    const std::pair<uint64_t, uint32_t> wanted{hashOf(executable), 0};
    const auto owner = std::lower_bound(owners_.begin(), owners_.end(), wanted);
    if (owner == owners_.end() || owner->first != wanted.first)
        return false;
    description.product = packages_[owner->second].name;
    description.version = packages_[owner->second].version;
    return true;
}

void PackageIndex::read() {
    const LoweredCapabilities lowered; // everybody may read these
    packages_.clear();
    owners_.clear();
    std::error_code error;
    for (std::filesystem::directory_iterator entry(root_ + "info", error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().extension() != ".list")
            continue;
        std::string package = entry->path().stem().string();
        package.resize(std::min(package.size(), package.find(':'))); // without the architecture
        const size_t before = owners_.size();
        readList(entry->path().string(), static_cast<uint32_t>(packages_.size()));
        if (owners_.size() > before)
            packages_.push_back({std::move(package), {}});
    }
    readVersions();
    std::sort(owners_.begin(), owners_.end());
    owners_.shrink_to_fit();
}

void PackageIndex::readList(const std::string& path, uint32_t package) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (mayBeProgram(line))
            owners_.emplace_back(hashOf(line), package);
}

void PackageIndex::readVersions() {
    std::unordered_map<std::string_view, Package*> wanted;
    for (Package& package : packages_)
        wanted.emplace(package.name, &package);
    std::ifstream file(root_ + "status");
    Package* current = nullptr;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("Package: ")) {
            const auto found = wanted.find(std::string_view(line).substr(9));
            current = found == wanted.end() ? nullptr : found->second;
        } else if (current && line.starts_with("Version: ")) {
            current->version = line.substr(9);
        }
    }
}

} // namespace Velmor
