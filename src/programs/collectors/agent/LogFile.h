#pragma once

#include "programs/collectors/agent/WaitingRecords.h"
#include "shared/library/common/files/FileBase.h"
#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/common/system/Monopoly.h"
#include "shared/library/common/time/ReportLimit.h"

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// The collector's data file: a series of files with one stem, of which one at a time takes records. It comes into
/// being at the first `write` as stem-seconds-pid-counter.make.tmp, and `end` turns it into
/// stem-seconds-pid-counter.data, which belongs to the core service from then on. Any thread may use an object.
class LogFile {
public:
    LogFile() = default;
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    /// Ends the file.
    virtual ~LogFile();

    /// Names the next file; one that is open is ended first. `stem` is a path whose last component holds no "-".
    void setName(const std::string& stem);

    /// The present file's name, ending in ".make"; empty before `setName`.
    std::string getName();

    /// Writes a text, and opens the file before if need be. What can't be written waits in memory for the next call,
    /// which is reported at once and then once a minute; so is the loss of a file that others have taken away. False
    /// if there is no file, and the text is lost.
    bool write(std::string_view text);

    /// Hands what was written to the system, and ends the line.
    bool flushLine();

    /// `write` and `flushLine` in one, so that no delivery can come between a record and its end.
    bool writeRecord(std::string_view record);

    /// Records that were taken to be written.
    struct Records {
        std::atomic<uint64_t> inAll{0};
        std::atomic<uint64_t> sinceEnd{0}; // of the last file
        std::atomic<int32_t> lastEnd{0};   // when that was, in seconds since 1970; 0 before the first
    };
    const Records& records() const { return records_; }
    /// Goes on counting where the file before it stopped.
    void countOnFrom(const LogFile& former) { records_.inAll += former.records_.inAll; }

    /// Opens a new file; one that is open is ended first. False on failure, which is reported.
    bool open();

    /// Closes the file and gives it its final name; a file that nothing was written to stays as it is. Throws
    /// `FileException` if it can't be closed: the object then has its old name and a closed file.
    void end();

    /// Gives the object a fresh name with the same stem.
    void updateName();

    /// The lock that guards the file, for the repair after a lost thread.
    Monopoly& lock() { return lock_; }

private:
    struct Rename {
        std::string from;
        std::string to;
    };

    struct Failure {
        int32_t message = 0;
        std::string code;
        std::string description;
    };
    /// What stands in the open file. Times are seconds since 1970.
    struct Written {
        uint64_t count = 0;
        int32_t first = 0;
        int32_t last = 0;
    };

    bool isOpen() const { return !file_.isNull() && file_->isOpen(); }
    template <typename Step>
    bool attempt(int32_t message, Step&& step);
    bool tryOpen();
    bool writeNow(std::string_view text);
    void writeWaiting();
    void giveUpIfGone();
    void reportFailure();
    void rescueUnfinished();
    void noteRename(bool succeeded, const std::string& from, const std::string& to);
    void retryRenames();
    void tellLost();

    Records records_;
    SmartPointer<FileBase> file_;
    Written written_;
    int32_t lastLook_ = 0; // seconds since 1970: when the open file was last looked for by its name
    WaitingRecords waiting_;
    Failure failure_; // the last one
    ReportLimit failureLimit_;
    std::vector<Rename> failedRenames_; // tried again at each end, so that what is whole isn't left behind
    Monopoly lock_;                     // guards all of the above
};

} // namespace Velmor
