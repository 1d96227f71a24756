#pragma once

#include "process/naming/ApplicationMappings.h"
#include "process/naming/ExeInfo.h"
#include "shared/library/common/system/Monopoly.h"
#include "shared/library/logger/LoggerUnit.h"

#include <map>
#include <string>
#include <string_view>

namespace Velmor {

/// Turns an executable's path into the name of its application: from the administrator's mappings, from what the file
/// says about itself, and else from its name. Each file is examined once; what was learned is kept, one entry for each
/// different executable. Any thread may ask.
class ExeFinder {
public:
    /// The application name of an executable that is to be ignored.
    static constexpr std::string_view ignored = "!";

    explicit ExeFinder(const SmartPointer<LoggerUnit>& logger);
    ExeFinder(const ExeFinder&) = delete;
    ExeFinder& operator=(const ExeFinder&) = delete;
    virtual ~ExeFinder();

    /// Puts other mappings in force. Of executables known already, those of which nothing but the name is known keep
    /// the name that they have.
    void setMappings(const ApplicationMappings& mappings);

    /// Forgets what was learned: each file is examined anew.
    void forget();

    /// The lock of the maps, for the repair after a lost thread.
    Monopoly& lock() { return access_; }

    /// The application name; "[UNDEFINED]" for an empty path. If the file isn't here, but another may be under its
    /// path, only the file's name tells.
    std::string find(const std::string& executable, bool isHere = true);

private:
    ExeInfo examine(const std::string& executable, const std::string& key, bool isHere);
    void name(ExeInfo& info) const;
    bool nameByMapping(ExeInfo& info) const;
    bool nameByVersion(ExeInfo& info) const;
    bool nameByMenu(ExeInfo& info) const;

    std::map<std::string, ExeInfo> stored_; // by full path in lower case, or by the name of a file that isn't here
    ApplicationMappings mappings_;
    Monopoly access_; // guards both maps
};

} // namespace Velmor
