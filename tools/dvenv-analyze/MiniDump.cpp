#include "MiniDump.h"

#include <cstring>
#include <sstream>

namespace dvanalyze {

namespace {

constexpr std::uint32_t signature = 0x504d444d;  // "MDMP"
constexpr std::uint32_t threadListStream = 3;
constexpr std::uint32_t moduleListStream = 4;
constexpr std::uint32_t exceptionStream = 6;
constexpr std::uint32_t systemInfoStream = 7;
constexpr std::uint32_t linuxPlatform = 0x8201;
constexpr std::uint32_t elfBuildIdRecord = 0x4270454c;  // "LEpB"
constexpr std::uint32_t pdb70Record = 0x53445352;       // "RSDS"
constexpr std::size_t moduleEntrySize = 108;
constexpr std::size_t threadEntrySize = 48;

class Reader {
public:
    explicit Reader(const std::string& bytes) : data(bytes) {}

    bool has(std::uint64_t offset, std::uint64_t size) const { return offset <= data.size() && size <= data.size() - offset; }

    template <typename T>
    T at(std::uint64_t offset) const {
        T value{};
        std::memcpy(&value, data.data() + offset, sizeof(T));  // minidumps are little-endian, as are our hosts
        return value;
    }

    std::string_view span(std::uint64_t offset, std::uint64_t size) const { return std::string_view(data).substr(offset, size); }
    std::size_t size() const { return data.size(); }

private:
    const std::string& data;
};

std::string hex(std::string_view bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

// A PDB 7.0 record's GUID and age, as debuggers print them: the GUID's first
// three fields big-endian, the age behind them unless it is 0.
std::string pdb70Id(std::string_view record) {
    std::string bytes(record.substr(0, 20));
    std::swap(bytes[0], bytes[3]);
    std::swap(bytes[1], bytes[2]);
    std::swap(bytes[4], bytes[5]);
    std::swap(bytes[6], bytes[7]);
    std::swap(bytes[16], bytes[19]);
    std::swap(bytes[17], bytes[18]);
    if (bytes.substr(16) == std::string(4, '\0'))
        bytes.resize(16);
    return hex(bytes);
}

std::string utf16Name(const Reader& in, std::uint32_t rva, std::string& error) {
    if (!in.has(rva, 4)) {
        error = "a module name lies past the end";
        return {};
    }
    const auto length = in.at<std::uint32_t>(rva);
    if (!in.has(rva + 4ull, length)) {
        error = "a module name lies past the end";
        return {};
    }
    // Paths are ASCII in practice; anything else becomes UTF-8.
    std::string name;
    for (std::uint32_t i = 0; i + 1 < length; i += 2) {
        std::uint32_t unit = in.at<std::uint16_t>(rva + 4ull + i);
        if (unit >= 0xd800 && unit < 0xdc00 && i + 3 < length) {
            const std::uint32_t low = in.at<std::uint16_t>(rva + 6ull + i);
            unit = 0x10000 + ((unit - 0xd800) << 10) + (low - 0xdc00);
            i += 2;
        }
        if (unit < 0x80) {
            name += static_cast<char>(unit);
        } else if (unit < 0x800) {
            name += static_cast<char>(0xc0 | unit >> 6);
            name += static_cast<char>(0x80 | (unit & 0x3f));
        } else if (unit < 0x10000) {
            name += static_cast<char>(0xe0 | unit >> 12);
            name += static_cast<char>(0x80 | (unit >> 6 & 0x3f));
            name += static_cast<char>(0x80 | (unit & 0x3f));
        } else {
            name += static_cast<char>(0xf0 | unit >> 18);
            name += static_cast<char>(0x80 | (unit >> 12 & 0x3f));
            name += static_cast<char>(0x80 | (unit >> 6 & 0x3f));
            name += static_cast<char>(0x80 | (unit & 0x3f));
        }
    }
    return name;
}

std::string baseName(const std::string& path) {
    const std::size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

const DumpModule* MiniDump::moduleAt(std::uint64_t address) const {
    for (const DumpModule& module : modules)
        if (address >= module.base && address - module.base < module.size)
            return &module;
    return nullptr;
}

std::optional<MiniDump> readMiniDump(const std::string& bytes, std::string& error) {
    const Reader in(bytes);
    if (!in.has(0, 32) || in.at<std::uint32_t>(0) != signature) {
        error = "not a minidump (no \"MDMP\" at its start)";
        return std::nullopt;
    }
    const auto streamCount = in.at<std::uint32_t>(8);
    const auto directory = in.at<std::uint32_t>(12);
    const auto cutShort = [&](const char* what, std::uint64_t offset, std::uint64_t size) {
        std::ostringstream text;
        text << "the dump is cut short: " << what << " takes bytes " << offset << " to " << offset + size
             << ", the dump has " << in.size();
        error = text.str();
        return std::nullopt;
    };
    if (!in.has(directory, 12ull * streamCount))
        return cutShort("its stream directory", directory, 12ull * streamCount);

    MiniDump dump;
    bool sawModules = false;
    for (std::uint32_t s = 0; s < streamCount; ++s) {
        const std::uint64_t entry = directory + 12ull * s;
        const auto type = in.at<std::uint32_t>(entry);
        const auto size = in.at<std::uint32_t>(entry + 4);
        const auto rva = in.at<std::uint32_t>(entry + 8);
        if (type == 0)
            continue;  // unused entry
        if (!in.has(rva, size))
            return cutShort(("stream " + std::to_string(type)).c_str(), rva, size);
        if (type == systemInfoStream && size >= 24) {
            dump.windows = in.at<std::uint32_t>(rva + 20) != linuxPlatform;
        } else if (type == exceptionStream && size >= 12) {
            dump.fault = DumpFault{in.at<std::uint32_t>(rva), in.at<std::uint32_t>(rva + 8)};
        } else if (type == threadListStream && size >= 4) {
            const auto count = in.at<std::uint32_t>(rva);
            if (4 + threadEntrySize * count > size)
                return cutShort("the thread list", rva, 4 + threadEntrySize * count);
            for (std::uint32_t t = 0; t < count; ++t)
                dump.threadIds.push_back(in.at<std::uint32_t>(rva + 4 + threadEntrySize * t));
        } else if (type == moduleListStream && size >= 4) {
            sawModules = true;
            const auto count = in.at<std::uint32_t>(rva);
            if (4 + moduleEntrySize * count > size)
                return cutShort("the module list", rva, 4 + moduleEntrySize * count);
            for (std::uint32_t m = 0; m < count; ++m) {
                const std::uint64_t at = rva + 4 + moduleEntrySize * m;
                DumpModule module;
                module.base = in.at<std::uint64_t>(at);
                module.size = in.at<std::uint32_t>(at + 8);
                module.path = utf16Name(in, in.at<std::uint32_t>(at + 20), error);
                if (!error.empty())
                    return cutShort("a module's name", in.at<std::uint32_t>(at + 20), 4);
                module.name = baseName(module.path);
                const auto recordSize = in.at<std::uint32_t>(at + 76);
                const auto recordRva = in.at<std::uint32_t>(at + 80);
                if (recordSize >= 4) {
                    if (!in.has(recordRva, recordSize))
                        return cutShort("a module's build id", recordRva, recordSize);
                    const auto kind = in.at<std::uint32_t>(recordRva);
                    if (kind == elfBuildIdRecord)
                        module.buildId = hex(in.span(recordRva + 4, recordSize - 4));
                    else if (kind == pdb70Record && recordSize >= 24)
                        module.buildId = pdb70Id(in.span(recordRva + 4, 20));
                }
                dump.modules.push_back(std::move(module));
            }
        }
    }
    if (!sawModules) {
        error = "the dump has no module list";
        return std::nullopt;
    }
    return dump;
}

}  // namespace dvanalyze
