#pragma once

#include "shared/library/common/files/BasicFile.h"
#include "shared/library/common/time/DateTime.h"
#include "shared/library/common/time/TimeSpan.h"

#include <string>

namespace Velmor {

/// An advisory lock between processes: a text file beside the locked one, with ".lock" behind its name, that says who
/// holds it and until when, so that a lock whose holder died runs out by itself. One thread at a time may use an
/// object.
class LockFile {
public:
    /// Looks for a lock in place and reads it. Throws `TimeException` if the lock file's times are damaged.
    explicit LockFile(std::string lockedFile);
    LockFile(const LockFile&) = delete;
    LockFile& operator=(const LockFile&) = delete;
    virtual ~LockFile() = default;

    bool isLocked() const { return locked_; }
    /// Whether the locked file existed when this object was made.
    bool fileExisted() const { return fileExisted_; }

    /// Takes the lock for `duration` from now. With `keepOriginal` the locked file is held open meanwhile, which brings
    /// it into being but leaves its content alone. False if the lock is held, or if a file can't be written; nothing
    /// of ours is then left on the disk.
    bool lock(const TimeSpan& duration, bool keepOriginal);

    /// Gives this object's lock back, or takes away one of somebody else that has run out. True if the file is free
    /// afterwards.
    bool release();

private:
    void readLock();
    bool writeLock(bool keepOriginal);
    std::string lockName() const { return name_ + ".lock"; }

    BasicFile originalFile_; // holds the locked file
    BasicFile lockFile_;
    std::string name_; // the locked file's path
    DateTime created_;
    DateTime expires_;
    std::string holder_; // identity in the lock file
    std::string ownIdentity_;
    bool locked_ = true;
    bool fileExisted_;
    bool keptOriginal_ = false;
};

} // namespace Velmor
