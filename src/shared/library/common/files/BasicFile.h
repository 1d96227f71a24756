#pragma once

#include "platform/FileSystem.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace Velmor {

/// The thin layer over the platform's files: opens in one of six modes, keeps size and position, reads blocks and
/// lines, and answers failures with numbers. Writing is unbuffered, one call of the system for each write; reading
/// goes through a buffer. One thread at a time uses an object.
class BasicFile {
public:
    /// Modes of `open`. All are binary and share the file with any other opener.
    static constexpr int32_t MODE_NONE = 0;
    static constexpr int32_t MODE_READ = 1;
    static constexpr int32_t MODE_WRITE = 2;              // an existing file is emptied
    static constexpr int32_t MODE_APPEND = 3;             // writes go to the end
    static constexpr int32_t MODE_READ_WRITE = 4;         // the file must exist
    static constexpr int32_t MODE_READ_WRITE_EMPTIED = 5; // an existing file is emptied
    static constexpr int32_t MODE_READ_APPEND = 6;        // writes go to the end

    /// Results of the last operation.
    static constexpr int32_t ERROR_NONE = 0;
    static constexpr int32_t ERROR_NOT_OPEN = 1;
    static constexpr int32_t ERROR_ALREADY_OPEN = 2;
    static constexpr int32_t ERROR_BAD_MODE = 3;
    static constexpr int32_t ERROR_OPEN = 4;
    static constexpr int32_t ERROR_BAD_ORIGIN = 5;
    static constexpr int32_t ERROR_NOT_FOR_READING = 6;
    static constexpr int32_t ERROR_READ = 7;
    static constexpr int32_t ERROR_NOT_FOR_WRITING = 8;
    static constexpr int32_t ERROR_WRITE = 9;
    static constexpr int32_t ERROR_AT_END = 10;
    static constexpr int32_t ERROR_NO_OPERATION = 11; // the direction last used is asked for, and there is none
    static constexpr int32_t ERROR_SEEK = 12;

    /// Origins of `seek`.
    static constexpr int32_t FROM_BEGIN = 0;
    static constexpr int32_t FROM_END = 1;
    static constexpr int32_t FROM_CURRENT = 2;

    /// Directions of `seek`, `tell` and `eof`.
    static constexpr int32_t READING = 0;
    static constexpr int32_t WRITING = 1;
    static constexpr int32_t LAST_USED = 2;
    static constexpr int32_t BOTH = 3;

    BasicFile() = default;
    BasicFile(const BasicFile&) = delete;
    BasicFile& operator=(const BasicFile&) = delete;
    virtual ~BasicFile() = default;

    /// True on success; mode 0 opens nothing and succeeds. An open file stays as it is, with error 2.
    bool open(std::string_view name, int32_t mode);
    /// False if the system reports only now that something written was lost.
    bool close();

    bool isOpen() const { return stream_ != nullptr; }
    /// False once an open file has been moved or deleted by others.
    bool isInPlace() { return !stream_ || stream_->isAt(name_); }
    /// False once the open file has been deleted by others, where that can be told; quicker.
    bool isLinked() { return !stream_ || stream_->isLinked(); }
    int32_t getError() const { return error_; }
    int32_t getMode() const { return mode_; }

    /// Reads up to `count` bytes, at most what the file still holds. False with an error; wanting nothing succeeds.
    bool read(std::string& text, int64_t count);

    /// Writes all; on failure position and length are as before, but where others have appended to the same file since
    /// it was opened or sought the beginning of the text may stay.
    bool write(std::string_view text);
    /// The text and a newline, in one call of the system.
    bool writeLine(std::string_view text);

    /// The next line without its end; carriage returns are dropped wherever they stand. Empty with an error.
    std::string readLine();

    /// Moves the position; a failure restores the old one.
    bool seek(int64_t offset, int32_t origin, int32_t direction);
    /// The position in bytes; -1 with an error.
    int64_t tell(int32_t direction);
    bool eof(int32_t direction);
    /// What was written is the system's already; only the right to write is tested.
    bool flush();

private:
    bool fail(int32_t error);
    bool isForReading() const;
    bool isForWriting() const { return mode_ >= MODE_WRITE; }
    bool isAppending() const { return mode_ == MODE_APPEND || mode_ == MODE_READ_APPEND; }
    bool mayRead();
    bool fillBuffer();
    bool bringStreamTo(uint64_t position);
    void noteReadPosition();
    void undoWrite(uint64_t written);

    static constexpr size_t blockSize = 1024;

    std::string name_;
    int32_t mode_ = MODE_NONE;
    std::unique_ptr<OpenFile> stream_;
    uint64_t size_ = 0;           // at opening, and what has been written since
    uint64_t position_ = 0;       // of the last operation
    uint64_t streamPosition_ = 0; // where the system's own position stands, ahead of position_ while bytes are buffered
    int32_t lastOperation_ = none;
    bool atEnd_ = true;
    int32_t error_ = ERROR_NONE;
    std::array<char, blockSize> buffer_{};
    size_t bufferBegin_ = 0; // of the bytes read and not yet taken
    size_t bufferEnd_ = 0;

    static constexpr int32_t none = 4;
};

} // namespace Velmor
