#include "programs/collectors/agent/Win32/Runtally/status/MetricsFile.h"

#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/files/FileFactory.h"

namespace Velmor {

void MetricsFile::replace(const std::string& path, const std::string& text) {
    try {
        const SmartPointer<FileBase> file = FileFactory::create(path);
        file->open(FileBase::ACCESS_WRITE | FileBase::ACCESS_TRUNCATE | FileBase::ACCESS_CREATE |
                   FileBase::ACCESS_NOLOCK);
        file->write(text);
        file->close();
        failures_.restart();
    } catch (const FileException& failure) {
        if (uint32_t count = 0; failures_.passes(count))
            runtallyState().logger.warning(RuntallyMessage::metricsNotWritten, path, failure.getCodeText());
    }
}

} // namespace Velmor
