#include "shared/library/common/files/FileGZ.h"

#include "platform/FileSystem.h"
#include "platform/Platform.h"
#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"

#include <array>
#include <cstring>
#include <limits>
#include <zlib.h>

namespace Velmor {

namespace {
constexpr size_t lineBufferSize = 8192;
std::array<char, lineBufferSize> lineBuffer; // of all objects: one thread at a time reads lines
constexpr size_t copyBlock = 1024;

gzFile openCompressed(const std::string& path, bool reads) {
    uint32_t error = 0;
    const auto file = platform().fileSystem->openFile(path, reads ? OpenMode::read : OpenMode::write, error);
    const int descriptor = file ? file->release() : -1;
    return descriptor < 0 ? nullptr : gzdopen(descriptor, reads ? "rb" : "wb");
}
} // namespace

FileGZ::~FileGZ() {
    try {
        FileGZ::close();
    } catch (...) { // NOLINT(bugprone-empty-catch): nobody is left to tell
    }
}

void FileGZ::testAccess(uint16_t access) const {
    if ((access & ACCESS_READ) && (access & ACCESS_WRITE))
        throw FileException(FL_ACCESS_COMB, "Cannot open gzip file: " + name_ + "\tfor both reading and writing.",
                            __FILE__, __LINE__);
    if (!(access & (ACCESS_READ | ACCESS_WRITE | ACCESS_UNSAFE)))
        throw FileException(FL_ACCESS_COMB,
                            "Only ACCESS_READ or ACCESS_WRITE or ACCESS_WRITE + ACCESS_UNSAFE allowed for gzip file: " +
                                name_,
                            __FILE__, __LINE__);
}

void FileGZ::open(uint16_t access) {
    if (isOpen())
        throw FileException(FL_IS_OPEN, name_, __FILE__, __LINE__);
    testAccess(access);
    if ((access & ACCESS_READ) && !exists())
        throw FileException(FL_EXISTS_NOT, name_, __FILE__, __LINE__);
    std::string nameToOpen = name_;
    if ((access & ACCESS_WRITE) && !(access & ACCESS_NOLOCK)) {
        lookForLock();
        const bool copied = !(access & ACCESS_UNSAFE) && prepareSafeWrite(nameToOpen);
        takeLock(true, copied);
    }
    std::string original;
    if (!(access & ACCESS_READ) && (access & ACCESS_APPEND) && FileOps::exists(nameToOpen)) {
        original = nameToOpen + ".orig.copy";
        if (!FileOps::copy(nameToOpen, original, true)) { // the file itself keeps its mode
            cleanUp();
            throw FileException(FL_CANNOT_OPEN, nameToOpen, __FILE__, __LINE__);
        }
    }
    openStream(nameToOpen, access, original);
    if (!original.empty())
        copyOldContent(original, nameToOpen);
}

void FileGZ::openStream(const std::string& nameToOpen, uint16_t access, const std::string& original) {
    handle_ = openCompressed(nameToOpen, (access & ACCESS_READ) != 0);
    if (!handle_) {
        if (!original.empty())
            FileOps::move(original, nameToOpen, true);
        cleanUp();
        throw FileException(FL_CANNOT_OPEN, nameToOpen, __FILE__, __LINE__);
    }
    closed_ = false;
    access_ = access;
    position_ = 0;
    eofReached_ = gzeof(handle_) == 1;
}

/// Writes the content of `original` into the new stream, so that the caller goes on behind it. On failure the original
/// is put back in place of what was written.
void FileGZ::copyOldContent(const std::string& original, const std::string& nameToOpen) {
    try {
        FileGZ old(original);
        old.open(ACCESS_READ);
        std::array<char, copyBlock> block;
        // The end shows only as a read that brings nothing when the content fills its last block exactly.
        for (int count = 0; (count = gzread(old.handle_, block.data(), block.size())) != 0;) {
            if (count < 0)
                throw FileException(FL_READ, original, __FILE__, __LINE__);
            write(block.data(), static_cast<size_t>(count));
        }
        old.close();
    } catch (const FileException&) {
        gzclose(handle_);
        handle_ = nullptr;
        closed_ = true;
        FileOps::move(original, nameToOpen, true);
        cleanUp();
        becomeClosed();
        throw FileException(FL_CANNOT_OPEN, nameToOpen, __FILE__, __LINE__);
    }
    if (FileUtils::remove(original, true))
        return;
    close(); // the data is whole in the new file
    throw FileException(FL_REMOVE, original, __FILE__, __LINE__);
}

bool FileGZ::closeStream() {
    const int result = gzclose(handle_);
    handle_ = nullptr; // the stream is gone whatever the answer was
    return result == Z_OK;
}

void FileGZ::close() {
    if (!isOpen())
        return;
    const bool complete = closeStream();
    releaseLock();
    becomeClosed();
    finishSafeWrite(complete, "Failed to update the file: " + name_);
}

void FileGZ::abort() {
    if (!isOpen())
        return;
    const bool complete = closeStream();
    abandon();
    if (!complete)
        throw FileException(FL_CANNOT_CLOSE, name_, __FILE__, __LINE__);
}

void FileGZ::requireOpen() const {
    if (!isOpen())
        throw FileException(FL_IS_CLOSED, name_, __FILE__, __LINE__);
}

size_t FileGZ::read(char* buffer, size_t count) {
    requireOpen();
    if (!(access_ & ACCESS_READ))
        throw FileException(FL_READ, name_, __FILE__, __LINE__);
    if (eof())
        throw FileException(FL_EOF, name_, __FILE__, __LINE__);
    const int read = gzread(handle_, buffer, static_cast<unsigned>(count));
    if (read < 0)
        throw FileException(FL_READ, name_, __FILE__, __LINE__);
    if (read == 0)
        throw FileException(FL_EOF, name_, __FILE__, __LINE__);
    position_ += read;
    return static_cast<size_t>(read);
}

bool FileGZ::read(std::string& text, size_t count) {
    std::string buffer;
    try {
        buffer.resize(count + 1);
    } catch (const std::exception&) { // no memory, or more than a text can hold
        throw FileException(FL_MEM, "Unable to read from the file: " + name_, __FILE__, __LINE__);
    }
    buffer.resize(read(buffer.data(), count));
    text = std::move(buffer);
    return text.size() == count;
}

void FileGZ::readLine(std::string& text) {
    requireOpen();
    if (!(access_ & ACCESS_READ))
        throw FileException(FL_CANNOT_READ, name_, __FILE__, __LINE__);
    if (eof())
        throw FileException(FL_EOF, name_, __FILE__, __LINE__);
    if (!gzgets(handle_, lineBuffer.data(), static_cast<int>(lineBuffer.size())))
        throw FileException(FL_READ, name_, __FILE__, __LINE__);
    text = lineBuffer.data();
    position_ += static_cast<int64_t>(text.size());
    if (!text.empty() && text.back() == '\n')
        text.pop_back();
}

size_t FileGZ::write(const char* data, size_t count) {
    requireOpen();
    if (!(access_ & ACCESS_WRITE))
        throw FileException(FL_CANNOT_WRITE, name_, __FILE__, __LINE__);
    if (count == 0)
        return 0; // zlib answers 0 here as it does for a failure
    const int written = gzwrite(handle_, data, static_cast<unsigned>(count));
    if (written <= 0)
        throw FileException(FL_WRITE, name_, __FILE__, __LINE__);
    position_ += written;
    return static_cast<size_t>(written);
}

bool FileGZ::write(const std::string& text) {
    return write(text.data(), text.size()) == text.size();
}

void FileGZ::writeLine(const std::string& text) {
    write(text + '\n');
}

int64_t FileGZ::seek(int64_t offset, int32_t origin) {
    requireOpen();
    if (origin == OFFSET_END)
        throw FileException(FL_ERROR, "FileGZ does not support OFFSET_END.", __FILE__, __LINE__);
    const bool backward = origin == OFFSET_CURRENT ? offset < 0 : offset < position_;
    if ((access_ & ACCESS_WRITE) && backward)
        throw FileException(FL_ERROR, "FileGZ does not support negative seek for FILE_WRITE.", __FILE__, __LINE__);
    if (gzseek(handle_, static_cast<z_off_t>(offset), origin == OFFSET_CURRENT ? SEEK_CUR : SEEK_SET) < 0)
        throw FileException(FL_POSITION, name_, __FILE__, __LINE__);
    position_ = gztell(handle_);
    return position_;
}

bool FileGZ::eof() {
    requireOpen();
    return gzeof(handle_) == 1;
}

} // namespace Velmor
