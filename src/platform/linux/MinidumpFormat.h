#pragma once

// Safe inside the fault handler (no heap, no lock): types and constants only.
// The minidump format: little-endian structures at offsets ("RVAs") in the file.

#include <cstddef>
#include <cstdint>

namespace dv::env::platform::minidump {

constexpr std::uint32_t dumpSignature = 0x504d444d;  // "MDMP"
constexpr std::uint32_t dumpVersion = 0xa793;

enum StreamType : std::uint32_t {
    threadListStream = 3,
    moduleListStream = 4,
    memoryListStream = 5,
    exceptionStream = 6,
    systemInfoStream = 7,
    linuxProcStatusStream = 0x47670004,
    linuxMapsStream = 0x47670009,
};

constexpr std::uint16_t architectureAmd64 = 9;
constexpr std::uint32_t platformLinux = 0x8201;
constexpr std::uint32_t contextAmd64 = 0x00100000;
constexpr std::uint32_t contextControl = 0x1, contextInteger = 0x2, contextSegments = 0x4, contextFloatingPoint = 0x8;
// The format reads it as a little-endian 32-bit value: the bytes are "LEpB".
constexpr std::uint32_t cvSignatureElfBuildId = 0x4270454c;

#pragma pack(push, 4)
struct Location {
    std::uint32_t size;
    std::uint32_t rva;
};
struct MemoryDescriptor {
    std::uint64_t start;
    Location memory;
};
struct DirectoryEntry {
    std::uint32_t type;
    Location location;
};
struct Header {
    std::uint32_t signature;
    std::uint32_t version;
    std::uint32_t streams;
    std::uint32_t directoryRva;
    std::uint32_t checksum;
    std::uint32_t timeDateStamp;
    std::uint64_t flags;
};
struct SystemInfo {
    std::uint16_t processorArchitecture;
    std::uint16_t processorLevel;
    std::uint16_t processorRevision;
    std::uint8_t processorCount;
    std::uint8_t productType;
    std::uint32_t majorVersion;
    std::uint32_t minorVersion;
    std::uint32_t buildNumber;
    std::uint32_t platformId;
    std::uint32_t csdVersionRva;
    std::uint16_t suiteMask;
    std::uint16_t reserved;
    std::uint32_t vendorId[3];
    std::uint32_t versionInformation;
    std::uint32_t featureInformation;
    std::uint32_t amdExtendedFeatures;
};
struct ThreadEntry {
    std::uint32_t threadId;
    std::uint32_t suspendCount;
    std::uint32_t priorityClass;
    std::uint32_t priority;
    std::uint64_t environmentBlock;
    MemoryDescriptor stack;
    Location context;
};
struct ModuleEntry {
    std::uint64_t base;
    std::uint32_t size;
    std::uint32_t checksum;
    std::uint32_t timeDateStamp;
    std::uint32_t nameRva;
    std::uint32_t versionInfo[13];
    Location cvRecord;
    Location miscRecord;
    std::uint64_t reserved0;
    std::uint64_t reserved1;
};
struct ExceptionEntry {
    std::uint32_t threadId;
    std::uint32_t alignment;
    std::uint32_t code;
    std::uint32_t flags;
    std::uint64_t record;
    std::uint64_t address;
    std::uint32_t parameterCount;
    std::uint32_t unused;
    std::uint64_t information[15];
    Location context;
};
struct Context {
    std::uint64_t home[6];
    std::uint32_t flags;
    std::uint32_t mxcsr;
    std::uint16_t cs, ds, es, fs, gs, ss;
    std::uint32_t eflags;
    std::uint64_t debug[6];
    std::uint64_t rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi;
    std::uint64_t r8, r9, r10, r11, r12, r13, r14, r15;
    std::uint64_t rip;
    std::uint8_t floatingPoint[512];
    std::uint8_t vectorRegisters[26 * 16];
    std::uint64_t vectorControl;
    std::uint64_t debugControl;
    std::uint64_t lastBranchToRip;
    std::uint64_t lastBranchFromRip;
    std::uint64_t lastExceptionToRip;
    std::uint64_t lastExceptionFromRip;
};
#pragma pack(pop)

static_assert(sizeof(Header) == 32);
static_assert(sizeof(DirectoryEntry) == 12);
static_assert(sizeof(MemoryDescriptor) == 16);
static_assert(sizeof(SystemInfo) == 56);
static_assert(sizeof(ThreadEntry) == 48);
static_assert(sizeof(ModuleEntry) == 108);
static_assert(sizeof(ExceptionEntry) == 168);
static_assert(sizeof(Context) == 1232);
static_assert(offsetof(Context, rip) == 248);

}  // namespace dv::env::platform::minidump
