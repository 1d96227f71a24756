#include "ProcessAccounting.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <linux/acct.h>
#include <sys/file.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr double ticksOfSecond = 100;
} // namespace

ProcessAccounting::ProcessAccounting(const std::string& file)
    : file_(file), turn_(open("/usr", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (flock(turn_, LOCK_EX) != 0 && errno == EINTR) {
    }
    std::ofstream(file_).flush();
    isOn_ = acct(file_.c_str()) == 0;
}

ProcessAccounting::~ProcessAccounting() {
    if (isOn_)
        static_cast<void>(acct(nullptr));
    close(turn_);
}

std::vector<AccountedProcess> ProcessAccounting::ended(const std::string& prefix) const {
    std::vector<AccountedProcess> list;
    std::ifstream file(file_, std::ios::binary);
    acct_v3 record{};
    while (file.read(reinterpret_cast<char*>(&record), sizeof(record))) {
        const std::string command(record.ac_comm, strnlen(record.ac_comm, sizeof(record.ac_comm)));
        if (!command.starts_with(prefix))
            continue;
        const uint32_t signal = record.ac_exitcode & 0x7fU;
        AccountedProcess process;
        process.command = command;
        process.user = record.ac_uid;
        process.exitCode = signal != 0 ? 128 + signal : (record.ac_exitcode >> 8U) & 0xffU;
        process.start = record.ac_btime;
        process.end = process.start + static_cast<double>(record.ac_etime) / ticksOfSecond;
        list.push_back(process);
    }
    return list;
}

} // namespace Velmor
