#include "platform/linux/naming/PackageNote.h"

#include "platform/linux/base/Capabilities.h"
#include "platform/linux/base/FileDescriptor.h"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <vector>

namespace Velmor {

namespace {
constexpr uint32_t packageNoteType = 0xcafe1a7e;
constexpr std::string_view packageNoteOwner{"FDO\0", 4};
constexpr size_t mostSegments = 256;
constexpr size_t longestNotes = 64 * 1024;

bool readAt(const FileDescriptor& file, void* buffer, size_t size, uint64_t offset) {
    return pread(file.get(), buffer, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

constexpr size_t padded(size_t size) {
    return (size + 3) & ~size_t{3};
}

/// The text of the package note among the notes of a segment; empty if it isn't there. Lengths that lie end the search.
std::string findNote(const std::string& notes) {
    size_t at = 0;
    while (notes.size() - at >= sizeof(Elf64_Nhdr)) {
        Elf64_Nhdr header{};
        std::memcpy(&header, notes.data() + at, sizeof(header));
        at += sizeof(header);
        const size_t nameSize = padded(header.n_namesz);
        const size_t textSize = padded(header.n_descsz);
        if (nameSize > notes.size() - at || textSize > notes.size() - at - nameSize)
            break;
        const std::string_view name = std::string_view(notes).substr(at, header.n_namesz);
        if (header.n_type == packageNoteType && name == packageNoteOwner)
            return notes.substr(at + nameSize,
                                std::min<size_t>(header.n_descsz, notes.find('\0', at + nameSize) - at - nameSize));
        at += nameSize + textSize;
    }
    return {};
}

template <typename Header, typename Segment>
std::string findNoteInFile(const FileDescriptor& file) {
    Header header{};
    if (!readAt(file, &header, sizeof(header), 0) || header.e_phentsize != sizeof(Segment))
        return {};
    std::vector<Segment> segments(std::min<size_t>(header.e_phnum, mostSegments));
    if (!readAt(file, segments.data(), segments.size() * sizeof(Segment), header.e_phoff))
        return {};
    for (const Segment& segment : segments) {
        if (segment.p_type != PT_NOTE)
            continue;
        std::string notes(std::min<size_t>(segment.p_filesz, longestNotes), '\0');
        if (!readAt(file, notes.data(), notes.size(), segment.p_offset))
            continue;
        if (std::string text = findNote(notes); !text.empty())
            return text;
    }
    return {};
}

std::string textOf(const nlohmann::json& note, const char* key) {
    const auto value = note.find(key);
    return value != note.end() && value->is_string() ? value->get<std::string>() : std::string();
}
} // namespace

bool readPackageNote(const std::string& path, FileDescription& description) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    const LoweredCapabilities lowered;
    unsigned char identity[EI_NIDENT] = {};
    if (!file || !readAt(file, identity, sizeof(identity), 0) || std::memcmp(identity, ELFMAG, SELFMAG) != 0)
        return false;
    const std::string text = identity[EI_CLASS] == ELFCLASS64 ? findNoteInFile<Elf64_Ehdr, Elf64_Phdr>(file)
                                                              : findNoteInFile<Elf32_Ehdr, Elf32_Phdr>(file);
    const nlohmann::json note = nlohmann::json::parse(text, nullptr, false);
    if (!note.is_object())
        return false;
    description.product = textOf(note, "name");
    description.version = textOf(note, "version");
    return !description.product.empty();
}

} // namespace Velmor
