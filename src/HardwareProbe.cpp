#include "HardwareProbe.h"

#include <algorithm>
#include <cstring>

namespace dv::env::internal {

namespace {

constexpr std::uint32_t extendedBase = 0x80000000;

CpuIdTable::Entry entryOf(const platform::CpuIdRegisters& registers) {
    return {registers.eax, registers.ebx, registers.edx, registers.ecx};
}

void readRange(platform::Hardware& hardware, std::uint32_t first, std::uint32_t last,
               std::vector<CpuIdTable::Entry>& entries) {
    // 64-bit, so a range ending at the top of the leaf numbers still ends.
    for (std::uint64_t leaf = first; leaf <= last; ++leaf) {
        platform::CpuIdRegisters registers;
        if (!hardware.cpuid(static_cast<std::uint32_t>(leaf), registers))
            throw ProcessorFault{};
        entries.push_back(entryOf(registers));
    }
}

// Puts the thread's scheduling back on every way out of the measure.
class RaisedPriority {
public:
    explicit RaisedPriority(platform::Hardware& hardware) : hardware_(hardware), saved_(hardware.priority()) {
        // Refused without the right to realtime scheduling: the measure then
        // runs at the thread's normal priority.
        hardware_.setPriority(hardware_.realtimePriority());
    }
    ~RaisedPriority() { hardware_.setPriority(saved_); }
    RaisedPriority(const RaisedPriority&) = delete;
    RaisedPriority& operator=(const RaisedPriority&) = delete;

private:
    platform::Hardware& hardware_;
    platform::ThreadPriority saved_;
};

std::uint64_t cycles(platform::Hardware& hardware) {
    const auto value = hardware.cycleCounter();
    if (!value)
        throw ProcessorFault{};
    return *value;
}

std::uint32_t ticks(platform::Hardware& hardware) { return static_cast<std::uint32_t>(hardware.counter()); }

std::string vendorOf(const CpuIdTable& table) {
    const auto leaf0 = table.leaf(0);
    char text[12];
    std::memcpy(text, &leaf0[1], sizeof text);
    return std::string(text, sizeof text);
}

std::string brandString(const CpuIdTable& table) {
    char text[49] = {};
    for (std::uint32_t part = 0; part < 3; ++part) {
        const auto entry = table.leaf(extendedBase + 2 + part);
        const std::uint32_t words[4] = {entry[CpuIdTable::eax], entry[CpuIdTable::ebx], entry[CpuIdTable::ecx],
                                        entry[CpuIdTable::edx]};
        std::memcpy(text + 16 * part, words, sizeof words);
    }
    return text;  // up to the first NUL
}

std::string intelName(const CpuInfo& info, unsigned slot, unsigned family, unsigned model, unsigned stepping,
                      bool hasFpu) {
    switch (family) {
    case 4:
        if (model == 4 && stepping >= 3)
            return "Intel 486 SL";
        if (model == 7 && stepping >= 3)
            return "Intel Writeback Enhanced 486 DX2";
        if (model == 8 && stepping >= 3)
            return "Intel 486 DX4";
        return std::string("80486 ") + (hasFpu ? "DX" : "SX");
    case 5:
        return model == 4 ? "Intel Pentium with MMX" : model == 8 ? "Intel Mobile Pentium" : "Intel Pentium";
    case 6: {
        if (model == 3)
            return "Intel Pentium II";
        if (model < 5 || model > 7)
            return "Intel Pentium Pro";
        unsigned cache = 0;
        if (!l2CacheSize(info, slot, cache))
            return "Unknown Intel Processor";
        constexpr unsigned mebibyte = 1024 * 1024;
        if (model == 5)
            return cache == 0 ? "Intel Pentium II Celeron" : cache < mebibyte ? "Intel Pentium II" : "Intel Pentium II Xeon";
        if (model == 6)
            return cache == 128 * 1024 ? "Intel Pentium II Celeron A" : "Intel Mobile Pentium II";
        return cache < mebibyte ? "Intel Pentium III" : "Intel Pentium III Xeon";
    }
    default:
        return "Unknown Intel Processor";
    }
}

std::string amdName(unsigned family, unsigned model) {
    if (family == 4)
        return "AMD Am486";
    if (family == 5) {
        if (model <= 3)
            return "AMD K5";
        if (model == 6 || model == 7)
            return "AMD K6";
        if (model == 8)
            return "AMD K62 with 3D Now!";
        if (model == 9)
            return "AMD K63 with 3D Now!";
    }
    if (family == 6)
        return "AMD K7";
    return "Unknown AMD uCpu";
}

std::string cyrixName(unsigned family, unsigned model) {
    if (family == 4 && model == 4)
        return "Cyrix MediaGX";
    if (family == 5 && model == 0)
        return "Cyrix 586";
    if (family == 5 && model == 2)
        return "Cyrix 686";
    if (family == 5 && model == 4)
        return "Cyrix GXm";
    if (family == 6 && model == 0)
        return "Cyrix 686MX";
    return "Unknown Cyrix Processor";
}

std::string centaurName(unsigned family, unsigned model) {
    if (family == 5 && model == 4)
        return "IDT WinChip";
    if (family == 5 && model == 8)
        return "IDT WinChip2";
    return "Unknown IDT uCpu";
}

// The name of a processor without a brand string, from its vendor, family,
// model and stepping (the extended fields are not looked at).
std::string identifiedName(const CpuInfo& info, unsigned slot) {
    const CpuIdTable& table = *info.tables[slot];
    const auto leaf1 = table.leaf(1);
    const std::uint32_t signature = leaf1[CpuIdTable::eax];
    const unsigned family = (signature >> 8) & 0xF, model = (signature >> 4) & 0xF, stepping = signature & 0xF;
    const bool hasFpu = (leaf1[CpuIdTable::edx] & 1) != 0;

    const std::string vendor = vendorOf(table);
    std::string name;
    if (vendor == "GenuineIntel")
        name = intelName(info, slot, family, model, stepping, hasFpu);
    else if (vendor == "AuthenticAMD")
        name = amdName(family, model);
    else if (vendor == "CyrixInstead")
        name = cyrixName(family, model);
    else if (vendor == "CentaurHauls")
        name = centaurName(family, model);
    else
        name = "Unknown uCpu";

    if (((signature >> 12) & 0x3) == 1)
        name += " Overdrive";
    return name;
}

}  // namespace

CpuIdTable::Entry CpuIdTable::leaf(std::uint32_t number) const {
    if (number >= extendedBase) {
        const std::uint32_t index = number - extendedBase;
        return index < extended.size() ? extended[index] : Entry{};
    }
    return number < standard.size() ? standard[number] : Entry{};
}

void measureProcessors(CpuInfo& info) {
    platform::Hardware& hardware = platform::hardware();
    info.processorCount = std::min(hardware.processorCount(), maxProcessors);
    const auto mask = hardware.processAffinityMask();
    if (!mask)
        return;
    info.processMask = *mask;
    for (unsigned processor = 0; processor < info.processorCount; ++processor) {
        if (!(info.processMask & (std::uint64_t{1} << processor)))
            continue;
        info.tables[info.slotCount].reset();
        // One thread at a time: it works on slot `slotCount` while this one
        // waits. A thread that could not start leaves its slot empty.
        hardware.runPinned(processor, [&info] { measureProcessor(info); });
        ++info.slotCount;
    }
    info.ready = true;
}

int measureProcessor(CpuInfo& info) {
    const unsigned slot = info.slotCount;
    info.tables[slot].reset();
    info.speeds[slot] = 100.0f;
    try {
        info.tables[slot] = std::make_unique<CpuIdTable>();
        readCpuId(*info.tables[slot]);
        const bool hasCycleCounter = (info.tables[slot]->leaf(1)[CpuIdTable::edx] & (1u << 4)) != 0;
        if (hasCycleCounter) {
            try {
                info.speeds[slot] = measureSpeed();
            } catch (const ProcessorFault&) {
                info.speeds[slot] = 100.0f;
            }
        }
        return 1;
    } catch (...) {
        info.tables[slot].reset();
        return 0;
    }
}

void readCpuId(CpuIdTable& table) {
    platform::Hardware& hardware = platform::hardware();
    table = CpuIdTable{};
    platform::CpuIdRegisters registers;
    if (!hardware.cpuid(0, registers))
        throw ProcessorFault{};
    table.maxLeaf = registers.eax;
    table.maxExtendedLeaf = hardware.cpuid(extendedBase, registers) ? registers.eax : 0;

    readRange(hardware, 0, table.maxLeaf, table.standard);
    if (table.maxExtendedLeaf >= extendedBase)
        readRange(hardware, extendedBase, table.maxExtendedLeaf, table.extended);
}

float measureSpeed() {
    platform::Hardware& hardware = platform::hardware();
    const auto frequency = hardware.counterFrequency();
    if (!frequency)
        return 0.0f;
    const auto lowFrequency = static_cast<std::uint32_t>(*frequency);
    RaisedPriority raised(hardware);
    return settleSpeed([&] { return takeReading(lowFrequency); });
}

std::uint64_t takeReading(std::uint32_t frequency) {
    platform::Hardware& hardware = platform::hardware();
    const std::uint32_t t0 = ticks(hardware);
    std::uint32_t now = t0;
    do
        now = ticks(hardware);
    while (static_cast<std::uint32_t>(now - t0) < 50);
    const std::uint64_t c0 = cycles(hardware);
    const std::uint32_t t1 = now;

    do
        now = ticks(hardware);
    while (static_cast<std::uint32_t>(now - t1) < 1000);
    const std::uint64_t c1 = cycles(hardware);
    const std::uint32_t elapsed = now - t1;

    // A frequency below 10 ticks per second divides by zero, which the
    // processor would raise: a fault like any other.
    if (frequency / 10 == 0)
        throw ProcessorFault{};
    std::uint32_t us = elapsed * 100000u / (frequency / 10);
    if (us % frequency > frequency / 2)
        ++us;
    if (us == 0)
        throw ProcessorFault{};

    const std::uint64_t spent = c1 - c0;
    std::uint64_t reading = spent / us;
    if (spent % us > us / 2)
        ++reading;
    return reading;
}

float settleSpeed(const std::function<std::uint64_t()>& nextReading) {
    std::uint64_t readings[3] = {0, 0, 0};
    std::uint64_t total = 0;
    for (unsigned iteration = 1;; ++iteration) {
        readings[0] = readings[1];
        readings[1] = readings[2];
        readings[2] = nextReading();
        total = readings[0] + readings[1] + readings[2];
        if (iteration < 3)
            continue;
        if (iteration >= 20)
            break;
        bool settled = true;
        for (const std::uint64_t reading : readings) {
            const std::uint64_t thrice = 3 * reading;
            settled = settled && (thrice > total ? thrice - total : total - thrice) <= 3;
        }
        if (settled)
            break;
    }
    if (total / 3 != (total + 1) / 3)
        ++total;
    return static_cast<float>(static_cast<double>(total) / 3.0);
}

bool cpuName(const CpuInfo& info, unsigned slot, std::string& name) {
    if (slot >= maxProcessors || !info.tables[slot])
        return false;
    const CpuIdTable& table = *info.tables[slot];
    // The brand string is taken from the table, which the pinned thread read
    // on this very processor; it is used as given, leading blanks and all.
    name = table.maxExtendedLeaf >= extendedBase + 4 ? brandString(table) : identifiedName(info, slot);
    return true;
}

bool l2CacheSize(const CpuInfo& info, unsigned slot, unsigned& bytes) {
    if (slot >= maxProcessors || !info.tables[slot])
        return false;
    const CpuIdTable& table = *info.tables[slot];
    if (table.maxLeaf < 2 && table.maxExtendedLeaf < extendedBase + 5)
        return false;

    if (table.maxLeaf >= 2) {
        const auto leaf2 = table.leaf(2);
        if ((leaf2[CpuIdTable::eax] & 0xFF) != 1)
            return false;
        // Descriptor bytes: the upper three of EAX, then EBX, ECX and EDX,
        // each from its low byte. A later size overrides an earlier one.
        const std::uint32_t words[4] = {leaf2[CpuIdTable::eax] >> 8, leaf2[CpuIdTable::ebx], leaf2[CpuIdTable::ecx],
                                        leaf2[CpuIdTable::edx]};
        unsigned size = 0;
        for (unsigned word = 0; word < 4; ++word) {
            for (unsigned byte = 0; byte < (word == 0 ? 3u : 4u); ++byte) {
                const unsigned descriptor = (words[word] >> (8 * byte)) & 0xFF;
                if (descriptor >= 0x40 && descriptor <= 0x45)
                    size = descriptor == 0x40 ? 0 : (64 * 1024) << (descriptor - 0x40);
            }
        }
        bytes = size;
        return true;
    }
    if (table.maxExtendedLeaf == extendedBase + 5) {
        bytes = 0;
        return true;
    }
    bytes = (table.leaf(extendedBase + 6)[CpuIdTable::ecx] >> 16) * 1024;
    return true;
}

}  // namespace dv::env::internal
