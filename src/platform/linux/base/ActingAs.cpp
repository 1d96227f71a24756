#include "platform/linux/base/ActingAs.h"

#include <algorithm>
#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Velmor {

namespace {
/// For the calling thread alone; the library's function changes all of them.
void setGroupsOfThread(const std::vector<gid_t>& groups) {
    (void)!syscall(SYS_setgroups, groups.size(), groups.data());
}
} // namespace

ActingAs::ActingAs(uid_t user, gid_t group) {
    if (geteuid() != 0 || user == 0)
        return;
    isActing_ = true;
    groups_.resize(static_cast<size_t>(std::max(0, getgroups(0, nullptr))));
    groups_.resize(static_cast<size_t>(std::max(0, getgroups(static_cast<int>(groups_.size()), groups_.data()))));
    setGroupsOfThread({});
    group_ = static_cast<gid_t>(setfsgid(group));
    user_ = static_cast<uid_t>(setfsuid(user));
}

ActingAs::~ActingAs() {
    if (!isActing_)
        return;
    setfsuid(user_);
    setfsgid(group_);
    setGroupsOfThread(groups_);
}

} // namespace Velmor
