#include "Base64.h"

#include "support/Command.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace dv::env::internal {
namespace {

using Bytes = std::vector<unsigned char>;

std::string encode(const Bytes& bytes, std::ptrdiff_t* result = nullptr) {
    char out[73];
    const std::ptrdiff_t length = base64Encode(bytes.data(), bytes.size(), out);
    if (result)
        *result = length;
    return length < 0 ? std::string("<none>") : std::string(out);
}

TEST(Base64, MatchesTheRfcVectorsAndItsSizeLimit) {
    const std::pair<std::string, std::string> vectors[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {std::string("\xfb\xff\0", 3), "+/8A"},
    };
    for (const auto& [plain, coded] : vectors) {
        std::ptrdiff_t length = -2;
        EXPECT_EQ(encode(Bytes(plain.begin(), plain.end()), &length), coded) << plain;
        EXPECT_EQ(length, static_cast<std::ptrdiff_t>(coded.size()));
    }
    std::ptrdiff_t length = 0;
    EXPECT_EQ(encode(Bytes(54, 0xa5), &length).size(), 72u);
    encode(Bytes(55, 0xa5), &length);  // would need 76 characters
    EXPECT_EQ(length, -1);
}

// The dump's lines, joined, are the Base64 of the whole dump, as 54 bytes are
// whole groups of three. Tails of every padding. coreutils' base64 is the
// reference; Windows has no such command.
#ifndef _WIN32
TEST(Base64, AgreesWithTheSystemsBase64CommandOnRandomData) {
    std::mt19937 random(20240611);
    const test::TempDir dir;
    const std::string file = dir.path("data");
    for (const std::size_t tail : {0, 1, 2, 53}) {
        Bytes data(54 * 40 + tail);
        std::generate(data.begin(), data.end(), [&] { return static_cast<unsigned char>(random()); });
        dir.write("data", {reinterpret_cast<const char*>(data.data()), data.size()});
        std::string joined;
        for (auto at = data.begin(); at < data.end(); at += std::min<std::ptrdiff_t>(54, data.end() - at))
            joined += encode({at, at + std::min<std::ptrdiff_t>(54, data.end() - at)});

        int status = -1;
        EXPECT_EQ(joined, test::commandOutput("base64 -w0 '" + file + "'", &status)) << "tail of " << tail;
        EXPECT_EQ(status, 0);
    }
}
#endif

}  // namespace
}  // namespace dv::env::internal
