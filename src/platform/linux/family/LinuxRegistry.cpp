#include "platform/linux/family/LinuxRegistry.h"

#include "platform/Errors.h"
#include "platform/linux/base/Errno.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/FileIdentity.h"
#include "platform/linux/family/Directories.h"
#include "platform/linux/family/SafeDirectory.h"
#include "platform/linux/threads/Checkpoint.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/file.h>
#include <toml++/toml.h>

namespace Velmor {

namespace {
constexpr mode_t fileMode = 0640;
constexpr mode_t lockMode = 0600;
constexpr int lockLimit = 2000; // milliseconds
constexpr const char* ownFile = "resources.toml";

bool sameState(const struct stat& a, const struct stat& b) {
    return FileIdentity(a) == FileIdentity(b) && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

std::string bytesOf(int32_t narrow) {
    std::string data(sizeof(narrow), '\0');
    std::memcpy(data.data(), &narrow, sizeof(narrow));
    return data;
}

std::string partsOf(const toml::array& array) {
    std::string data;
    for (const auto& part : array)
        data.append(part.as_string()->get()).push_back('\0');
    return data;
}

/// False for what the family has no type for.
bool takeValue(const toml::node& node, uint32_t& type, std::string& data) {
    if (const auto* text = node.as_string()) {
        type = RegistryType::text;
        data = text->get();
        return true;
    }
    if (const auto* number = node.as_integer()) {
        type = RegistryType::number;
        data = bytesOf(static_cast<int32_t>(number->get()));
        return number->get() == static_cast<int32_t>(number->get());
    }
    const auto* array = node.as_array();
    if (!array || !(array->empty() || array->is_homogeneous<std::string>()))
        return false;
    type = RegistryType::multiText;
    data = partsOf(*array);
    return true;
}

std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out.append(1, '\\').append(1, c);
        } else if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04X", static_cast<unsigned>(c));
            out.append(escape.data());
        } else {
            out += c;
        }
    }
    return out + '"';
}

std::string mistake(const std::string& path, uint32_t line, const std::string& what) {
    return "The file of the family's values \"" + path + "\" has a mistake in line " + std::to_string(line) + " (" +
           what + "); correct it.";
}

bool isToml(const std::string& text) {
    try {
        static_cast<void>(toml::parse(text));
        return true;
    } catch (const toml::parse_error&) {
        return false;
    }
}

/// Waits for its turn, but not for ever: whoever stands still with the lock must not stop all others.
bool lockWithin(int file, int milliseconds) {
    constexpr int pause = 10;
    for (int waited = 0; flock(file, LOCK_EX | LOCK_NB) != 0; waited += pause) {
        if (errno != EWOULDBLOCK || waited >= milliseconds)
            return false;
        poll(nullptr, 0, pause);
    }
    return true;
}

/// The form of a value in the file.
std::string textOf(uint32_t type, std::string_view data) {
    if (type == RegistryType::number) {
        int32_t number = 0;
        std::memcpy(&number, data.data(), sizeof(number));
        return std::to_string(number);
    }
    if (type == RegistryType::text)
        return quoted(data);
    std::string parts;
    for (size_t end = 0; (end = data.find('\0')) != std::string_view::npos; data.remove_prefix(end + 1))
        parts += (parts.empty() ? "" : ", ") + quoted(data.substr(0, end));
    return "[" + parts + "]";
}
} // namespace

void LinuxRegistry::refresh(Source& source, const std::string& path) {
    struct stat state {};
    if (stat(path.c_str(), &state) != 0) {
        const int error = errno;
        source = {};
        source.path = path;
        source.isMissing = error == ENOENT || error == ENOTDIR;
        source.problem = "The file of the family's values \"" + path + "\" can't be read (" + std::strerror(error) +
                         "); create it, or name another by VELMOR_RESOURCES.";
        return;
    }
    if (source.path == path && source.problem.empty() && sameState(source.state, state))
        return;
    source = {};
    source.path = path;
    source.state = state;
    parse(source);
}

void LinuxRegistry::parse(Source& source) {
    std::ifstream file(source.path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file || S_ISDIR(source.state.st_mode)) {
        source.problem = "The file of the family's values \"" + source.path + "\" can't be read; make it readable.";
        return;
    }
    try {
        const toml::table table = toml::parse(text.str());
        for (const auto& [key, node] : table) {
            Value value;
            if (takeValue(node, value.type, value.data))
                source.values.emplace(std::string(key.str()), std::move(value));
            else
                source.problem =
                    mistake(source.path, node.source().begin.line,
                            std::string(key.str()) + " is no text, no array of texts and no number of 32 bits");
        }
    } catch (const toml::parse_error& error) {
        source.problem = mistake(source.path, error.source().begin.line, std::string(error.description()));
    }
}

bool LinuxRegistry::isReadable(std::string& cause) {
    checkpoint();
    for (const std::string& directory : {stateDirectory(), runtimeDirectory()})
        if (cause = directoryProblem(directory); !cause.empty())
            return false;
    const ServiceLock lock(mutex_);
    refresh(administrators_, resourcesFile());
    refresh(written_, stateDirectory() + "/" + ownFile);
    cause = administrators_.problem;
    if (cause.empty() && !written_.isMissing)
        cause = written_.problem;
    return cause.empty();
}

const LinuxRegistry::Value* LinuxRegistry::find(std::string_view name) {
    refresh(written_, stateDirectory() + "/" + ownFile);
    refresh(administrators_, resourcesFile());
    for (const Source* source : {&written_, &administrators_})
        if (const auto value = source->values.find(name); value != source->values.end())
            return &value->second;
    return nullptr;
}

bool LinuxRegistry::read(std::string_view name, uint32_t& type, std::string& data, uint32_t& error) {
    checkpoint();
    const ServiceLock lock(mutex_);
    const Value* value = find(name);
    error = value ? NativeError::success : NativeError::fileNotFound;
    if (!value)
        return false;
    type = value->type;
    data = value->data;
    return true;
}

bool LinuxRegistry::writeText(std::string_view name, std::string_view text, uint32_t& error) {
    checkpoint();
    const StopDeferral deferral;
    const SafeDirectory directory(stateDirectory());
    const FileDescriptor guard =
        directory ? directory.openFile(std::string(ownFile) + ".lock", O_RDWR | O_CREAT, lockMode) : FileDescriptor();
    if (!guard || !lockWithin(guard.get(), lockLimit)) {
        error = errno == EWOULDBLOCK ? NativeError::timeout : nativeError(errno);
        return false;
    }
    const ServiceLock lock(mutex_);
    refresh(written_, stateDirectory() + "/" + ownFile);
    if (!written_.problem.empty() && !written_.isMissing) { // a damaged file may still be mended by hand
        error = NativeError::generalFailure;
        return false;
    }
    std::map<std::string, std::string> lines{{std::string(name), quoted(text)}};
    for (const auto& [key, value] : written_.values)
        lines.try_emplace(key, textOf(value.type, value.data));
    std::string all;
    for (const auto& [key, value] : lines)
        all += quoted(key) + " = " + value + '\n';
    if (!isToml(all)) { // bytes that are no UTF-8 would damage all of the file
        error = NativeError::invalidParameter;
        return false;
    }
    const bool written = directory.writeFile(ownFile, all, fileMode);
    error = written ? NativeError::success : nativeError(errno);
    return written;
}

} // namespace Velmor
