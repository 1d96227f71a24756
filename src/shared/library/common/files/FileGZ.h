#pragma once

#include "shared/library/common/files/FileBase.h"

struct gzFile_s;

namespace Velmor {

/// A file compressed with gzip: read or written, never both. Appending rewrites the old content through a second file,
/// so it costs a full decompression and compression.
class FileGZ : public FileBase {
public:
    using FileBase::FileBase;
    /// Closes an open file as `close` does; a failure is lost.
    ~FileGZ() override;

    void open(uint16_t access) override;
    void close() override;
    void abort() override;
    bool read(std::string& text, size_t count) override;
    size_t read(char* buffer, size_t count) override;
    bool write(const std::string& text) override;
    size_t write(const char* data, size_t count) override;
    /// A line longer than 8,191 bytes comes in pieces of that length.
    void readLine(std::string& text) override;
    void writeLine(const std::string& text) override;
    void flush() override {}
    int64_t seek(int64_t offset, int32_t origin) override;
    bool eof() override;

private:
    void testAccess(uint16_t access) const;
    void openStream(const std::string& nameToOpen, uint16_t access, const std::string& original);
    void copyOldContent(const std::string& original, const std::string& nameToOpen);
    bool closeStream();
    void requireOpen() const;

    gzFile_s* handle_ = nullptr;
};

} // namespace Velmor
