#pragma once

#include "platform/linux/naming/DirectoryWatch.h"
#include "platform/linux/naming/FileDescription.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Velmor {

/// Which package owns an executable, by the lists that the package database keeps. Read at the first question, and
/// again when packages have come or gone. Only files where programs lie are kept, as hashes of their paths.
class PackageIndex {
public:
    PackageIndex() : PackageIndex("") {}
    /// Below another root than the system's.
    explicit PackageIndex(const std::string& root);

    bool find(const std::string& executable, FileDescription& description);

private:
    void read();
    void readList(const std::string& path, uint32_t package);
    void readVersions();

    std::string root_;
    DirectoryWatch watch_;
    struct Package {
        std::string name;
        std::string version;
    };

    std::vector<Package> packages_;                     // those that own something in owners_
    std::vector<std::pair<uint64_t, uint32_t>> owners_; // hash of a path to the place in packages_, sorted
};

} // namespace Velmor
