#pragma once

#include <sys/types.h>
#include <vector>

namespace Velmor {

/// Root works in another user's directory as that user while this lives, on its thread: what it makes there belongs to
/// the user, and no name that the user puts there leads it to what the user may not touch. Anybody else stays who he
/// is.
class ActingAs {
public:
    ActingAs(uid_t user, gid_t group);
    ActingAs(const ActingAs&) = delete;
    ActingAs& operator=(const ActingAs&) = delete;
    ~ActingAs();

private:
    bool isActing_ = false;
    uid_t user_ = 0; // to become again
    gid_t group_ = 0;
    std::vector<gid_t> groups_;
};

} // namespace Velmor
