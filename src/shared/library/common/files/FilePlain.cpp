#include "shared/library/common/files/FilePlain.h"

#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"

#include <algorithm>
#include <cstring>

namespace Velmor {

namespace {
int32_t modeOf(uint16_t access) {
    const bool append = (access & FileBase::ACCESS_APPEND) != 0;
    if (!(access & FileBase::ACCESS_WRITE))
        return BasicFile::MODE_READ;
    if (!(access & FileBase::ACCESS_READ))
        return append ? BasicFile::MODE_APPEND : BasicFile::MODE_WRITE;
    if (append)
        return BasicFile::MODE_READ_APPEND;
    return access & FileBase::ACCESS_TRUNCATE ? BasicFile::MODE_READ_WRITE_EMPTIED : BasicFile::MODE_READ_WRITE;
}

int32_t originOf(int32_t origin) {
    switch (origin) {
    case FileBase::OFFSET_BEGIN:
        return BasicFile::FROM_BEGIN;
    case FileBase::OFFSET_CURRENT:
        return BasicFile::FROM_CURRENT;
    case FileBase::OFFSET_END:
        return BasicFile::FROM_END;
    default:
        return -1;
    }
}
} // namespace

FilePlain::~FilePlain() {
    try {
        FilePlain::close();
    } catch (...) { // NOLINT(bugprone-empty-catch): nobody is left to tell; the ".tmp" file keeps the data
    }
}

void FilePlain::testAccess(uint16_t access) const {
    const bool reads = (access & ACCESS_READ) != 0;
    const bool writes = (access & ACCESS_WRITE) != 0;
    const bool readsOnly = reads && !writes && (access & (ACCESS_TRUNCATE | ACCESS_CREATE | ACCESS_APPEND));
    const bool both = (access & ACCESS_TRUNCATE) && (access & ACCESS_APPEND);
    if (readsOnly || both || (!reads && !writes))
        throw FileException(FL_ACCESS_COMB, name_, __FILE__, __LINE__);
}

void FilePlain::open(uint16_t access) {
    if (isOpen())
        throw FileException(FL_IS_OPEN, name_, __FILE__, __LINE__);
    testAccess(access);
    if (!(access & ACCESS_WRITE) && !exists())
        throw FileException(FL_EXISTS_NOT, name_ + "-->File does not exist.", __FILE__, __LINE__);
    std::string nameToOpen = name_;
    if ((access & ACCESS_WRITE) && !(access & ACCESS_NOLOCK)) {
        lookForLock();
        const bool safe = !(access & ACCESS_UNSAFE);
        const bool copied = safe && prepareSafeWrite(nameToOpen);
        takeLock(safe, copied);
    }
    if (!file_.open(nameToOpen, modeOf(access))) {
        cleanUp();
        throw FileException(FL_CANNOT_OPEN, nameToOpen, __FILE__, __LINE__);
    }
    closed_ = false;
    access_ = access;
    position_ = 0;
    if (!(access & ACCESS_APPEND))
        return;
    try {
        seek(0, OFFSET_END);
    } catch (const FileException&) {
        abort();
        throw;
    }
}

void FilePlain::close() {
    if (!isOpen())
        return;
    const bool isComplete = file_.close();
    releaseLock();
    becomeClosed();
    finishSafeWrite(isComplete, "Failed to update the file \"" + name_ + "\"");
}

void FilePlain::abort() {
    if (!isOpen())
        return;
    file_.close();
    abandon();
}

void FilePlain::requireOpen() const {
    if (!isOpen())
        throw FileException(FL_IS_CLOSED, name_, __FILE__, __LINE__);
}

void FilePlain::require(uint16_t access, int32_t otherwise) const {
    requireOpen();
    if (!(access_ & access))
        throw FileException(otherwise, name_, __FILE__, __LINE__);
}

void FilePlain::requireMore() {
    if (eof())
        throw FileException(FL_EOF, name_, __FILE__, __LINE__);
}

void FilePlain::failWrite(int32_t line) const {
    throw FileException(FL_WRITE,
                        name_ + " - BFile error: " + std::to_string(file_.getError()) +
                            " - Access: " + std::to_string(file_.getMode()),
                        __FILE__, line);
}

size_t FilePlain::read(char* buffer, size_t count) {
    require(ACCESS_READ, FL_READ);
    requireMore();
    std::string text;
    if (!file_.read(text, static_cast<int64_t>(count)))
        throw FileException(FL_READ, name_, __FILE__, __LINE__);
    const size_t zero = text.find('\0');
    const size_t copied = zero == std::string::npos ? text.size() : zero + 1;
    std::memcpy(buffer, text.data(), copied);
    position_ += static_cast<int64_t>(text.size());
    return text.size();
}

bool FilePlain::read(std::string& text, size_t count) {
    if (!file_.read(text, static_cast<int64_t>(count)))
        throw FileException(FL_READ, name_, __FILE__, __LINE__);
    return text.size() == count;
}

void FilePlain::readLine(std::string& text) {
    require(ACCESS_READ, FL_CANNOT_READ);
    requireMore();
    text = file_.readLine();
    if (text.empty() && file_.getError() != BasicFile::ERROR_NONE)
        throw FileException(FL_READ, name_, __FILE__, __LINE__);
}

size_t FilePlain::write(const char* data, size_t count) {
    require(ACCESS_WRITE, FL_CANNOT_WRITE);
    if (!file_.write({data, count}))
        failWrite(__LINE__);
    position_ += static_cast<int64_t>(count);
    return count;
}

bool FilePlain::write(const std::string& text) {
    if (!file_.write(text))
        failWrite(__LINE__);
    return true;
}

void FilePlain::writeLine(const std::string& text) {
    if (!file_.writeLine(text))
        failWrite(__LINE__);
}

void FilePlain::flush() {
    require(ACCESS_WRITE, FL_CANNOT_WRITE);
    if (!file_.flush())
        throw FileException(FL_FLUSH, name_, __FILE__, __LINE__);
}

int64_t FilePlain::seek(int64_t offset, int32_t origin) {
    requireOpen();
    if (!file_.seek(offset, originOf(origin), BasicFile::LAST_USED))
        throw FileException(FL_POSITION, name_, __FILE__, __LINE__);
    return tell();
}

int64_t FilePlain::tell() {
    const int64_t position = file_.tell(BasicFile::LAST_USED);
    if (position >= 0)
        position_ = position;
    return position;
}

bool FilePlain::eof() {
    return file_.eof(BasicFile::LAST_USED);
}

} // namespace Velmor
