#include <dv/env/AppLog.h>

#include "HardwareProbe.h"

#include <gtest/gtest.h>

#include <cpuid.h>
#include <sched.h>

#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace dv::env::internal {
namespace {

using platform::CpuIdRegisters;
constexpr std::uint32_t ext = 0x80000000;

// The script's next value; the last one repeats.
std::uint64_t next(std::deque<std::uint64_t>& script) {
    const std::uint64_t value = script.front();
    if (script.size() > 1)
        script.pop_front();
    return value;
}

// A machine of the test's making. Each processor answers from its own leaves
// (processor 0's by default). Unless scripted, the counter runs 10 ticks per
// reading at 10 MHz and the cycle counter at `mhz`.
class FakeHardware final : public platform::Hardware {
public:
    unsigned processorCount() override { return count; }
    std::optional<std::uint64_t> processAffinityMask() override { return mask; }
    bool runPinned(unsigned processor, const std::function<void()>& body) override {
        if (refused.count(processor))
            return false;
        visited.push_back(current = processor);
        body();
        return true;
    }
    bool cpuid(std::uint32_t leaf, CpuIdRegisters& out) override {
        auto& table = leaves.count(current) ? leaves[current] : leaves[0];
        out = table.count(leaf) ? table[leaf] : CpuIdRegisters{};
        return !(leaf >= ext && faultExtended);
    }
    std::optional<std::uint64_t> cycleCounter() override {
        if (faultCycles)
            return std::nullopt;
        return cycles.empty() ? ticks * mhz / 10 : next(cycles);
    }
    std::optional<std::uint64_t> counterFrequency() override { return frequency; }
    std::uint64_t counter() override { return counts.empty() ? ticks += 10 : next(counts); }
    platform::ThreadPriority priority() override { return now; }
    platform::ThreadPriority realtimePriority() override { return {1, 99}; }
    bool setPriority(const platform::ThreadPriority& priority) override {
        priorities.push_back((now = priority).level);
        return true;
    }
    std::optional<platform::MemoryStatus> memoryStatus() override { return memory; }

    // A processor with a cycle counter, and a brand string if one is given.
    void addProcessor(unsigned processor, const char* vendor, std::uint32_t signature, const std::string& brand = "") {
        auto& table = leaves[processor];
        table[0].eax = 1;
        std::memcpy(&table[0].ebx, vendor, 4), std::memcpy(&table[0].edx, vendor + 4, 4), std::memcpy(&table[0].ecx, vendor + 8, 4);
        table[1] = {signature, 0, 0, 1u << 4};
        table[ext].eax = brand.empty() ? 0 : ext + 4;
        char text[48] = {};
        brand.copy(text, sizeof text);
        for (std::uint32_t part = 0; part < 3 && !brand.empty(); ++part)  // laid out EAX, EBX, ECX, EDX
            std::memcpy(&table[ext + 2 + part], text + 16 * part, 16);
    }

    unsigned count = 1, current = 0;
    std::optional<std::uint64_t> mask = 0xF;
    std::set<unsigned> refused;
    std::vector<unsigned> visited;
    std::map<unsigned, std::map<std::uint32_t, CpuIdRegisters>> leaves;
    bool faultExtended = false, faultCycles = false;
    std::uint64_t ticks = 0, mhz = 3000;
    std::deque<std::uint64_t> counts, cycles;
    std::optional<std::uint64_t> frequency = 10'000'000;
    platform::ThreadPriority now{0, 0};
    std::vector<int> priorities;
    std::optional<platform::MemoryStatus> memory;
};

// The report's lines, each checked for the stamp of AppLog and cut behind it.
std::vector<std::string> report(platform::Hardware& hardware) {
    std::ostringstream out;
    const platform::StandIn<platform::Hardware> standIn(hardware);
    AppLog(out).logHardwareInfo();
    std::vector<std::string> lines;
    std::istringstream in(out.str());
    for (std::string line; std::getline(in, line);) {
        EXPECT_EQ(line.substr(0, 17), "AppLog          :") << line;
        lines.push_back(line.substr(24));
    }
    return lines;
}

TEST(HardwareProbe, MeasureEndsWhenThreeReadingsAgreeFromTheThirdOnOrAtTheTwentieth) {
    std::deque<std::uint64_t> rising;
    for (std::uint64_t i = 1; i <= 25; ++i)
        rising.push_back(100 * i);
    const std::tuple<std::deque<std::uint64_t>, float, unsigned> cases[] = {
        {{300, 300, 300}, 300.0f, 3},
        {{0, 0, 0, 7}, 0.0f, 3},                // nothing is tested before the third
        {{300, 300, 301}, 901.0f / 3.0f, 3},    // 901 stays
        {{300, 301, 301}, 301.0f, 3},           // 902 becomes 903
        {{300, 300, 302, 302, 302}, 302.0f, 5}, // 2 off in thirds is too far
        {rising, 1900.0f, 20},                  // 1800, 1900 and 2000
    };
    for (auto [readings, speed, taken] : cases) {
        unsigned calls = 0;
        EXPECT_FLOAT_EQ(settleSpeed([&] { return ++calls, next(readings); }), speed) << taken;
        EXPECT_EQ(calls, taken);
    }
}

TEST(HardwareProbe, ReadingIsCyclesPerMicrosecondRoundedInThirtyTwoBitTicks) {
    FakeHardware clock;
    const platform::StandIn<platform::Hardware> standIn(clock);
    // The counter's low half wraps inside the window; 1,234 ticks at 10 MHz
    // are 123 whole microseconds.
    const std::uint64_t t0 = 0xFFFFFFF0, t1 = t0 + 50;
    clock.counts = {t0, t0 + 49, t1, t1 + 999, t1 + 1234};
    clock.cycles = {1000, 1000 + 123 * 300 + 61};
    EXPECT_EQ(takeReading(10'000'000), 300u);
    clock.counts = {t0, t1, t1 + 1234};
    clock.cycles = {1000, 1000 + 123 * 300 + 62};
    EXPECT_EQ(takeReading(10'000'000), 301u);
    // 50,000 ticks times 100,000 wraps in 32 bits and comes out as 705 us.
    clock.counts = {0, 50, 50'050};
    clock.cycles = {0, 705 * 2};
    EXPECT_EQ(takeReading(10'000'000), 2u);
    // A counter so fast that the window has no whole microsecond is a fault.
    clock.counts = {0, 50, 1050};
    EXPECT_THROW(takeReading(0xFFFFFFFF), ProcessorFault);
}

// The name of a slot whose table has leaf 0 from `vendor`, leaf 1 from
// `signature` (type, family, model, stepping) and `fpu`, and leaf 2 if given.
std::string nameOf(const char* vendor, std::uint32_t signature, bool fpu = true,
                   std::optional<CpuIdTable::Entry> leaf2 = std::nullopt) {
    CpuInfo info;
    auto& table = *(info.tables[3] = std::make_unique<CpuIdTable>());
    table.maxLeaf = leaf2 ? 2 : 1;
    table.standard = {{table.maxLeaf, 0, 0, 0}, {signature, 0, fpu, 0}};
    std::memcpy(&table.standard[0][1], vendor, 12);
    if (leaf2)
        table.standard.push_back(*leaf2);
    std::string name;
    EXPECT_TRUE(cpuName(info, 3, name));
    return name;
}

TEST(HardwareProbe, NamesProcessorsFromTheIdentificationTable) {
    const std::tuple<const char*, std::uint32_t, bool, const char*> cases[] = {
        {"GenuineIntel", 0x443, true, "Intel 486 SL"}, {"GenuineIntel", 0x442, true, "80486 DX"},
        {"GenuineIntel", 0x482, false, "80486 SX"}, {"GenuineIntel", 0x690, true, "Intel Pentium Pro"},
        {"GenuineIntel", 0xF20, true, "Unknown Intel Processor"}, {"AuthenticAMD", 0x530, true, "AMD K5"},
        {"AuthenticAMD", 0x540, true, "Unknown AMD uCpu"}, {"CentaurHauls", 0x580, true, "IDT WinChip2"},
        {"NexGenDriven", 0x500, true, "Unknown uCpu"}, {"GenuineIntel", 0x1520, true, "Intel Pentium Overdrive"},
        {"GenuineIntel", 0x2520, true, "Intel Pentium"},
    };
    for (const auto& [vendor, signature, fpu, name] : cases)
        EXPECT_EQ(nameOf(vendor, signature, fpu), name) << vendor << std::hex << ' ' << signature;

    // The sixth family goes by the second-level cache descriptors: EAX's upper
    // bytes, then EBX, ECX and EDX, the later winning. Without them it is unknown.
    EXPECT_EQ(nameOf("GenuineIntel", 0x670), "Unknown Intel Processor");
    const std::tuple<std::uint32_t, CpuIdTable::Entry, const char*> byCache[] = {
        {0x650, {1, 0x40, 0, 0}, "Intel Pentium II Celeron"}, {0x650, {0x430001, 0, 0, 0}, "Intel Pentium II"},
        {0x650, {1, 0, 0x45, 0x41}, "Intel Pentium II Xeon"}, {0x650, {1, 0, 0x41, 0x45}, "Intel Pentium II"},
        {0x660, {1, 0, 0x41000000, 0}, "Intel Pentium II Celeron A"}, {0x660, {1, 0, 0x42, 0}, "Intel Mobile Pentium II"},
        {0x670, {1, 0x4400, 0, 0}, "Intel Pentium III Xeon"},
        {0x650, {2, 0x44, 0, 0}, "Unknown Intel Processor"},  // a count byte other than 1 tells nothing
    };
    for (const auto& [signature, leaf2, name] : byCache)
        EXPECT_EQ(nameOf("GenuineIntel", signature, true, leaf2), name) << std::hex << leaf2[0] << ' ' << leaf2[1];
}

TEST(HardwareReport, VisitsTheMaskInOrderAndFillsSlotsWithoutGaps) {
    FakeHardware hardware;
    hardware.count = 4;
    hardware.mask = 0b1010;
    hardware.addProcessor(1, "GenuineIntel", 0, "  Brand one");
    hardware.addProcessor(3, "CyrixInstead", 0x1540, "Brand three");
    hardware.mhz = 2500;
    // A brand string is used as given, blanks and all, and gets no Overdrive.
    EXPECT_EQ(report(hardware),
              (std::vector<std::string>{"CPU#0:   Brand one [2500MHz]", "CPU#1: Brand three [2500MHz]", "CPU#2:", "CPU#3:"}));
    EXPECT_EQ(hardware.visited, (std::vector<unsigned>{1, 3}));

    // Extended leaves that fault leave the table's name.
    hardware.faultExtended = true;
    hardware.mask = 0b1000;
    EXPECT_EQ(report(hardware)[0], "CPU#0: Cyrix GXm Overdrive [2500MHz]");

    hardware.count = 48;
    hardware.mask = ~std::uint64_t{0};
    const auto lines = report(hardware);
    ASSERT_EQ(lines.size(), 32u);
    EXPECT_EQ(lines[31], "CPU#31: Unknown uCpu [100MHz]");  // empty leaves: no cycle counter
}

TEST(HardwareReport, UnreachableProcessorsAndFaultsGiveShorterLines) {
    FakeHardware hardware;
    hardware.count = 2;
    hardware.mask = 0b11;
    hardware.refused = {0};
    hardware.addProcessor(0, "AuthenticAMD", 0x580);
    EXPECT_EQ(report(hardware), (std::vector<std::string>{"CPU#0:", "CPU#1: AMD K62 with 3D Now! [3000MHz]"}));

    hardware.count = 1;
    hardware.refused.clear();
    hardware.faultCycles = true;
    EXPECT_EQ(report(hardware), std::vector<std::string>{"CPU#0: AMD K62 with 3D Now! [100MHz]"});
    // The priority, raised for the measure, is put back after the fault too.
    EXPECT_EQ(hardware.priorities, (std::vector<int>{99, 0, 99, 0}));
    hardware.frequency.reset();
    EXPECT_EQ(report(hardware), std::vector<std::string>{"CPU#0: AMD K62 with 3D Now!"});
    hardware.leaves[0][1].edx = 0;  // no cycle counter
    EXPECT_EQ(report(hardware), std::vector<std::string>{"CPU#0: AMD K62 with 3D Now! [100MHz]"});

    hardware.mask.reset();
    EXPECT_TRUE(report(hardware).empty());
}

TEST(HardwareReport, WritesMemoryInMebibytesInTheDefaultFormat) {
    FakeHardware hardware;
    hardware.mask.reset();
    hardware.memory = platform::MemoryStatus{1ull << 30, 537395200, 0x7ffffffff000ull, 0x7f0000000000ull};
    EXPECT_EQ(report(hardware), (std::vector<std::string>{"Total Phys RAM: 1024 MBytes", "Avail Phys RAM: 512.5 MBytes",
                                                          "Total Virt RAM: 1.34218e+08 MBytes",
                                                          "Avail Virt RAM: 1.33169e+08 MBytes"}));
}

TEST(HardwareReportOnThisMachine, AgreesWithTheSystemAndMeasuresOnEachProcessor) {
    std::ifstream cpuinfo("/proc/cpuinfo"), meminfo("/proc/meminfo");
    unsigned processors = 0;
    for (std::string line; std::getline(cpuinfo, line);)
        processors += line.rfind("processor", 0) == 0;
    processors = std::min(processors, 32u);
    std::string label;
    double totalKib = 0;
    meminfo >> label >> totalKib;
    unsigned brand[13] = {};  // NUL-ended
    for (unsigned* part = brand; part < brand + 12; part += 4)
        __get_cpuid(ext + 2 + (part - brand) / 4, part, part + 1, part + 2, part + 3);

    auto& hardware = platform::hardware();
    const auto lines = report(hardware);
    ASSERT_EQ(lines.size(), processors + 4);
    for (unsigned i = 0; i < processors; ++i) {
        const std::string head = "CPU#" + std::to_string(i) + ": " + reinterpret_cast<const char*>(brand) + " [";
        ASSERT_EQ(lines[i].substr(0, head.size()), head);
        EXPECT_GT(std::stod(lines[i].substr(head.size())), 100.0);
    }
    ASSERT_EQ(lines[processors].rfind("Total Phys RAM: ", 0), 0u);
    EXPECT_NEAR(std::stod(lines[processors].substr(16)), totalKib / 1024, totalKib / 1024 * 1e-5);

    // The measuring thread runs on its processor, and its priority is put back.
    const int policy = hardware.priority().policy;
    for (unsigned processor = 0; processor < std::min(processors, 4u); ++processor) {
        int ranOn = -1;
        ASSERT_TRUE(hardware.runPinned(processor, [&] {
            ranOn = sched_getcpu();
            EXPECT_GT(measureSpeed(), 0.0f);
            EXPECT_EQ(hardware.priority().policy, policy);
        }));
        EXPECT_EQ(ranOn, static_cast<int>(processor));
    }
}

}  // namespace
}  // namespace dv::env::internal
