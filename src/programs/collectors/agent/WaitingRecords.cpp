#include "programs/collectors/agent/WaitingRecords.h"

#include "shared/library/common/system/LossBook.h"

namespace Velmor {

void WaitingRecords::add(std::string_view record) {
    records_.emplace_back(record);
    bytes_ += record.size();
    ++waited_;
    for (; bytes_ > mostBytes && !records_.empty(); records_.pop_front(), ++dropped_) {
        bytes_ -= records_.front().size();
        lossBook().add(LossBook::Cause::records);
    }
}

bool WaitingRecords::drain(const std::function<bool(const std::string&)>& write) {
    for (; !records_.empty(); records_.pop_front()) {
        if (!write(records_.front()))
            return false;
        bytes_ -= records_.front().size();
    }
    return true;
}

void WaitingRecords::restart() {
    waited_ = records_.size();
    dropped_ = 0;
}

} // namespace Velmor
