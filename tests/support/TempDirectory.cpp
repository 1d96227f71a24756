#include "support/TempDirectory.h"

#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>

namespace Velmor {

TempDirectory::TempDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velmorXXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("no temporary directory");
    path_ = pattern + "/";
}

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempDirectory::write(const std::string& name, const std::string& text) const {
    const std::string path = path_ + name;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

std::string TempDirectory::namesOf(const std::string& directory) {
    std::set<std::string> sorted;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        sorted.insert(entry.path().filename().string());
    std::string text;
    for (const std::string& name : sorted)
        text += (text.empty() ? "" : " ") + name;
    return text;
}

std::string readFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

uint32_t modeOf(const std::string& path) {
    struct stat state {};
    return stat(path.c_str(), &state) == 0 ? state.st_mode & 07777U : 0;
}

} // namespace Velmor
