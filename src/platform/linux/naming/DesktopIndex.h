#pragma once

#include "platform/linux/naming/DirectoryWatch.h"
#include "platform/linux/naming/FileDescription.h"

#include <map>
#include <string>

namespace Velmor {

/// The names of applications in their desktop entries, by the executable that an entry starts. Read at the first
/// question, and again when entries have come or gone.
class DesktopIndex {
public:
    DesktopIndex() : DesktopIndex("") {}
    /// Below another root than the system's.
    explicit DesktopIndex(const std::string& root);

    bool find(const std::string& executable, FileDescription& description);

private:
    void read();
    void readEntry(const std::string& path);

    DirectoryWatch watch_;
    std::map<std::string, std::string, std::less<>> names_; // by executable
};

} // namespace Velmor
