#pragma once

#include "shared/library/common/files/LockFile.h"
#include "shared/library/common/time/TimeSpan.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Velmor {

/// A file, plain or compressed. A writer gets a `LockFile` beside it, and writes into a ".tmp" file that replaces the
/// real one only when it is closed, unless it does without. Failures are thrown as `FileException` with the state made
/// consistent. One thread at a time uses an object.
class FileBase {
public:
    /// Flags of `open`.
    static constexpr uint16_t ACCESS_READ = 0x01;
    static constexpr uint16_t ACCESS_WRITE = 0x02;
    static constexpr uint16_t ACCESS_TRUNCATE = 0x04; // discard the old content
    static constexpr uint16_t ACCESS_CREATE = 0x08;   // the caller expects that the file may be absent
    static constexpr uint16_t ACCESS_APPEND = 0x10;   // begin at the end
    static constexpr uint16_t ACCESS_UNSAFE = 0x20;   // write in place, without a ".tmp" file
    static constexpr uint16_t ACCESS_NOLOCK = 0x40;   // no lock file

    /// Origins of `seek`.
    static constexpr int32_t OFFSET_BEGIN = 0;
    static constexpr int32_t OFFSET_CURRENT = 1;
    static constexpr int32_t OFFSET_END = 2;

    explicit FileBase(std::string name) : name_(std::move(name)) {}
    FileBase(const FileBase&) = delete;
    FileBase& operator=(const FileBase&) = delete;
    virtual ~FileBase() = default;

    virtual void open(uint16_t access) = 0;
    /// Gives the lock back and puts a safely written file in place. Closing a closed file does nothing.
    virtual void close() = 0;
    /// Closes without changing the real file.
    virtual void abort() = 0;
    /// True if that many bytes came.
    virtual bool read(std::string& text, size_t count) = 0;
    /// The number of bytes read.
    virtual size_t read(char* buffer, size_t count) = 0;
    virtual bool write(const std::string& text) = 0;
    /// The number of bytes written.
    virtual size_t write(const char* data, size_t count) = 0;
    virtual void readLine(std::string& text) = 0;
    /// The text and a newline.
    virtual void writeLine(const std::string& text) = 0;
    virtual void flush() = 0;
    /// The new position in bytes.
    virtual int64_t seek(int64_t offset, int32_t origin) = 0;
    virtual int64_t tell() { return position_; }
    virtual bool eof() { return eofReached_; }

    bool isOpen() const { return !closed_; }
    const std::string& getName() const { return name_; }
    std::string getBaseName() const;
    bool exists() const;
    /// False once an open file has been moved or deleted by others, where that can be told.
    virtual bool isInPlace() { return true; }
    /// Quicker, but blind for a file that was moved.
    virtual bool isLinked() { return true; }
    /// Of the file on the disk; 0 if it is absent.
    uint64_t size() const;

    /// At the next `close` a safe write puts the data under this name, in one step, and the file's own name is gone. If
    /// that can't be done they stay under their ".tmp" name.
    void setFinalName(const std::string& path) { finalName_ = path; }
    /// Whether the last `close` gave the data their final name.
    bool tookFinalName() const { return tookFinalName_; }

protected:
    static constexpr int renameAttempts = 10;
    static constexpr int32_t renameWait = 2; // seconds

    std::string temporaryName() const { return name_ + ".tmp"; }

    /// Makes the lock file object, and clears a lock that has run out. Throws FL_IS_LOCKED for one that still runs.
    void lookForLock();
    /// With a safe write: copies the real file, if there is one, to the ".tmp" name, which is then the one to open.
    /// Returns whether a copy was made.
    bool prepareSafeWrite(std::string& nameToOpen);
    /// Takes the lock; on failure undoes what `prepareSafeWrite` did and throws FL_CANNOT_LOCK.
    void takeLock(bool keepOriginal, bool copied);
    /// Undoes lock and copy after an opening that failed.
    void cleanUp();
    /// Gives the lock back. Throws FL_CANNOT_UNLOCK.
    void releaseLock();
    /// Marks the object closed.
    void becomeClosed();
    /// Gives up what was written, once the stream is closed, and marks the object closed. Throws FL_CANNOT_UNLOCK.
    void abandon();
    /// Deletes the real file if it was the lock that had brought it into being.
    void removeOwnFile();
    /// Moves the ".tmp" file onto its final name. Throws FL_RENAME with `description`, or FL_CANNOT_CLOSE if closing
    /// told that something written was lost; the data stay in the ".tmp" file.
    void finishSafeWrite(bool isComplete, const std::string& description);
    bool moveTemporary(const std::string& to, const std::string& description) const;
    /// Deletes the ".tmp" file.
    void dropSafeWrite();

    std::string name_;
    bool tookFinalName_ = false;
    std::string finalName_;  // what the data become at `close`, if not name_
    bool safeWrite_ = false; // the object writes to the ".tmp" file and owes the rename
    uint16_t access_ = 0;    // of the present opening; 0 while closed
    int64_t position_ = 0;   // bytes read or written, or the offset sought
    bool eofReached_ = false;
    bool closed_ = true;
    std::unique_ptr<LockFile> lock_;
    TimeSpan lockTime_{30}; // how long a lock is declared to last
};

} // namespace Velmor
