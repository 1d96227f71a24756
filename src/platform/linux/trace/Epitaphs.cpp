#include "platform/linux/trace/Epitaphs.h"

#include "platform/linux/processes/ProcFile.h"

namespace Velmor {

namespace {
constexpr size_t filesLimit = 10000;
}

void Epitaphs::open() {
    source_ = ExitRecords::start([this](uint32_t pid, const ExitRecord& exit) { fresh_[pid] = exit; },
                                 ExitRecords::Reading::whenFetched);
}

void Epitaphs::fetch() {
    if (!source_)
        return;
    std::swap(fresh_, older_);
    fresh_.clear();
    source_->fetch();
}

const ExitRecord* Epitaphs::find(uint32_t pid) const {
    for (const Exits* exits : {&fresh_, &older_})
        if (const auto found = exits->find(pid); found != exits->end())
            return &found->second;
    return nullptr;
}

void Epitaphs::noteFile(uint32_t pid, const std::string& path) {
    if (!source_ || path.empty() || files_.size() >= filesLimit)
        return;
    if (const auto file = FileIdentity::of(procPath(pid, "exe")))
        files_[*file] = path;
}

std::string Epitaphs::pathOf(const ExitRecord& exit) const {
    const auto file = files_.find({exit.device, exit.inode});
    return file == files_.end() ? std::string() : file->second;
}

} // namespace Velmor
