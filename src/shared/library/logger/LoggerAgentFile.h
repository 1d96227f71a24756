#pragma once

#include "shared/library/common/files/FileBase.h"
#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/common/system/Monopoly.h"
#include "shared/library/common/time/DateTime.h"
#include "shared/library/common/time/TimeSpan.h"
#include "shared/library/logger/LoggerAgent.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace Velmor {

/// The debug log file. Lines are appended and flushed one by one; a rotation moves the file aside under a name with
/// its opening time and a counter, and the next line begins a new one. A lock of the whole machine, named after the
/// file, guards each line and each rotation, since several programs may share a file. What a rotation must remember
/// between runs lies in the registry values program + "LogOpened" and program + "LogCounter".
class LoggerAgentFile : public LoggerAgent {
public:
    /// Flags of the rotation scheme.
    static constexpr uint32_t schemeInit = 1; // rotate what an earlier run left
    static constexpr uint32_t schemeTime = 2;
    static constexpr uint32_t schemeSize = 4;

    /// Settings of all objects, made during start-up.
    static void setProgramName(std::string_view name);
    static void setScheme(uint32_t flags);
    static void addScheme(uint32_t flag);
    static uint32_t getScheme();
    static void setPeriod(const TimeSpan& period);
    static void setSizeLimit(uint32_t megabytes);
    /// Lets the init scheme rotate at the next line, once more.
    static void requestRotation();

    LoggerAgentFile() = default;
    LoggerAgentFile(const LoggerAgentFile&) = delete;
    LoggerAgentFile& operator=(const LoggerAgentFile&) = delete;
    /// Closes the file with a closing note.
    ~LoggerAgentFile() override;

    /// "file:///" and the file's full name.
    std::string describe() override;

    /// Names the file, or moves on to another one with a note in both. False if the file object can't be made.
    bool setFile(const std::string& path);

    /// Appends a line; a file that was moved or deleted is begun anew within about a second. False if the lock wasn't
    /// had within two seconds; throws `FileException` if the file can't be opened or written.
    bool write(std::string_view text) override;

private:
    void awaitRotation();
    void adoptSettings();
    void begin();
    void openFile();
    bool append(std::string_view text);
    void appendNote(std::string_view text);
    void writeLine(std::string_view text);
    void workOutNextRotation();
    void checkRotation();
    bool isRotationDue(std::string& note);
    bool isInitDue(uint32_t scheme, const DateTime& now, uint64_t size, float limit, std::string& note) const;
    bool isTimeDue(uint32_t scheme, const DateTime& now, uint64_t size, float limit, std::string& note) const;
    void rotate(const std::string& condition);
    std::string rotatedName(const std::string& name) const;
    std::string closingNote(std::string_view reason) const;
    void closeWithReason(std::string_view reason);
    bool isTakenAway();
    void closeQuietly();

    SmartPointer<FileBase> file_;
    std::string lockName_;  // the file's own name
    DateTime opened_;       // when the present log was begun
    DateTime nextRotation_; // by time
    std::atomic<bool> isRotating_{false};
    uint32_t lastLook_ = 0;   // ticks, when the file was last looked for under its name
    float sizeFactor_ = 1.0F; // multiplies the size limit after rotations that failed
    int32_t periodBase_ = 0;  // seconds from which nextRotation_ is reckoned
    Monopoly access_;         // orders this object's threads; the named lock orders the programs
};

} // namespace Velmor
