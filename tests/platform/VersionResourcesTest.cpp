#include "platform/linux/naming/LinuxVersionResources.h"

#include "support/TempDirectory.h"

#include <cstring>
#include <elf.h>
#include <gtest/gtest.h>

namespace Velmor {

namespace {
/// An ELF file that holds nothing but a package note with this text.
std::string elfWithNote(const std::string& text) {
    Elf64_Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_phoff = sizeof(header);
    header.e_phentsize = sizeof(Elf64_Phdr);
    header.e_phnum = 1;
    const Elf64_Nhdr note{4, static_cast<uint32_t>(text.size() + 1), 0xcafe1a7e};
    Elf64_Phdr segment{};
    segment.p_type = PT_NOTE;
    segment.p_offset = sizeof(header) + sizeof(segment);
    std::string padded = text + '\0';
    padded.resize((padded.size() + 3) & ~size_t{3});
    segment.p_filesz = sizeof(note) + 4 + padded.size();
    std::string file;
    const auto add = [&](const void* bytes, size_t size) { file.append(static_cast<const char*>(bytes), size); };
    add(&header, sizeof(header));
    add(&segment, sizeof(segment));
    add(&note, sizeof(note));
    return file + std::string("FDO\0", 4) + padded;
}

class VersionResourcesTest : public testing::Test {
protected:
    /// Description, product and version, "-" where there is none; empty if the file says nothing.
    std::string ask(const std::string& path) {
        const auto resource = resources->open(path);
        if (!resource)
            return {};
        const auto translations = resource->translations();
        EXPECT_TRUE(translations.size() == 1 && translations[0].language == 1033 && translations[0].codePage == 1200);
        std::string all;
        for (const char* name : {"FileDescription", "ProductName", "FileVersion"}) {
            std::string value;
            if (!resource->string(translations[0], name, value))
                value = std::string("-") + '\0';
            all += value;
        }
        return all;
    }
    static std::string answer(const std::string& description, const std::string& product, const std::string& version) {
        return description + '\0' + product + '\0' + version + '\0';
    }

    TempDirectory directory;
    std::string root = directory.path().substr(0, directory.path().size() - 1);
    std::unique_ptr<LinuxVersionResources> resources = std::make_unique<LinuxVersionResources>(root, root);
};
} // namespace

TEST_F(VersionResourcesTest, ThePackageNoteInTheFileIsBelievedFirst) {
    const std::string path =
        directory.write("Prog", elfWithNote(R"({"type":"deb","name":"editor","version":"1.2-3","os":"debian"})"));
    directory.write("usr/share/applications/e.desktop", "[Desktop Entry]\nName=Other\nExec=" + path + " %U\n");
    EXPECT_EQ(ask(path), answer("-", "editor", "1.2-3"));
    EXPECT_EQ(ask(directory / "prog"), answer("-", "editor", "1.2-3")) << "paths come in lower case";
}

TEST_F(VersionResourcesTest, NotesThatLieAreNoNotes) {
    const std::string whole = elfWithNote(R"({"name":"x","version":"1"})");
    for (size_t size = 0; size < whole.size() - 16; ++size)
        EXPECT_EQ(ask(directory.write("cut", whole.substr(0, size))), "") << size;
    for (const char* text : {"", "{", "[]", "7", R"({"name":7})", "{\"name\":\"\xff\"}"})
        EXPECT_EQ(ask(directory.write("odd", elfWithNote(text))), "") << text;
    EXPECT_EQ(ask(directory.write("forged", elfWithNote(R"({"name":"a\nb","version":"1"})"))), answer("-", "a?b", "1"));
    EXPECT_EQ(ask(directory / "absent"), "");
}

TEST_F(VersionResourcesTest, ADesktopEntryNamesItsProgramAndThePackageItsVersion) {
    const std::string path = directory.write("usr/lib/draw/draw", "#!/bin/sh\n");
    directory.write("usr/share/applications/draw.desktop",
                    "# comment\n[Desktop Entry]\nName[de]=Malen\nName=Drawing\nExec=\"" + path +
                        "\" --new %F\n[Desktop Action x]\nName=Action\n");
    EXPECT_EQ(ask(path), answer("Drawing", "-", "-"));
    directory.write("var/lib/dpkg/info/draw:amd64.list", "/usr\n/usr/lib\n" + path + "\n");
    directory.write("var/lib/dpkg/status", "Package: drawing\nVersion: 0\n\nPackage: draw\nStatus: install ok\n"
                                           "Version: 2:7.1+b2\n\nPackage: x\nVersion: 9\n");
    resources = std::make_unique<LinuxVersionResources>(root, root);
    EXPECT_EQ(ask(path), answer("Drawing", "draw", "2:7.1+b2"));
}

TEST_F(VersionResourcesTest, MergedDirectoriesAreOnePlace) {
    directory.write("var/lib/dpkg/info/a.list", "/bin/true\n/usr/share/doc/a\n");
    directory.write("var/lib/dpkg/info/b.list", "/usr/bin/env\n");
    directory.write("var/lib/dpkg/status", "Package: a\nVersion: 1\n\nPackage: b\nVersion: 2\n");
    for (const char* path : {"/bin/true", "/usr/bin/true"})
        EXPECT_EQ(ask(path), answer("-", "a", "1")) << path;
    for (const char* path : {"/bin/env", "/usr/bin/env"})
        EXPECT_EQ(ask(path), answer("-", "b", "2")) << path;
}

} // namespace Velmor
