#pragma once

#include "platform/linux/base/FileIdentity.h"
#include "platform/linux/processes/ExitRecords.h"

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

namespace Velmor {

/// The book of the dead: what the kernel wrote down at the ends of processes, for as long as the events may ask. One
/// thread uses it.
class Epitaphs {
public:
    /// Without the kernel's consent the book stays empty.
    void open();

    /// Takes over what has been written until now. What came before the last call is forgotten.
    void fetch();

    /// Null if nothing is known of the id's end.
    const ExitRecord* find(uint32_t pid) const;

    /// An executable that runs, so that it can be recognised in the kernel's records.
    void noteFile(uint32_t pid, const std::string& path);

    /// The path of a file that was noted, or an empty text.
    std::string pathOf(const ExitRecord& exit) const;

private:
    using Exits = std::unordered_map<uint32_t, ExitRecord>; // by process id

    std::unique_ptr<ExitRecords> source_;
    Exits fresh_;
    Exits older_;
    std::unordered_map<FileIdentity, std::string, FileIdentityHash> files_;
};

} // namespace Velmor
