#include "AppLogReports.h"
#include "HardwareProbe.h"

#include <gtest/gtest.h>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <thread>

namespace dv::env::internal {
namespace {

using platform::CpuIdRegisters;

constexpr std::uint32_t ext = 0x80000000;

// Registers whose EBX, EDX, ECX spell `vendor`, as leaf 0 does.
CpuIdRegisters vendorLeaf(std::uint32_t maxLeaf, const char* vendor) {
    CpuIdRegisters leaf{maxLeaf, 0, 0, 0};
    std::memcpy(&leaf.ebx, vendor, 4);
    std::memcpy(&leaf.edx, vendor + 4, 4);
    std::memcpy(&leaf.ecx, vendor + 8, 4);
    return leaf;
}

// The brand leaves 0x80000002 to 0x80000004 for `brand`, laid out EAX, EBX,
// ECX, EDX.
void putBrand(std::map<std::uint32_t, CpuIdRegisters>& leaves, const std::string& brand) {
    char text[48] = {};
    std::memcpy(text, brand.data(), std::min<std::size_t>(brand.size(), 48));
    for (std::uint32_t part = 0; part < 3; ++part) {
        CpuIdRegisters& leaf = leaves[ext + 2 + part];
        std::memcpy(&leaf.eax, text + 16 * part, 4);
        std::memcpy(&leaf.ebx, text + 16 * part + 4, 4);
        std::memcpy(&leaf.ecx, text + 16 * part + 8, 4);
        std::memcpy(&leaf.edx, text + 16 * part + 12, 4);
    }
}

// A machine of the test's making. Each processor answers from its own leaves;
// the counter runs 10 ticks per reading at 10 MHz and the cycle counter at
// `mhz` cycles per microsecond of it.
class FakeHardware : public platform::Hardware {
public:
    unsigned processorCount() override { return count; }
    std::optional<std::uint64_t> processAffinityMask() override { return mask; }
    bool runPinned(unsigned processor, const std::function<void()>& body) override {
        if (refused.count(processor))
            return false;
        visited.push_back(processor);
        current = processor;
        body();
        return true;
    }
    bool cpuid(std::uint32_t leaf, CpuIdRegisters& out) override {
        const auto& table = leaves.count(current) ? leaves[current] : leaves[0];
        if (leaf >= ext && faultExtended)
            return false;
        const auto found = table.find(leaf);
        out = found == table.end() ? CpuIdRegisters{} : found->second;
        return !(leaf == 0 && faultLeaf0);
    }
    std::optional<std::uint64_t> cycleCounter() override {
        if (faultCycles)
            return std::nullopt;
        return ticks * mhz / 10;
    }
    std::optional<std::uint64_t> counterFrequency() override { return frequency; }
    std::uint64_t counter() override { return ticks += 10; }
    platform::ThreadPriority priority() override { return now; }
    platform::ThreadPriority realtimePriority() override { return {1, 99}; }
    bool setPriority(const platform::ThreadPriority& priority) override {
        priorities.push_back(priority.level);
        now = priority;
        return true;
    }
    std::optional<platform::MemoryStatus> memoryStatus() override { return memory; }

    // A processor of `vendor` with a signature in leaf 1, a cycle counter,
    // and a brand string if one is given.
    void addProcessor(unsigned processor, const char* vendor, std::uint32_t signature, const std::string& brand = "") {
        auto& table = leaves[processor];
        table[0] = vendorLeaf(1, vendor);
        table[1] = CpuIdRegisters{signature, 0, 0, 1u << 4};
        table[ext] = CpuIdRegisters{brand.empty() ? 0 : ext + 4, 0, 0, 0};
        if (!brand.empty())
            putBrand(table, brand);
    }

    unsigned count = 4;
    std::optional<std::uint64_t> mask = 0xF;
    std::set<unsigned> refused;
    std::vector<unsigned> visited;
    std::map<unsigned, std::map<std::uint32_t, CpuIdRegisters>> leaves;
    unsigned current = 0;
    bool faultExtended = false, faultLeaf0 = false, faultCycles = false;
    std::uint64_t ticks = 0, mhz = 3000;
    std::optional<std::uint64_t> frequency = 10'000'000;
    platform::ThreadPriority now{0, 0};
    std::vector<int> priorities;
    std::optional<platform::MemoryStatus> memory;
};

std::vector<std::string> report(FakeHardware& hardware) {
    std::ostringstream out;
    writeHardwareInfo(out, hardware);
    std::vector<std::string> lines;
    std::istringstream in(out.str());
    for (std::string line; std::getline(in, line);) {
        EXPECT_EQ(line.substr(0, 17), "AppLog          :") << line;
        lines.push_back(line.substr(24));
    }
    return lines;
}

// --- The measure ----------------------------------------------------------

float settle(std::deque<std::uint64_t> readings, unsigned& taken) {
    taken = 0;
    return settleSpeed([&] {
        ++taken;
        const std::uint64_t next = readings.front();
        if (readings.size() > 1)
            readings.pop_front();
        return next;
    });
}

TEST(HardwareProbe, MeasureEndsWhenThreeReadingsAgreeFromTheThirdOn) {
    unsigned taken = 0;
    EXPECT_EQ(settle({300, 300, 300}, taken), 300.0f);
    EXPECT_EQ(taken, 3u);
    // Zeros agree too, but nothing is tested before the third reading.
    EXPECT_EQ(settle({0, 0, 0, 7}, taken), 0.0f);
    EXPECT_EQ(taken, 3u);
    // A total of 901 stays; 902 is rounded up to 903.
    EXPECT_FLOAT_EQ(settle({300, 300, 301}, taken), 901.0f / 3.0f);
    EXPECT_EQ(settle({300, 301, 301}, taken), 301.0f);
    // One reading 2 away from the mean of three in thirds is too far.
    EXPECT_EQ(settle({300, 300, 302, 302, 302}, taken), 302.0f);
    EXPECT_EQ(taken, 5u);
}

TEST(HardwareProbe, MeasureThatNeverSettlesEndsAtTheTwentiethReading) {
    std::deque<std::uint64_t> rising;
    for (std::uint64_t i = 1; i <= 25; ++i)
        rising.push_back(100 * i);
    unsigned taken = 0;
    EXPECT_EQ(settle(rising, taken), 1900.0f);  // 1800, 1900 and 2000
    EXPECT_EQ(taken, 20u);
}

// Scripted counter and cycle readings for one reading of the measure.
class ScriptedClock : public FakeHardware {
public:
    std::uint64_t counter() override {
        const std::uint64_t next = counts.front();
        if (counts.size() > 1)
            counts.pop_front();
        return next;
    }
    std::optional<std::uint64_t> cycleCounter() override {
        const std::uint64_t next = cycles.front();
        cycles.pop_front();
        return next;
    }
    std::deque<std::uint64_t> counts, cycles;
};

TEST(HardwareProbe, ReadingIsCyclesPerMicrosecondRoundedInThirtyTwoBitTicks) {
    ScriptedClock clock;
    // The counter's low half wraps between the readings; 1,234 ticks at 10 MHz
    // are 123 whole microseconds.
    const std::uint64_t t0 = 0xFFFFFFF0, t1 = t0 + 50;
    clock.counts = {t0, t0 + 49, t1, t1 + 999, t1 + 1234};
    clock.cycles = {1000, 1000 + 123 * 300 + 61};
    EXPECT_EQ(takeReading(clock, 10'000'000), 300u);
    clock.counts = {t0, t1, t1 + 1234};
    clock.cycles = {1000, 1000 + 123 * 300 + 62};
    EXPECT_EQ(takeReading(clock, 10'000'000), 301u);
    // The window's microseconds are figured in 32 bits: 50,000 ticks times
    // 100,000 wraps, and comes out as 705.
    clock.counts = {0, 50, 50'050};
    clock.cycles = {0, 705 * 2};
    EXPECT_EQ(takeReading(clock, 10'000'000), 2u);
}

TEST(HardwareProbe, CounterSoFastThatTheWindowHasNoMicrosecondIsAFault) {
    ScriptedClock clock;
    clock.counts = {0, 50, 1050};
    clock.cycles = {0, 1000};
    EXPECT_THROW(takeReading(clock, 0xFFFFFFFF), ProcessorFault);
}

// --- Names and caches -----------------------------------------------------

struct Table {
    const char* vendor = "GenuineIntel";
    unsigned family = 6, model = 0, stepping = 0, type = 0;
    bool fpu = true;
    std::uint32_t maxLeaf = 1;
    CpuIdTable::Entry leaf2{};
    std::uint32_t maxExtendedLeaf = 0;
    std::uint32_t ext6Ecx = 0;
};

std::string nameOf(const Table& spec, unsigned* cache = nullptr, bool* cacheKnown = nullptr) {
    auto table = std::make_unique<CpuIdTable>();
    table->maxLeaf = spec.maxLeaf;
    table->maxExtendedLeaf = spec.maxExtendedLeaf;
    const auto vendor = vendorLeaf(spec.maxLeaf, spec.vendor);
    table->standard.push_back({vendor.eax, vendor.ebx, vendor.edx, vendor.ecx});
    table->standard.push_back(
        {spec.type << 12 | spec.family << 8 | spec.model << 4 | spec.stepping, 0, spec.fpu ? 1u : 0u, 0});
    if (spec.maxLeaf >= 2)
        table->standard.push_back(spec.leaf2);
    if (spec.maxExtendedLeaf >= ext)
        table->extended.resize(spec.maxExtendedLeaf - ext + 1);
    if (spec.maxExtendedLeaf >= ext + 6)
        table->extended[6][CpuIdTable::ecx] = spec.ext6Ecx;

    CpuInfo info;
    info.tables[5] = std::move(table);
    std::string name;
    EXPECT_TRUE(cpuName(info, 5, name));
    unsigned bytes = 0;
    const bool known = l2CacheSize(info, 5, bytes);
    if (cache)
        *cache = bytes;
    if (cacheKnown)
        *cacheKnown = known;
    return name;
}

// Leaf 2 with its count byte 1 and the given descriptor in the given word.
CpuIdTable::Entry leaf2With(CpuIdTable::Word word, std::uint32_t value, std::uint8_t count = 1) {
    CpuIdTable::Entry entry{count, 0, 0, 0};
    entry[word] |= value;
    return entry;
}

TEST(HardwareProbe, NamesIntelSixthFamilyBySecondLevelCache) {
    Table pentium2{"GenuineIntel", 6, 5};
    pentium2.maxLeaf = 2;
    unsigned cache = 0;
    pentium2.leaf2 = leaf2With(CpuIdTable::ebx, 0x40);
    EXPECT_EQ(nameOf(pentium2, &cache), "Intel Pentium II Celeron");
    pentium2.leaf2 = leaf2With(CpuIdTable::eax, 0x43 << 16);
    EXPECT_EQ(nameOf(pentium2, &cache), "Intel Pentium II");
    EXPECT_EQ(cache, 512u * 1024);
    // ECX is read before EDX, and the later descriptor wins.
    pentium2.leaf2 = leaf2With(CpuIdTable::ecx, 0x41);
    pentium2.leaf2[CpuIdTable::edx] = 0x45;
    EXPECT_EQ(nameOf(pentium2, &cache), "Intel Pentium II Xeon");
    EXPECT_EQ(cache, 2u * 1024 * 1024);
    pentium2.leaf2[CpuIdTable::edx] = 0x00;
    EXPECT_EQ(nameOf(pentium2, &cache), "Intel Pentium II");
    EXPECT_EQ(cache, 128u * 1024);

    Table mobile{"GenuineIntel", 6, 6};
    mobile.maxLeaf = 2;
    mobile.leaf2 = leaf2With(CpuIdTable::edx, 0x41 << 24);
    EXPECT_EQ(nameOf(mobile), "Intel Pentium II Celeron A");
    mobile.leaf2 = leaf2With(CpuIdTable::edx, 0x42);
    EXPECT_EQ(nameOf(mobile), "Intel Mobile Pentium II");

    Table pentium3{"GenuineIntel", 6, 7};
    pentium3.maxLeaf = 2;
    pentium3.leaf2 = leaf2With(CpuIdTable::ecx, 0x43 << 8);
    EXPECT_EQ(nameOf(pentium3), "Intel Pentium III");
    pentium3.leaf2 = leaf2With(CpuIdTable::ecx, 0x44 << 8);
    EXPECT_EQ(nameOf(pentium3), "Intel Pentium III Xeon");

    // Without leaf 2 the extended leaves tell the cache, in KiB (such a
    // processor has a brand string, so its name does not come from here).
    Table extended{"AuthenticAMD", 6, 7};
    extended.maxExtendedLeaf = ext + 6;
    extended.ext6Ecx = 1024u << 16 | 0xFFFF;
    bool known = false;
    nameOf(extended, &cache, &known);
    EXPECT_TRUE(known);
    EXPECT_EQ(cache, 1024u * 1024);
    extended.maxExtendedLeaf = ext + 5;
    cache = 1;
    nameOf(extended, &cache, &known);
    EXPECT_TRUE(known);
    EXPECT_EQ(cache, 0u);
    extended.maxExtendedLeaf = ext + 4;
    nameOf(extended, &cache, &known);
    EXPECT_FALSE(known);
}

TEST(HardwareProbe, UnknownCacheMakesAnUnknownIntelButNotForEveryModel) {
    Table table{"GenuineIntel", 6, 5};
    table.maxLeaf = 2;
    table.leaf2 = leaf2With(CpuIdTable::ebx, 0x44, 2);  // count byte not 1
    bool known = true;
    EXPECT_EQ(nameOf(table, nullptr, &known), "Unknown Intel Processor");
    EXPECT_FALSE(known);
    table.model = 9;
    EXPECT_EQ(nameOf(table), "Intel Pentium Pro");
    table.model = 3;
    EXPECT_EQ(nameOf(table), "Intel Pentium II");
    table.maxLeaf = 1;  // no leaf 2 and no extended leaves
    table.model = 7;
    EXPECT_EQ(nameOf(table, nullptr, &known), "Unknown Intel Processor");
    EXPECT_FALSE(known);
}

TEST(HardwareProbe, NamesOlderProcessorsFromTheIdentificationTable) {
    EXPECT_EQ(nameOf({"GenuineIntel", 4, 4, 3}), "Intel 486 SL");
    EXPECT_EQ(nameOf({"GenuineIntel", 4, 4, 2}), "80486 DX");
    EXPECT_EQ(nameOf({"GenuineIntel", 4, 8, 2, 0, false}), "80486 SX");
    EXPECT_EQ(nameOf({"GenuineIntel", 4, 7, 3}), "Intel Writeback Enhanced 486 DX2");
    EXPECT_EQ(nameOf({"GenuineIntel", 5, 8}), "Intel Mobile Pentium");
    EXPECT_EQ(nameOf({"GenuineIntel", 15, 2}), "Unknown Intel Processor");
    EXPECT_EQ(nameOf({"AuthenticAMD", 5, 3}), "AMD K5");
    EXPECT_EQ(nameOf({"AuthenticAMD", 5, 4}), "Unknown AMD uCpu");
    EXPECT_EQ(nameOf({"AuthenticAMD", 5, 8}), "AMD K62 with 3D Now!");
    EXPECT_EQ(nameOf({"AuthenticAMD", 6, 11}), "AMD K7");
    EXPECT_EQ(nameOf({"CyrixInstead", 5, 2}), "Cyrix 686");
    EXPECT_EQ(nameOf({"CyrixInstead", 6, 1}), "Unknown Cyrix Processor");
    EXPECT_EQ(nameOf({"CentaurHauls", 5, 8}), "IDT WinChip2");
    EXPECT_EQ(nameOf({"CentaurHauls", 6, 8}), "Unknown IDT uCpu");
    EXPECT_EQ(nameOf({"NexGenDriven", 5, 0}), "Unknown uCpu");
    EXPECT_EQ(nameOf({"UMC UMC UMC ", 4, 1}), "Unknown uCpu");
}

TEST(HardwareProbe, OverdriveIsAddedToTableNamesOnly) {
    EXPECT_EQ(nameOf({"GenuineIntel", 5, 2, 0, 1}), "Intel Pentium Overdrive");
    EXPECT_EQ(nameOf({"GenuineIntel", 5, 2, 0, 2}), "Intel Pentium");
    EXPECT_EQ(nameOf({"AuthenticAMD", 4, 0, 0, 1}), "AMD Am486 Overdrive");

    FakeHardware hardware;
    hardware.count = 1;
    hardware.addProcessor(0, "GenuineIntel", 1u << 12 | 6u << 8 | 0xF0, "  Brand  X  ");
    const auto lines = report(hardware);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], "CPU#0:   Brand  X   [3000MHz]");
}

// --- The whole report -----------------------------------------------------

TEST(HardwareReport, VisitsTheMaskInOrderAndFillsSlotsWithoutGaps) {
    FakeHardware hardware;
    hardware.mask = 0b1010;
    hardware.addProcessor(1, "GenuineIntel", 0, "Processor one");
    hardware.addProcessor(3, "GenuineIntel", 0, "Processor three");
    hardware.mhz = 2500;
    EXPECT_EQ(report(hardware), (std::vector<std::string>{"CPU#0: Processor one [2500MHz]",
                                                          "CPU#1: Processor three [2500MHz]", "CPU#2:", "CPU#3:"}));
    EXPECT_EQ(hardware.visited, (std::vector<unsigned>{1, 3}));
}

TEST(HardwareReport, ListsAtMostThirtyTwoProcessors) {
    FakeHardware hardware;
    hardware.count = 48;
    hardware.mask = ~std::uint64_t{0};
    hardware.addProcessor(0, "AuthenticAMD", 6u << 8);
    const auto lines = report(hardware);
    ASSERT_EQ(lines.size(), 32u);
    EXPECT_EQ(lines[31], "CPU#31: AMD K7 [3000MHz]");
    EXPECT_EQ(hardware.visited.size(), 32u);
}

TEST(HardwareReport, ProcessorThatCouldNotBeReachedKeepsItsSlotEmpty) {
    FakeHardware hardware;
    hardware.count = 2;
    hardware.mask = 0b11;
    hardware.refused = {0};
    hardware.addProcessor(0, "AuthenticAMD", 6u << 8);
    EXPECT_EQ(report(hardware), (std::vector<std::string>{"CPU#0:", "CPU#1: AMD K7 [3000MHz]"}));

    hardware.refused.clear();
    hardware.faultLeaf0 = true;
    EXPECT_EQ(report(hardware), (std::vector<std::string>{"CPU#0:", "CPU#1:"}));
}

TEST(HardwareReport, SpeedFallsBackTo100OrIsLeftOut) {
    FakeHardware hardware;
    hardware.count = 1;
    hardware.addProcessor(0, "AuthenticAMD", 5u << 8 | 8u << 4);

    hardware.faultCycles = true;
    EXPECT_EQ(report(hardware), std::vector<std::string>{"CPU#0: AMD K62 with 3D Now! [100MHz]"});
    // The thread's priority was raised for the measure and put back after the
    // fault.
    EXPECT_EQ(hardware.priorities, (std::vector<int>{99, 0}));
    hardware.faultCycles = false;

    hardware.frequency.reset();
    EXPECT_EQ(report(hardware), std::vector<std::string>{"CPU#0: AMD K62 with 3D Now!"});

    hardware.leaves[0][1].edx = 0;  // no cycle counter
    EXPECT_EQ(report(hardware), std::vector<std::string>{"CPU#0: AMD K62 with 3D Now! [100MHz]"});
    EXPECT_EQ(hardware.priorities.size(), 2u);
}

TEST(HardwareReport, ExtendedLeavesThatFaultLeaveTheTableName) {
    FakeHardware hardware;
    hardware.count = 1;
    hardware.addProcessor(0, "CyrixInstead", 5u << 8 | 4u << 4, "Branded");
    hardware.faultExtended = true;
    EXPECT_EQ(report(hardware), std::vector<std::string>{"CPU#0: Cyrix GXm [3000MHz]"});
}

TEST(HardwareReport, WritesMemoryInMebibytesInTheDefaultFormat) {
    FakeHardware hardware;
    hardware.mask.reset();  // no processor lines at all
    hardware.memory = platform::MemoryStatus{1ull << 30, 537395200, 0x7ffffffff000ull, 0x7f0000000000ull};
    EXPECT_EQ(report(hardware), (std::vector<std::string>{"Total Phys RAM: 1024 MBytes",
                                                          "Avail Phys RAM: 512.5 MBytes",
                                                          "Total Virt RAM: 1.34218e+08 MBytes",
                                                          "Avail Virt RAM: 1.33169e+08 MBytes"}));
}

// --- This machine ---------------------------------------------------------

unsigned processorsInCpuinfo() {
    std::ifstream in("/proc/cpuinfo");
    unsigned count = 0;
    for (std::string line; std::getline(in, line);)
        count += line.rfind("processor", 0) == 0;
    return count;
}

double memTotalMebibytes() {
    std::ifstream in("/proc/meminfo");
    std::string label;
    double kib = 0;
    in >> label >> kib;
    EXPECT_EQ(label, "MemTotal:");
    return kib / 1024;
}

#if defined(__x86_64__)
std::string brandAsTheProcessorGivesIt() {
    char text[49] = {};
    for (unsigned part = 0; part < 3; ++part) {
        unsigned words[4];
        __get_cpuid(ext + 2 + part, &words[0], &words[1], &words[2], &words[3]);
        std::memcpy(text + 16 * part, words, 16);
    }
    return text;
}

TEST(HardwareReportOnThisMachine, AgreesWithWhatTheSystemSays) {
    std::ostringstream out;
    writeHardwareInfo(out, platform::systemHardware());
    std::vector<std::string> lines;
    std::istringstream in(out.str());
    for (std::string line; std::getline(in, line);)
        lines.push_back(line.substr(24));

    const unsigned processors = std::min(processorsInCpuinfo(), 32u);
    ASSERT_EQ(lines.size(), processors + 4);
    const std::string brand = brandAsTheProcessorGivesIt();
    for (unsigned i = 0; i < processors; ++i) {
        const std::string head = "CPU#" + std::to_string(i) + ": " + brand + " [";
        EXPECT_EQ(lines[i].substr(0, head.size()), head);
        const double mhz = std::stod(lines[i].substr(head.size()));
        EXPECT_GT(mhz, 100.0);
        EXPECT_LT(mhz, 10000.0);
    }
    const std::string total = "Total Phys RAM: ";
    ASSERT_EQ(lines[processors].substr(0, total.size()), total);
    EXPECT_NEAR(std::stod(lines[processors].substr(total.size())), memTotalMebibytes(), memTotalMebibytes() * 1e-5);
}
#endif

TEST(HardwareReportOnThisMachine, MeasuringThreadRunsOnItsProcessorAndPriorityIsRestored) {
    auto& hardware = platform::systemHardware();
    const auto before = hardware.priority();
    for (unsigned processor = 0; processor < std::min(hardware.processorCount(), 4u); ++processor) {
        int ranOn = -1;
        ASSERT_TRUE(hardware.runPinned(processor, [&] {
            ranOn = sched_getcpu();
            EXPECT_GT(measureSpeed(hardware), 0.0f);
            EXPECT_EQ(hardware.priority().policy, before.policy);
        }));
        EXPECT_EQ(ranOn, static_cast<int>(processor));
    }
}

}  // namespace
}  // namespace dv::env::internal
