// Message catalogues of any bytes, and a message that takes its wording from them.

#include "FuzzFile.h"

#include "shared/library/logger/LogCommons.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    static const FuzzFile file;
    const std::filesystem::path directory = std::filesystem::path(file.directory()) / "LogMessages";
    std::filesystem::create_directories(directory);
    std::filesystem::copy_file(file.write(data, size), directory / "agent.mess",
                               std::filesystem::copy_options::overwrite_existing);
    LogCommons messages;
    messages.loadMessages(file.directory() + "/", "agent");
    std::string wording;
    if (messages.findMessage(LogModule::agent, 1, wording))
        LogCommons::formatMessage(wording, "s5:text");
    return 0;
}
