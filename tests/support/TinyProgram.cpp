#include "support/TinyProgram.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace Velmor {

void writeTinyProgram(const std::string& path, bool waits) {
#if defined(__x86_64__)
    std::array<unsigned char, 132> image{
        0x7f, 'E',  'L',  'F', 2,    1,    1,    0, 0,    0, 0,    0,    0, 0, 0, 0, // identity
        2,    0,    0x3e, 0,   1,    0,    0,    0, 0x78, 0, 0x40, 0,    0, 0, 0, 0, // entry 0x400078
        0x40, 0,    0,    0,   0,    0,    0,    0, 0,    0, 0,    0,    0, 0, 0, 0, // segments at 0x40
        0,    0,    0,    0,   0x40, 0,    0x38, 0, 1,    0, 0,    0,    0, 0, 0, 0, //
        1,    0,    0,    0,   5,    0,    0,    0, 0,    0, 0,    0,    0, 0, 0, 0, // to be loaded, read and executed
        0,    0,    0x40, 0,   0,    0,    0,    0, 0,    0, 0x40, 0,    0, 0, 0, 0, //
        0x84, 0,    0,    0,   0,    0,    0,    0, 0x84, 0, 0,    0,    0, 0, 0, 0, //
        0,    0x10, 0,    0,   0,    0,    0,    0,                                  //
        0xb8, 0x3c, 0,    0,   0,    0xbf, 7,    0, 0,    0, 0x0f, 0x05,             // exit(7)
    };
    constexpr size_t callNumber = 121;
    constexpr unsigned char pauseCall = 34;
    if (waits)
        image.at(callNumber) = pauseCall;
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(image.data()), image.size());
#else
    std::filesystem::copy_file(waits ? "/bin/sleep" : "/bin/true", path);
#endif
    chmod(path.c_str(), 0755);
}

} // namespace Velmor
