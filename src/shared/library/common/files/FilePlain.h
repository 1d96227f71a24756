#pragma once

#include "shared/library/common/files/BasicFile.h"
#include "shared/library/common/files/FileBase.h"

namespace Velmor {

/// A plain file.
class FilePlain : public FileBase {
public:
    using FileBase::FileBase;
    /// Closes an open file as `close` does; a failure is lost.
    ~FilePlain() override;

    void open(uint16_t access) override;
    void close() override;
    void abort() override;
    bool read(std::string& text, size_t count) override;
    size_t read(char* buffer, size_t count) override;
    bool write(const std::string& text) override;
    size_t write(const char* data, size_t count) override;
    void readLine(std::string& text) override;
    void writeLine(const std::string& text) override;
    void flush() override;
    int64_t seek(int64_t offset, int32_t origin) override;
    int64_t tell() override;
    bool eof() override;
    bool isInPlace() override { return file_.isInPlace(); }
    bool isLinked() override { return file_.isLinked(); }

private:
    void testAccess(uint16_t access) const;
    void requireOpen() const;
    void require(uint16_t access, int32_t otherwise) const;
    void requireMore();
    [[noreturn]] void failWrite(int32_t line) const;

    BasicFile file_;
};

} // namespace Velmor
