#pragma once

#include <cstdint>

namespace Velmor {

/// The error numbers of the native API that the logic tests or prints; every port answers in these.
namespace NativeError {
constexpr uint32_t success = 0;
constexpr uint32_t invalidFunction = 1;
constexpr uint32_t fileNotFound = 2;
constexpr uint32_t pathNotFound = 3;
constexpr uint32_t tooManyOpenFiles = 4;
constexpr uint32_t accessDenied = 5;
constexpr uint32_t invalidHandle = 6;
constexpr uint32_t notEnoughMemory = 8;
constexpr uint32_t writeProtect = 19;
constexpr uint32_t writeFault = 29; // what was written before didn't reach the disk, and can't any more
constexpr uint32_t generalFailure = 31;
constexpr uint32_t sharingViolation = 32;
constexpr uint32_t badLength = 24;
constexpr uint32_t notSupported = 50;
constexpr uint32_t fileExists = 80;
constexpr uint32_t invalidParameter = 87; // also: no such process
constexpr uint32_t diskFull = 112;
constexpr uint32_t invalidName = 123;
constexpr uint32_t directoryNotEmpty = 145;
constexpr uint32_t alreadyExists = 183;
constexpr uint32_t moreData = 234;
constexpr uint32_t noMoreFiles = 18;
constexpr uint32_t directoryName = 267;
constexpr uint32_t cancelled = 1223;
constexpr uint32_t instanceNotFound = 4201; // no trace session of that name
constexpr uint32_t noneMapped = 1332;       // no account for this SID
constexpr uint32_t timeout = 1460;
constexpr uint32_t ioDevice = 1117;
} // namespace NativeError

constexpr uint32_t stillActive = 259; // exit code of a process or thread that runs

} // namespace Velmor
