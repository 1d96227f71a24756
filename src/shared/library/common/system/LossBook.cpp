#include "shared/library/common/system/LossBook.h"

#include "platform/Clock.h"
#include "platform/Platform.h"

namespace Velmor {

namespace {
struct Wording {
    std::string_view name;
    std::string_view description;
};

constexpr std::array<Wording, LossBook::causes> wordings{{
    {"events", "process events"},
    {"names", "names of programs"},
    {"records", "records"},
    {"taken_away", "records whose file was taken away"},
    {"unopened", "looks at processes"},
    {"exit_codes", "exit codes"},
    {"messages", "messages"},
}};
} // namespace

std::string_view LossBook::nameOf(Cause cause) {
    return wordings.at(static_cast<size_t>(cause)).name;
}

std::string_view LossBook::describe(Cause cause) {
    return wordings.at(static_cast<size_t>(cause)).description;
}

void LossBook::add(Cause cause, uint64_t count) {
    Words& words = words_[static_cast<size_t>(cause)];
    const int32_t now = platform().clock->now();
    int32_t never = 0;
    words.first.compare_exchange_strong(never, now);
    words.last = now;
    words.count += count;
}

LossBook::Entry LossBook::entry(Cause cause) const {
    const Words& words = words_[static_cast<size_t>(cause)];
    return {words.count, words.first, words.last};
}

LossBook& lossBook() {
    static LossBook book;
    return book;
}

} // namespace Velmor
