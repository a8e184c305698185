#include "basicutil/hexdump/HexDumper.h"

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

// A dump streamed in pieces is the dump of the whole; offsets past 4 GiB take more digits.
TEST(HexDumperTest, StreamedPiecesMakeTheWholeDump) {
    std::string bytes(1000, '\0');
    std::mt19937 rng(3);
    for (char& c : bytes) c = static_cast<char>(rng());
    Str whole, streamed;
    HexDumper_to_Str(whole).do_dump(bytes.data(), bytes.size());
    HexDumper_to_Str pieces(streamed);
    std::uint64_t offset = 0;
    for (std::size_t lines : {1u, 5u, 0u, 40u, 16u}) {
        pieces.dumpLines(bytes.data() + offset, 16 * lines, offset);
        offset += 16 * lines;
    }
    pieces.dumpLines(bytes.data() + offset, bytes.size() - offset, offset);
    pieces.lengthLine(bytes.size());
    EXPECT_EQ(streamed.view(), whole.view());

    StrVector far;
    HexDumper_to_StrVector sink(far);
    sink.dumpLines("0123456789abcdefXY", 18, 0xfffffff0u);
    sink.lengthLine(0x123456789abcdefULL);
    ASSERT_EQ(far.size(), 3u);
    EXPECT_EQ(far[0].view(),
              "fffffff0  30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66  |0123456789abcdef|");
    EXPECT_EQ(far[1].view(), "100000000  58 59                                             |XY|");
    EXPECT_EQ(far[2].view(), "123456789abcdef");
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

    // A crash log takes the same lines, each ended.
    FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    crash_dump d;
    crash_dump_init(&d, fileno(file));
    HexDumper_to_CrashLog(&d).do_dump(bytes.data(), bytes.size());
    ASSERT_EQ(crash_dump_flush(&d), 0);
    std::rewind(file);
    char text[512] = {};
    const std::size_t n = std::fread(text, 1, sizeof text - 1, file);
    EXPECT_EQ(std::fclose(file), 0);
    EXPECT_EQ(std::string(text, n), std::string(lines[0].view()) + "\n" + std::string(lines[1].view()) +
                                        "\n" + std::string(lines[2].view()) + "\n");
}

}  // namespace
}  // namespace basicutil
