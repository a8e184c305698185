#include "basicutil/HexDumper.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <string>

#include "support/LogCapture.h"

namespace basicutil {
namespace {

std::string dumped(const std::string& bytes) {
    Str out;
    HexDumper_to_Str(out).do_dump(bytes.data(), bytes.size());
    return out.c_str();
}

// The same bytes through `hexdump -C -v`.
std::string hexdumpOf(const std::string& bytes) {
    const std::string path = ::testing::TempDir() + "hexdump-input-" + std::to_string(::getpid());
    std::ofstream(path, std::ios::binary) << bytes;
    FILE* pipe = popen(("hexdump -C -v " + path).c_str(), "r");
    EXPECT_NE(pipe, nullptr);
    std::string out;
    char chunk[4096];
    for (std::size_t n; (n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;) out.append(chunk, n);
    EXPECT_EQ(pclose(pipe), 0);
    std::remove(path.c_str());
    return out;
}

TEST(HexDumperTest, AsHexdumpWritesIt) {
    EXPECT_EQ(dumped("Hello world\n"),
              "00000000  48 65 6c 6c 6f 20 77 6f  72 6c 64 0a              |Hello world.|\n0000000c\n");
    EXPECT_EQ(dumped(""), "00000000\n");  // hexdump writes nothing here
    std::mt19937 rng(17);
    std::size_t compared = 0;
    for (std::size_t length : {std::size_t{100000}, std::size_t{65536 + 7}}) {
        std::string bytes(length, '\0');
        for (char& c : bytes) c = static_cast<char>(rng());
        ASSERT_EQ(dumped(bytes), hexdumpOf(bytes)) << length;
        ++compared;
    }
    // Every length from 1 to 300, mostly letters so that the text column is exercised too.
    for (std::size_t length = 1; length <= 300; ++length) {
        std::string bytes(length, '\0');
        for (char& c : bytes) c = static_cast<char>(rng() % 4 == 0 ? 'a' + rng() % 26 : rng());
        ASSERT_EQ(dumped(bytes), hexdumpOf(bytes)) << length;
        ++compared;
    }
    std::printf("%zu dumps compared with hexdump -C -v\n", compared);
}

TEST(HexDumperTest, SinksTakeOneLineEach) {
    const std::string bytes = "0123456789abcdefXYZ";
    StrVector lines;
    HexDumper_to_StrVector(lines).do_dump(bytes.data(), bytes.size());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1].view(), "00000010  58 59 5a                                          |XYZ|");
    EXPECT_EQ(lines[2].view(), "00000013");

    LoggerSimple channel("test.hexdump", 0, 0, 0);
    testing::LogCapture log;  // after the channel: it watches the channels there are
    HexDumper_to_Logger(channel, LOG_DEBUG).do_dump(bytes.data(), bytes.size());
    std::vector<std::string> messages;
    for (const auto& line : testing::LogCapture::lines()) {
        if (line.channel == "test.hexdump") messages.push_back(line.message);
    }
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0], std::string(lines[0].view()));
}

}  // namespace
}  // namespace basicutil
