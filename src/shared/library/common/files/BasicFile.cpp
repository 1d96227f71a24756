#include "shared/library/common/files/BasicFile.h"

#include "platform/Platform.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace Velmor {

namespace {
constexpr std::array<OpenMode, 7> openModes{OpenMode::read,      OpenMode::read,      OpenMode::write,
                                            OpenMode::append,    OpenMode::readWrite, OpenMode::readWriteEmptied,
                                            OpenMode::readAppend};
} // namespace

bool BasicFile::fail(int32_t error) {
    error_ = error;
    return false;
}

bool BasicFile::isForReading() const {
    return mode_ == MODE_READ || mode_ == MODE_READ_WRITE || mode_ == MODE_READ_WRITE_EMPTIED;
}

bool BasicFile::open(std::string_view name, int32_t mode) {
    if (stream_)
        return fail(ERROR_ALREADY_OPEN);
    if (mode < MODE_NONE || mode > MODE_READ_APPEND)
        return fail(ERROR_BAD_MODE);
    error_ = ERROR_NONE;
    if (mode == MODE_NONE)
        return true;
    uint32_t error = 0;
    stream_ = platform().fileSystem->openFile(name, openModes[static_cast<size_t>(mode)], error);
    if (!stream_)
        return fail(ERROR_OPEN);
    size_ = 0;
    const bool emptied = mode == MODE_WRITE || mode == MODE_READ_WRITE_EMPTIED;
    if (!emptied && !stream_->size(size_, error)) {
        stream_.reset();
        return fail(ERROR_OPEN);
    }
    name_ = name;
    mode_ = mode;
    position_ = 0;
    streamPosition_ = 0;
    bufferBegin_ = 0;
    bufferEnd_ = 0;
    atEnd_ = size_ == 0;
    lastOperation_ = mode == MODE_READ ? READING : WRITING;
    return true;
}

bool BasicFile::close() {
    if (!stream_)
        return fail(ERROR_NOT_OPEN);
    uint32_t error = 0;
    const bool closed = stream_->close(error);
    stream_.reset();
    mode_ = MODE_NONE;
    lastOperation_ = none;
    error_ = closed ? ERROR_NONE : ERROR_WRITE;
    return closed;
}

bool BasicFile::mayRead() {
    if (!stream_)
        return fail(ERROR_NOT_OPEN);
    if (!isForReading())
        return fail(ERROR_NOT_FOR_READING);
    if (atEnd_)
        return fail(ERROR_AT_END);
    error_ = ERROR_NONE;
    return true;
}

/// Moves the system's position to `position`, and forgets what was read ahead.
bool BasicFile::bringStreamTo(uint64_t position) {
    bufferBegin_ = bufferEnd_ = 0;
    uint32_t error = 0;
    if (streamPosition_ != position && !stream_->seek(position, error))
        return false;
    streamPosition_ = position;
    return true;
}

bool BasicFile::fillBuffer() {
    if (bufferBegin_ < bufferEnd_)
        return true;
    size_t count = 0;
    uint32_t error = 0;
    if (!bringStreamTo(position_) || !stream_->read(buffer_.data(), buffer_.size(), count, error))
        return fail(ERROR_READ);
    streamPosition_ += count;
    bufferEnd_ = count;
    return true;
}

void BasicFile::noteReadPosition() {
    lastOperation_ = READING;
    atEnd_ = atEnd_ || position_ >= size_;
}

bool BasicFile::read(std::string& text, int64_t count) {
    if (count <= 0) {
        text.clear();
        return true;
    }
    if (!mayRead())
        return false;
    text.clear();
    const uint64_t before = position_;
    const uint64_t wanted = std::min<uint64_t>(static_cast<uint64_t>(count), size_ - std::min(size_, position_));
    while (text.size() < wanted) {
        if (!fillBuffer()) {
            position_ = before;
            bufferBegin_ = bufferEnd_ = 0;
            return false;
        }
        if (bufferBegin_ == bufferEnd_) { // shorter than it was at opening
            atEnd_ = true;
            break;
        }
        const size_t taken = std::min<size_t>(bufferEnd_ - bufferBegin_, wanted - text.size());
        text.append(buffer_.data() + bufferBegin_, taken);
        bufferBegin_ += taken;
        position_ += taken;
    }
    noteReadPosition();
    return true;
}

std::string BasicFile::readLine() {
    std::string line;
    if (!mayRead())
        return line;
    const uint64_t before = position_;
    while (!atEnd_) {
        if (!fillBuffer()) {
            position_ = before;
            bufferBegin_ = bufferEnd_ = 0;
            return {};
        }
        if (bufferBegin_ == bufferEnd_) {
            atEnd_ = true;
            break;
        }
        const char* begin = buffer_.data() + bufferBegin_;
        const auto* feed = static_cast<const char*>(std::memchr(begin, '\n', bufferEnd_ - bufferBegin_));
        const size_t length = feed ? static_cast<size_t>(feed - begin) : bufferEnd_ - bufferBegin_;
        std::copy_if(begin, begin + length, std::back_inserter(line), [](char c) { return c != '\r'; });
        const size_t taken = length + (feed ? 1 : 0);
        bufferBegin_ += taken;
        position_ += taken;
        noteReadPosition();
        if (feed)
            break;
    }
    return line;
}

bool BasicFile::write(std::string_view text) {
    if (!stream_)
        return fail(ERROR_NOT_OPEN);
    if (!isForWriting())
        return fail(ERROR_NOT_FOR_WRITING);
    error_ = ERROR_NONE;
    lastOperation_ = WRITING;
    if (!isAppending() && !bringStreamTo(position_))
        return fail(ERROR_WRITE);
    size_t written = 0;
    uint32_t error = 0;
    if (!stream_->write(text, written, error)) {
        if (written > 0)
            undoWrite(written);
        return fail(ERROR_WRITE);
    }
    position_ = isAppending() ? size_ + written : position_ + written;
    streamPosition_ = position_;
    size_ = std::max(size_, position_);
    atEnd_ = position_ >= size_;
    return true;
}

/// Takes the beginning of a text that didn't fit off the file again, so that only whole ones stand in it; but never
/// what others have appended.
void BasicFile::undoWrite(uint64_t written) {
    uint32_t error = 0;
    uint64_t length = 0;
    const bool isLast = isAppending() ? stream_->size(length, error) && length == size_ + written : position_ >= size_;
    if (isLast)
        stream_->truncate(size_, error);
    streamPosition_ = std::numeric_limits<uint64_t>::max(); // unknown: the next operation seeks
    if (!isAppending())
        bringStreamTo(position_);
}

bool BasicFile::writeLine(std::string_view text) {
    return write(std::string(text) + '\n');
}

bool BasicFile::seek(int64_t offset, int32_t origin, int32_t direction) {
    if (!stream_)
        return fail(ERROR_NOT_OPEN);
    if (direction == LAST_USED && lastOperation_ == none)
        return fail(ERROR_NO_OPERATION);
    if (direction == READING && !isForReading())
        return fail(ERROR_NOT_FOR_READING);
    if (direction == WRITING && !isForWriting())
        return fail(ERROR_NOT_FOR_WRITING);
    uint32_t error = 0;
    uint64_t length = size_;
    int64_t target = offset;
    if (origin == FROM_END) {
        if (!stream_->size(length, error))
            return fail(ERROR_SEEK);
        if (__builtin_add_overflow(target, static_cast<int64_t>(length), &target))
            return fail(ERROR_SEEK);
    } else if (origin == FROM_CURRENT) {
        if (__builtin_add_overflow(target, static_cast<int64_t>(position_), &target))
            return fail(ERROR_SEEK);
    } else if (origin != FROM_BEGIN) {
        return fail(ERROR_BAD_ORIGIN);
    }
    if (target < 0)
        return fail(ERROR_SEEK);
    error_ = ERROR_NONE;
    size_ = std::max(size_, length);
    position_ = static_cast<uint64_t>(target);
    atEnd_ = position_ >= size_;
    bufferBegin_ = bufferEnd_ = 0; // the system's position follows with the next operation
    return true;
}

int64_t BasicFile::tell(int32_t direction) {
    if (!stream_)
        fail(ERROR_NOT_OPEN);
    else if (direction == LAST_USED && lastOperation_ == none)
        fail(ERROR_NO_OPERATION);
    else
        return static_cast<int64_t>(position_);
    return -1;
}

bool BasicFile::eof(int32_t direction) {
    const bool usable = direction == READING ? isForReading() : isForWriting();
    if (direction == LAST_USED || !usable)
        return atEnd_;
    return position_ >= size_;
}

bool BasicFile::flush() {
    if (!stream_)
        return fail(ERROR_NOT_OPEN);
    if (!isForWriting())
        return fail(ERROR_NOT_FOR_WRITING);
    error_ = ERROR_NONE;
    return true;
}

} // namespace Velmor
