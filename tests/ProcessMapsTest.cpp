// The process inspection behind the crash dumps: the maps text, the modules
// found in it, the ELF notes and the build ids read from memory.

#include "platform/linux/ElfNotes.h"
#include "platform/linux/Posix.h"
#include "platform/linux/ProcessMaps.h"
#include "platform/linux/VersionNote.h"
#include "support/Command.h"

#include <gtest/gtest.h>

#include <elf.h>

#include <cctype>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace dv::env {
namespace {

using platform::ElfNote;
using platform::ElfNotes;
using platform::Mapping;
using platform::MemoryReader;
using platform::Module;

std::string pathOf(const Mapping& mapping) { return std::string(mapping.path, mapping.pathLength); }

TEST(ProcessMaps, ParsesEachLineAsTheKernelWritesIt) {
    const std::string text =
        "55aef5446000-55aef5448000 r--p 00000000 fe:00 247134                     /usr/bin/prog\n"
        "7f3f8b2e3000-7f3f8b3a7000 rw-p 00000000 00:00 0 \n"
        "7f3f8b3a7000-7f3f8b3fe000 r-xp 0001a000 fe:00 42                         /opt/my app/lib two.so\n"
        "7f3f8b3fe000-7f3f8b400000 ---p 00000000 fe:00 43                         /tmp/gone.so (deleted)\n"
        "not a mapping\n"
        "7ffd10000000-7ffd10021000 rw-p 00000000 00:00 0                          [stack]\n"
        "7ffd20000000-7ffd20001000 r--p 00000000 fe:00 44                         /cut";
    Mapping mappings[8]{};
    ASSERT_EQ(platform::parseMaps(text.data(), text.size(), mappings, 8), 5u);

    EXPECT_EQ(mappings[0].start, 0x55aef5446000u);
    EXPECT_EQ(mappings[0].end, 0x55aef5448000u);
    EXPECT_EQ(mappings[0].inode, 247134u);
    EXPECT_TRUE(mappings[0].readable);
    EXPECT_EQ(pathOf(mappings[0]), "/usr/bin/prog");
    EXPECT_EQ(pathOf(mappings[1]), "");  // anonymous, with the kernel's trailing blank
    EXPECT_EQ(mappings[1].inode, 0u);
    EXPECT_EQ(mappings[2].offset, 0x1a000u);
    EXPECT_EQ(pathOf(mappings[2]), "/opt/my app/lib two.so");
    EXPECT_FALSE(mappings[3].readable);
    EXPECT_EQ(pathOf(mappings[3]), "/tmp/gone.so (deleted)");
    EXPECT_EQ(pathOf(mappings[4]), "[stack]");
    EXPECT_EQ(platform::mappingAt(mappings, 5, 0x7f3f8b3a7000), &mappings[2]);
    EXPECT_EQ(platform::mappingAt(mappings, 5, 0x7f3f8b3fe000 - 1), &mappings[2]);
    EXPECT_EQ(platform::mappingAt(mappings, 5, 0x7ffd10021000), nullptr);

    // More lines than room: the array is filled and nothing past it touched.
    Mapping few[3]{};
    few[2].start = 0xdead;
    EXPECT_EQ(platform::parseMaps(text.data(), text.size(), few, 2), 2u);
    EXPECT_EQ(pathOf(few[1]), "");
    EXPECT_EQ(few[2].start, 0xdeadu);
}

// Memory at made-up addresses: a read succeeds only within one region.
struct FakeMemory {
    std::map<std::uintptr_t, std::vector<unsigned char>> regions;

    static bool read(void* context, void* to, std::uintptr_t from, std::size_t size) {
        const auto& memory = *static_cast<const FakeMemory*>(context);
        auto region = memory.regions.upper_bound(from);
        if (region == memory.regions.begin())
            return false;
        --region;
        const std::size_t at = from - region->first;
        if (at > region->second.size() || size > region->second.size() - at)
            return false;
        std::memcpy(to, region->second.data() + at, size);
        return true;
    }

    MemoryReader reader() { return {read, this}; }
};

TEST(ProcessMaps, ModulesAreReadableElfFilesMappedFromTheirStart) {
    const std::string text =
        "10000-11000 r--p 00000000 08:01 11 /lib/one.so\n"
        "11000-13000 r-xp 00001000 08:01 11 /lib/one.so\n"
        "13000-14000 rw-p 00000000 00:00 0 \n"  // its bss: the module goes on past it
        "14000-15000 rw-p 00003000 08:01 11 /lib/one.so\n"
        "20000-21000 r--p 00000000 08:01 12 /data/table.bin\n"  // not ELF
        "21000-22000 r--p 00001000 08:01 12 /data/table.bin\n"
        "30000-31000 ---p 00000000 08:01 13 /lib/locked.so\n"
        "38000-39000 r--p 00000000 08:01 17 /lib/unreadable.so\n"  // the reader fails
        "40000-41000 r--p 00000000 08:01 14 /opt/my app/two (deleted)\n"
        "41000-42000 r-xp 00001000 08:01 15 /opt/my app/two (deleted)\n"  // another file of that name
        "50000-51000 r--p 00000000 00:00 0 [vdso]\n"
        "60000-61000 r--p 00000000 08:01 16 /lib/three.so\n";
    Mapping mappings[16];
    const std::size_t count = platform::parseMaps(text.data(), text.size(), mappings, 16);
    ASSERT_EQ(count, 12u);
    FakeMemory memory;
    for (std::uintptr_t elf : {0x10000, 0x30000, 0x40000, 0x50000, 0x60000})
        memory.regions[elf] = {0x7f, 'E', 'L', 'F', 2};
    memory.regions[0x20000] = {'D', 'A', 'T', 'A'};

    Module modules[4];
    ASSERT_EQ(platform::findModules(mappings, count, memory.reader(), modules, 4), 3u);
    EXPECT_EQ(modules[0].base, 0x10000u);
    EXPECT_EQ(modules[0].end, 0x15000u);
    EXPECT_EQ(pathOf(*modules[0].first), "/lib/one.so");
    EXPECT_EQ(modules[1].base, 0x40000u);
    EXPECT_EQ(modules[1].end, 0x41000u);
    EXPECT_EQ(pathOf(*modules[1].first), "/opt/my app/two (deleted)");
    EXPECT_EQ(modules[2].base, 0x60000u);

    Module two[3]{};
    two[2].base = 0xdead;
    EXPECT_EQ(platform::findModules(mappings, count, memory.reader(), two, 2), 2u);
    EXPECT_EQ(two[1].base, 0x40000u);
    EXPECT_EQ(two[2].base, 0xdeadu);
}

// Appends a note as a linker lays it out: header, owner, content, the last two
// padded to the alignment from the segment's start.
void appendNote(std::vector<unsigned char>& segment, const char* owner, std::uint32_t type, std::string_view content,
                std::size_t alignment) {
    const std::uint32_t header[3] = {static_cast<std::uint32_t>(std::strlen(owner) + 1),
                                     static_cast<std::uint32_t>(content.size()), type};
    const auto* bytes = reinterpret_cast<const unsigned char*>(header);
    segment.insert(segment.end(), bytes, bytes + sizeof header);
    segment.insert(segment.end(), owner, owner + header[0]);
    segment.resize((segment.size() + alignment - 1) / alignment * alignment);
    segment.insert(segment.end(), content.begin(), content.end());
    segment.resize((segment.size() + alignment - 1) / alignment * alignment);
}

struct Seen {
    std::uint32_t type;
    std::string owner;
    std::string content;
    bool operator==(const Seen& other) const {
        return type == other.type && owner == other.owner && content == other.content;
    }
};

std::vector<Seen> walk(const std::vector<unsigned char>& segment, std::size_t size, std::size_t alignment) {
    std::vector<Seen> seen;
    ElfNotes notes(segment.data(), size, alignment);
    for (ElfNote note; notes.next(note);)
        seen.push_back({note.type, std::string(reinterpret_cast<const char*>(note.owner), note.ownerSize),
                        std::string(reinterpret_cast<const char*>(note.content), note.contentSize)});
    return seen;
}

TEST(ElfNotes, PaddedAsTheSegmentIsAlignedAndStoppedAtItsEnd) {
    const std::vector<Seen> written{{5, std::string("GNU", 4), "property 12"},
                                    {3, std::string("GNU", 4), "build id of 20 bytes"},
                                    {1, std::string("dvenv\0", 6), "odd"}};
    for (std::size_t alignment : {4u, 8u}) {
        std::vector<unsigned char> segment;
        for (const Seen& note : written)
            appendNote(segment, note.owner.c_str(), note.type, note.content, alignment);
        EXPECT_EQ(walk(segment, segment.size(), alignment), written) << alignment;
        // The last note's padding may be missing; its content may not.
        const std::size_t lastEnd = segment.size() - (alignment == 8 ? 5 : 1);
        EXPECT_EQ(walk(segment, lastEnd, alignment), written) << alignment;
        EXPECT_EQ(walk(segment, lastEnd - 1, alignment).size(), 2u) << alignment;
    }
    std::vector<unsigned char> segment;
    for (const Seen& note : written)
        appendNote(segment, note.owner.c_str(), note.type, note.content, 4);
    for (std::size_t other : {0u, 1u, 16u})
        EXPECT_EQ(walk(segment, segment.size(), other), written) << other << " is taken for 4";

    // A size beyond the segment stops the walk there.
    std::vector<unsigned char> broken = segment;
    broken[0] = broken[1] = broken[2] = broken[3] = 0xff;  // the owner's
    EXPECT_TRUE(walk(broken, broken.size(), 4).empty());
    broken = segment;
    broken[4] = broken[5] = broken[6] = broken[7] = 0xff;  // the content's
    EXPECT_TRUE(walk(broken, broken.size(), 4).empty());

}

std::string versionContent(std::vector<std::uint16_t> numbers) {
    return std::string(reinterpret_cast<const char*>(numbers.data()), numbers.size() * 2);
}

TEST(VersionNote, FindsItsNoteAmongOthersAndRejectsBrokenOnes) {
    const std::string numbers = versionContent({1, 2, 3, 4, 5, 6, 7, 8});
    for (std::size_t alignment : {4u, 8u}) {
        std::vector<unsigned char> segment;
        appendNote(segment, "GNU", 3, versionContent({0xABCD, 0x1234, 0x5678}), alignment);
        appendNote(segment, "dvenv", 2, numbers, alignment);                       // other type
        appendNote(segment, "dvenv2", 1, numbers, alignment);                      // other owner
        appendNote(segment, "dvenv", 1, versionContent({1, 2, 3}), alignment);  // too short
        const std::size_t withoutOurs = segment.size();
        appendNote(segment, "dvenv", 1, numbers, alignment);

        const auto found = platform::findVersionNote(segment.data(), segment.size(), alignment);
        ASSERT_TRUE(found) << alignment;
        EXPECT_EQ(found->file, (platform::VersionNumbers{1, 2, 3, 4}));
        EXPECT_EQ(found->product, (platform::VersionNumbers{5, 6, 7, 8}));
        EXPECT_FALSE(platform::findVersionNote(segment.data(), withoutOurs, alignment));
        EXPECT_FALSE(platform::findVersionNote(segment.data(), segment.size() - 2, alignment)) << "truncated";
    }
}

const std::string buildId20("\x01\x23\x45\x67\x89\xab\xcd\xef\x10\x32\x54\x76\x98\xba\xdc\xfe\x00\x11\x22\x33", 20);

// An ELF image as loaded: its first segment linked at 0x1000, holding the
// program headers and a note segment aligned to 8 after a property note.
std::vector<unsigned char> imageWithNotes() {
    std::vector<unsigned char> notes;
    appendNote(notes, "GNU", NT_GNU_PROPERTY_TYPE_0, std::string(12, '\x7'), 8);
    appendNote(notes, "GNU", NT_GNU_BUILD_ID, buildId20, 8);

    std::vector<unsigned char> image(0x200);
    Elf64_Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_phoff = sizeof header;
    header.e_phentsize = sizeof(Elf64_Phdr);
    header.e_phnum = 2;
    Elf64_Phdr segments[2]{};
    segments[0].p_type = PT_LOAD;
    segments[0].p_vaddr = 0x1000;
    segments[0].p_filesz = 0x200 + notes.size();
    segments[1].p_type = PT_NOTE;
    segments[1].p_offset = 0x200;
    segments[1].p_vaddr = 0x1200;
    segments[1].p_filesz = notes.size();
    segments[1].p_align = 8;
    std::memcpy(image.data(), &header, sizeof header);
    std::memcpy(image.data() + sizeof header, segments, sizeof segments);
    image.insert(image.end(), notes.begin(), notes.end());
    return image;
}

TEST(ProcessMaps, BuildIdReadFromTheNotesInMemory) {
    FakeMemory memory;
    memory.regions[0x7000] = imageWithNotes();
    const Module module{0x7000, 0x8000, nullptr};
    unsigned char id[64];
    ASSERT_EQ(platform::readBuildId(module, memory.reader(), id, sizeof id), 20u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(id), 20), buildId20);
    EXPECT_EQ(platform::readBuildId(module, memory.reader(), id, 19), 0u) << "longer than the room for it";

    // This program's own, as found through its maps, against what readelf
    // reads from its file.
    const std::string maps = test::fileText("/proc/self/maps");
    std::vector<Mapping> mappings(8192);
    const std::size_t count = platform::parseMaps(maps.data(), maps.size(), mappings.data(), mappings.size());
    const auto readOwn = [](void*, void* to, std::uintptr_t from, std::size_t size) {
        std::memcpy(to, reinterpret_cast<const void*>(from), size);
        return true;
    };
    Module modules[512];
    const std::size_t found = platform::findModules(mappings.data(), count, {readOwn, nullptr}, modules, 512);
    const std::string self = platform::mainProgramPath();
    const Module* program = nullptr;
    for (std::size_t i = 0; i < found && !program; ++i)
        if (pathOf(*modules[i].first) == self)
            program = &modules[i];
    ASSERT_TRUE(program) << self;
    const std::size_t length = platform::readBuildId(*program, {readOwn, nullptr}, id, sizeof id);
    std::string hex;
    for (std::size_t i = 0; i < length; ++i) {
        static const char digits[] = "0123456789abcdef";
        hex += digits[id[i] >> 4];
        hex += digits[id[i] & 0xf];
    }
    std::string expected = test::commandOutput("readelf -n '" + self + "' | sed -n 's/.*Build ID: //p'");
    while (!expected.empty() && std::isspace(static_cast<unsigned char>(expected.back())))
        expected.pop_back();
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(hex, expected);
}

}  // namespace
}  // namespace dv::env
