#pragma once

// What the hardware report learns of each processor: its identification,
// read on a thread pinned to it, and its clock, measured there against a
// counter of fixed frequency. The machine is the platform's Hardware service.

#include "platform/Hardware.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace dv::env::internal {

// At most this many processors are measured and listed.
inline constexpr unsigned maxProcessors = 32;

// A fault of the processor or of a reading, where the measure must give up.
struct ProcessorFault {};

// What one processor says of itself. Each entry holds the words in the order
// EAX, EBX, EDX, ECX, so words 1 to 3 of leaf 0 spell the vendor.
struct CpuIdTable {
    using Entry = std::array<std::uint32_t, 4>;
    enum Word { eax = 0, ebx = 1, edx = 2, ecx = 3 };

    std::uint32_t maxLeaf = 0;
    std::uint32_t maxExtendedLeaf = 0;  // 0 if the extended range could not be asked
    std::vector<Entry> standard;        // leaf n
    std::vector<Entry> extended;        // leaf 0x80000000 + n

    // The entry of a standard or extended leaf; zeros where the table has none.
    Entry leaf(std::uint32_t number) const;
};

// One call of the report. Slots are numbered in the order the processors are
// visited, with no gaps: slot n is not processor n when the mask has holes.
struct CpuInfo {
    bool ready = false;
    std::uint32_t processorCount = 0;
    std::uint64_t processMask = 0;
    std::uint32_t slotCount = 0;  // while a thread runs, the index of its slot
    std::array<std::unique_ptr<CpuIdTable>, maxProcessors> tables;
    std::array<float, maxProcessors> speeds{};
};

// Visits every processor of the process's mask (below the capped count) with
// one pinned thread at a time, and sets `ready` when done. Without a mask
// nothing is visited and `ready` stays false.
void measureProcessors(CpuInfo& info);

// The body of a measuring thread, for slot `info.slotCount`: 1 when it ends
// normally, 0 after a fault, which leaves the slot without a table.
int measureProcessor(CpuInfo& info);

// Every standard and extended leaf, asked once each. Throws ProcessorFault if
// a standard leaf cannot be had; an extended range that cannot be asked is
// left empty.
void readCpuId(CpuIdTable& table);

// The clock in MHz, measured against the fixed-frequency counter at realtime
// priority (where the thread may have it; the priority is always put back).
// 0 if there is no counter; throws ProcessorFault if a reading fails.
float measureSpeed();

// One reading of the measure: cycles per microsecond over a window of at
// least 1,000 counter ticks, in 32-bit tick arithmetic on the low halves of
// the counter and of `frequency`.
std::uint64_t takeReading(std::uint32_t frequency);

// The measure's loop and end rule over the readings that `nextReading` gives:
// from the third on it ends when the last three agree with their mean within
// 3 (in thirds), or at the twentieth; the result is their mean, rounded up by
// a third where that crosses a whole number.
float settleSpeed(const std::function<std::uint64_t()>& nextReading);

// The slot's name: the brand string the processor carries, or else one from
// the identification table. False if the slot has no table.
bool cpuName(const CpuInfo& info, unsigned slot, std::string& name);

// The second-level cache size in bytes, where the slot's table tells it.
bool l2CacheSize(const CpuInfo& info, unsigned slot, unsigned& bytes);

}  // namespace dv::env::internal
