#pragma once

#include "shared/library/common/system/Monopoly.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Velmor {

/// Adds what other tools of the family have left for a process or its user: for each of the two keys that has a value,
/// `|key=value` behind `text`. `user` names the files. Always true. Any thread may call; stale files are cleaned away
/// on the way, every five minutes.
bool getIdValues(const std::string& user, std::string& text, std::string_view firstKey, std::string_view secondKey,
                 uint32_t pid, const std::string& executable);

/// The same for one key.
bool getIdValue(const std::string& user, std::string& text, std::string_view key, uint32_t pid,
                const std::string& executable);

/// The value left for one process, else that for its user; false if no file was read.
bool readProcessIdValue(const std::string& user, std::string_view key, std::string& value, uint32_t pid,
                        const std::string& executable);

/// The value left for a user; false if no file was read.
bool readUserIdValue(const std::string& user, std::string_view key, std::string& value);

/// The lock of what the look-ups share, for the repair after a lost thread.
Monopoly& idValuesLock();

/// Removes the files of processes that are gone, at most every five minutes.
void cleanIdValues();

} // namespace Velmor
