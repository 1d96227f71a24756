#pragma once

#include "programs/collectors/agent/Win32/Runtally/ConfigurationFiles.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "shared/library/common/errors/Findings.h"

#include <string>

namespace Velmor {

/// Reads all files that a start reads, by the same readers but into objects of its own, and finds what is wrong in
/// them. Changes nothing.
class ConfigurationCheck {
public:
    /// What stays on although its key has gone.
    struct Kept {
        bool polling = false;
        bool events = false;
        bool nativeEvents = false;
    };

    explicit ConfigurationCheck(Kept kept);

    /// The family's values. False if a start would end with them.
    bool checkResources();

    /// The configuration file and what it names. `directory` is the value ConfigurationDir.
    void checkConfiguration(const std::string& file, const std::string& directory);

    /// Whether the sources that the configuration turns on have the rights that they need; opens them for a moment.
    void checkRights();

    const Findings& findings() const { return findings_; }

private:
    void checkSources();
    void checkRules(const std::string& file);
    void checkPrimeTime(const std::string& directory);
    void checkMappings(const std::string& file);
    void checkModules(const std::string& file);
    void checkPerformance(const ConfigurationFiles& files);
    void checkCounters(const std::string& file);
    void checkCatalogue();
    void checkDirectories();
    void checkDirectory(const std::string& directory, const char* key, bool isNeeded);
    bool isOn(const char* key, bool otherwise) const;
    bool isThere(const std::string& file, const char* key, bool isNeeded);
    FindingSink in(const std::string& file) { return {findings_, file}; }

    Kept kept_;
    Findings findings_;
    ConfReader conf_;
    FindingSink sink_;    // of the configuration file
    bool isWhole_ = true; // the file was read to its end, so what isn't there isn't there for a mistake before it
};

} // namespace Velmor
