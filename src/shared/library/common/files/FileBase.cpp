#include "shared/library/common/files/FileBase.h"

#include "platform/Errors.h"
#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"

#include <utility>

namespace Velmor {

std::string FileBase::getBaseName() const {
    return FileUtils::getBaseName(name_);
}

bool FileBase::exists() const {
    return FileOps::exists(name_);
}

uint64_t FileBase::size() const {
    return FileOps::size(name_);
}

void FileBase::lookForLock() {
    lock_ = std::make_unique<LockFile>(name_);
    if (!lock_->isLocked() || lock_->release())
        return;
    lock_.reset();
    throw FileException(FL_IS_LOCKED, name_, __FILE__, __LINE__);
}

bool FileBase::prepareSafeWrite(std::string& nameToOpen) {
    nameToOpen = temporaryName();
    const bool copied = exists();
    if (!copied) {
        FileUtils::remove(nameToOpen, true); // what a writer that crashed left is no content of this file
    } else if (!FileOps::copy(name_, nameToOpen, true)) {
        lock_.reset(); // not taken yet
        throw FileException(FL_CANNOT_COPY, name_, __FILE__, __LINE__);
    }
    safeWrite_ = true;
    return copied;
}

void FileBase::takeLock(bool keepOriginal, bool copied) {
    if (lock_->lock(lockTime_, keepOriginal))
        return;
    if (copied)
        FileUtils::remove(temporaryName(), true);
    lock_.reset();
    safeWrite_ = false;
    throw FileException(FL_CANNOT_LOCK, name_, __FILE__, __LINE__);
}

void FileBase::releaseLock() {
    if (!lock_ || lock_->release())
        return;
    throw FileException(FL_CANNOT_UNLOCK, name_, __FILE__, __LINE__);
}

void FileBase::removeOwnFile() {
    if (lock_ && !lock_->fileExisted())
        FileUtils::remove(name_, true);
}

void FileBase::abandon() {
    const bool isReleased = !lock_ || lock_->release();
    removeOwnFile();
    becomeClosed();
    dropSafeWrite();
    if (!isReleased)
        throw FileException(FL_CANNOT_UNLOCK, name_, __FILE__, __LINE__);
}

void FileBase::cleanUp() {
    releaseLock();
    removeOwnFile();
    lock_.reset();
    dropSafeWrite();
}

void FileBase::becomeClosed() {
    lock_.reset();
    closed_ = true;
    access_ = 0;
    position_ = 0;
}

/// What the disk has not taken stays under its temporary name.
void FileBase::finishSafeWrite(bool isComplete, const std::string& description) {
    const bool isOwed = std::exchange(safeWrite_, false);
    const std::string finalName = std::exchange(finalName_, {});
    tookFinalName_ = false;
    if (!isComplete)
        throw FileException(FL_CANNOT_CLOSE, name_, __FILE__, __LINE__);
    if (!isOwed)
        return;
    if (!finalName.empty()) {
        tookFinalName_ = moveTemporary(finalName, description);
        if (tookFinalName_)
            FileUtils::remove(name_, true); // the empty file by which the lock held the name
        return;
    }
    for (int i = 0; i < renameAttempts; ++i) {
        if (moveTemporary(name_, description))
            return;
        DateTime::wait(renameWait);
    }
    throw FileException(FL_RENAME, description, __FILE__, __LINE__);
}

/// A move that fails may have done its work all the same, if only the flush behind it failed: then the file that was
/// there before it is there no more.
bool FileBase::moveTemporary(const std::string& to, const std::string& description) const {
    const bool wasThere = FileOps::exists(temporaryName());
    if (FileOps::move(temporaryName(), to, true) || (wasThere && !FileOps::exists(temporaryName())))
        return true;
    if (FileOps::getLastError() == NativeError::writeFault) // told once only: a further attempt would seem to succeed
        throw FileException(FL_RENAME, description, __FILE__, __LINE__);
    return false;
}

void FileBase::dropSafeWrite() {
    if (!safeWrite_)
        return;
    safeWrite_ = false;
    FileUtils::remove(temporaryName(), true);
}

} // namespace Velmor
