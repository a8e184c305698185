#include "libzero/unicode-file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unicode/ucnv.h>
#include <unistd.h>

#include <csignal>
#include <random>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "basicutil/files/FileSystem.h"

namespace {

using basicutil::TemporaryDirectory;

// ICU's converter, substituting U+FFFD for each maximal ill-formed part: the oracle.
std::string icuToUtf8(const char* encoding, const std::string& in) {
    UErrorCode status = U_ZERO_ERROR;
    UConverter* from = ucnv_open(encoding, &status);
    UConverter* to = ucnv_open("UTF-8", &status);
    EXPECT_TRUE(U_SUCCESS(status));
    std::string out(in.size() * 3 + 16, '\0');
    char* target = out.data();
    const char* source = in.data();
    ucnv_convertEx(to, from, &target, out.data() + out.size(), &source, in.data() + in.size(), nullptr,
                   nullptr, nullptr, nullptr, true, true, &status);
    EXPECT_TRUE(U_SUCCESS(status)) << u_errorName(status);
    ucnv_close(from);
    ucnv_close(to);
    out.resize(static_cast<std::size_t>(target - out.data()));
    return out;
}

std::string convert(utrans_encoding encoding, const std::string& in, uint64_t& replacements,
                    uint64_t& first) {
    std::string out(utrans_output_bound(in.size()), '\0');
    std::size_t used = 0;
    replacements = 0;
    first = UINT64_MAX;
    out.resize(utrans_convert(encoding, reinterpret_cast<const unsigned char*>(in.data()), in.size(), 1,
                              &used, out.data(), &replacements, &first));
    EXPECT_EQ(used, in.size());
    return out;
}

std::size_t countReplacementCharacters(const std::string& s) {
    std::size_t n = 0;
    for (std::size_t at = s.find("\xEF\xBF\xBD"); at != std::string::npos;
         at = s.find("\xEF\xBF\xBD", at + 3))
        ++n;
    return n;
}

struct Encoding {
    utrans_encoding ours;
    const char* icu;
};
const Encoding kEncodings[] = {
    {UTRANS_UTF8, "UTF-8"}, {UTRANS_UTF16LE, "UTF-16LE"}, {UTRANS_UTF16BE, "UTF-16BE"}};

TEST(UnicodeFileTest, ConversionAgreesWithIcu) {
    const std::string utf8Cases[] = {
        "plain",
        "\xC3\xA9",
        "\xE2\x82\xAC",
        "\xF0\x9F\x98\x80",
        "\x80",
        "\xC0\xAF",
        "\xC2",
        "\xE0\x80\x80",
        "\xE0\xA0",
        "\xED\xA0\x80",
        "\xF0\x8F\xBF\xBF",
        "\xF4\x90\x80\x80",
        "\xF5\x80",
        "\xFF\xFE",
        "a\xF0\x9F\x98",
        "\xF0\x9F\x98"
        "a",
        std::string("nul\0byte", 8),
        "\xE2\x82\xAC\xC3",
    };
    for (const std::string& in : utf8Cases) {
        SCOPED_TRACE(in);
        uint64_t replacements, first;
        EXPECT_EQ(convert(UTRANS_UTF8, in, replacements, first), icuToUtf8("UTF-8", in));
    }
    const std::string utf16leCases[] = {
        std::string("a\0", 2),
        "\x3D\xD8\x00\xDE",
        "\x3D\xD8",
        "\x00\xDE",
        "\x3D\xD8"
        "a\0",
        "a",
        std::string("a\0b", 3),
        "\x3D\xD8"
        "a",
        "\x00\xDE\x3D\xD8\x00\xDE",
    };
    for (const std::string& in : utf16leCases) {
        SCOPED_TRACE(in);
        uint64_t replacements, first;
        EXPECT_EQ(convert(UTRANS_UTF16LE, in, replacements, first), icuToUtf8("UTF-16LE", in));
    }

    // Random bytes biased towards the interesting ones; 0xBD and 0xFD are left out so that no
    // valid U+FFFD is in the input and every one in the output is a replacement.
    std::mt19937 rng(11);
    const unsigned char alphabet[] = {'a',  0x00, 0x7F, 0x80, 0xBF, 0xC2, 0xC3, 0xDF, 0xE0, 0xE2, 0xED,
                                      0xEF, 0xF0, 0xF4, 0xF5, 0xFF, 0xD8, 0xDB, 0xDC, 0xDF, 0x9F, 0xA0};
    for (const Encoding& e : kEncodings) {
        for (int round = 0; round < 3000; ++round) {
            std::string in(rng() % 40, '\0');
            for (char& c : in) c = static_cast<char>(alphabet[rng() % sizeof alphabet]);
            uint64_t replacements, first;
            const std::string ours = convert(e.ours, in, replacements, first);
            ASSERT_EQ(ours, icuToUtf8(e.icu, in)) << e.icu << " round " << round;
            ASSERT_EQ(replacements, countReplacementCharacters(ours));
            ASSERT_EQ(first == UINT64_MAX, replacements == 0);
            if (replacements != 0) {
                ASSERT_LT(first, in.size());
            }
        }
    }
}

// Fed in pieces of every size, the conversion gives what it gives in one piece.
TEST(UnicodeFileTest, PiecesGiveTheSameAnswer) {
    std::mt19937 rng(5);
    for (const Encoding& e : kEncodings) {
        for (int round = 0; round < 300; ++round) {
            std::string in(rng() % 64, '\0');
            for (char& c : in) c = static_cast<char>(rng() % 4 == 0 ? rng() : (0xD8 + rng() % 40) & 0xFF);
            uint64_t wholeCount, wholeFirst;
            const std::string whole = convert(e.ours, in, wholeCount, wholeFirst);
            const std::size_t piece = 1 + rng() % 7;
            std::string out, pending;
            uint64_t count = 0;
            std::size_t fed = 0;
            while (fed < in.size() || !pending.empty()) {
                const std::size_t take = std::min(piece, in.size() - fed);
                pending += in.substr(fed, take);
                fed += take;
                const bool final = fed == in.size();
                std::string part(utrans_output_bound(pending.size()), '\0');
                std::size_t used = 0;
                part.resize(utrans_convert(e.ours, reinterpret_cast<const unsigned char*>(pending.data()),
                                           pending.size(), final, &used, part.data(), &count, nullptr));
                out += part;
                pending.erase(0, used);
                if (final) {
                    ASSERT_TRUE(pending.empty());
                }
            }
            ASSERT_EQ(out, whole) << e.icu << " round " << round;
            ASSERT_EQ(count, wholeCount);
        }
    }
}

std::string readAllThrough(utrans_reader* r, std::size_t capacity) {
    std::string out;
    std::string buf(capacity, '\0');
    ptrdiff_t n;
    while ((n = utrans_read(r, buf.data(), capacity)) > 0)
        out.append(buf.data(), static_cast<std::size_t>(n));
    EXPECT_EQ(n, 0);
    return out;
}

void writeFile(const std::string& path, const std::string& bytes) {
    ASSERT_TRUE(basicutil::replaceFileContents(std::string_view(path), std::string_view(bytes)).ok());
}

TEST(UnicodeFileTest, ReaderDetectsTheMarkAndReportsBadInput) {
    TemporaryDirectory dir;
    ASSERT_TRUE(dir.create().ok());
    const std::string path(dir / "in.txt");
    struct Case {
        std::string bytes;
        utrans_encoding asked;
        utrans_encoding found;
        bool bom;
        std::string text;
        uint64_t replacements, first;
    } cases[] = {
        {"\xEF\xBB\xBFh\xC3\xA9", UTRANS_DETECT, UTRANS_UTF8, true, "h\xC3\xA9", 0, UINT64_MAX},
        {"h\xC3\xA9", UTRANS_DETECT, UTRANS_UTF8, false, "h\xC3\xA9", 0, UINT64_MAX},
        {std::string("\xFF\xFEh\0\xE9\0", 6), UTRANS_DETECT, UTRANS_UTF16LE, true, "h\xC3\xA9", 0,
         UINT64_MAX},
        {std::string("\xFE\xFF\0h\0\xE9", 6), UTRANS_DETECT, UTRANS_UTF16BE, true, "h\xC3\xA9", 0,
         UINT64_MAX},
        {std::string("h\0\x00\xDC", 4), UTRANS_UTF16LE, UTRANS_UTF16LE, false, "h\xEF\xBF\xBD", 1, 2},
        {std::string("\xFF\xFEh\0x", 5), UTRANS_DETECT, UTRANS_UTF16LE, true, "h\xEF\xBF\xBD", 1, 4},
        // A mark of another encoding than the one asked for is data.
        {"\xFF\xFE"
         "ab",
         UTRANS_UTF8, UTRANS_UTF8, false,
         "\xEF\xBF\xBD\xEF\xBF\xBD"
         "ab",
         2, 0},
        {"\xEF\xBB", UTRANS_DETECT, UTRANS_UTF8, false, "\xEF\xBF\xBD", 1, 0},
        {"", UTRANS_DETECT, UTRANS_UTF8, false, "", 0, UINT64_MAX},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bytes);
        writeFile(path, c.bytes);
        int error = -1;
        utrans_reader* r = utrans_open_read(path.c_str(), c.asked, &error);
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(utrans_reader_encoding(r), c.found);
        EXPECT_EQ(utrans_reader_had_bom(r) != 0, c.bom);
        EXPECT_EQ(readAllThrough(r, 4), c.text);
        EXPECT_EQ(utrans_replacements(r), c.replacements);
        EXPECT_EQ(utrans_first_replacement(r), c.first);
        EXPECT_EQ(utrans_close_read(r), 0);
    }
    int error = 0;
    EXPECT_EQ(utrans_open_read((dir / "missing").c_str(), UTRANS_DETECT, &error), nullptr);
    EXPECT_EQ(error, ENOENT);
}

// A large mixed file through a pipe that delivers odd-sized pieces: the same text as from the
// file, whatever the caller's buffer, with offsets counted across buffer refills.
TEST(UnicodeFileTest, ReaderStreamsAcrossRefills) {
    std::string text;
    std::mt19937 rng(3);
    const char* const pieces[] = {"ascii ", "\xC3\xA9", "\xD0\x96", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80", "\n"};
    while (text.size() < 300000) text += pieces[rng() % std::size(pieces)];
    std::string utf16;  // big-endian, marked, with one unpaired surrogate far in
    utf16 += "\xFE\xFF";
    uint64_t count = 0, first = UINT64_MAX;
    {
        std::string le = icuToUtf8("UTF-8", text);  // already valid; keep the oracle honest
        ASSERT_EQ(le, text);
        UErrorCode status = U_ZERO_ERROR;
        std::string out(text.size() * 4, '\0');
        const int32_t n = ucnv_convert("UTF-16BE", "UTF-8", out.data(), static_cast<int32_t>(out.size()),
                                       text.data(), static_cast<int32_t>(text.size()), &status);
        ASSERT_TRUE(U_SUCCESS(status));
        out.resize(static_cast<std::size_t>(n));
        std::size_t split = 200000;  // not inside a surrogate pair
        while ((static_cast<unsigned char>(out[split]) & 0xFC) == 0xDC) split += 2;
        utf16 += out.substr(0, split);
        utf16 += std::string("\xDC\x00", 2);
        utf16 += out.substr(split);
    }
    const std::string expected = convert(UTRANS_UTF16BE, utf16.substr(2), count, first);
    ASSERT_EQ(count, 1u);

    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    std::thread writer([&] {
        std::size_t at = 0;
        std::mt19937 pieceRng(9);
        while (at < utf16.size()) {
            const std::size_t n = std::min<std::size_t>(1 + pieceRng() % 9000, utf16.size() - at);
            if (::write(fds[1], utf16.data() + at, n) != static_cast<ssize_t>(n)) break;
            at += n;
        }
        ::close(fds[1]);
    });
    int error = -1;
    utrans_reader* r = utrans_fdopen_read(fds[0], UTRANS_DETECT, &error);
    ASSERT_NE(r, nullptr);
    const std::string got = readAllThrough(r, 777);
    writer.join();
    EXPECT_EQ(got, expected);
    EXPECT_EQ(utrans_reader_encoding(r), UTRANS_UTF16BE);
    EXPECT_EQ(utrans_replacements(r), 1u);
    EXPECT_EQ(utrans_first_replacement(r), first + 2);  // counted in the file, mark included
    EXPECT_EQ(utrans_close_read(r), 0);
}

TEST(UnicodeFileTest, WritersRoundTripInPieces) {
    TemporaryDirectory dir;
    ASSERT_TRUE(dir.create().ok());
    const std::string path(dir / "out.txt");
    const std::string text = "plain \xC3\xA9\xD0\x96\xE4\xB8\xAD\xF0\x9F\x98\x80 end\n";
    std::mt19937 rng(1);
    for (const Encoding& e : kEncodings) {
        for (int flags : {0, int{UTRANS_WRITE_BOM}}) {
            SCOPED_TRACE(std::string(e.icu) + (flags != 0 ? " with mark" : ""));
            int error = -1;
            utrans_writer* w = utrans_open_write(path.c_str(), e.ours, flags, 0644, &error);
            ASSERT_NE(w, nullptr);
            // Pieces split characters anywhere.
            for (std::size_t at = 0; at < text.size();) {
                const std::size_t n = std::min<std::size_t>(1 + rng() % 3, text.size() - at);
                ASSERT_EQ(utrans_write(w, text.data() + at, n), 0);
                at += n;
            }
            ASSERT_EQ(utrans_write_codepoint(w, 0x1F600), 0);
            ASSERT_EQ(utrans_write_codepoint(w, 0xD800), 0);  // a surrogate is not a character
            EXPECT_EQ(utrans_writer_replacements(w), 1u);
            ASSERT_EQ(utrans_close_write(w), 0);

            utrans_reader* r = utrans_open_read(path.c_str(), flags != 0 ? UTRANS_DETECT : e.ours, &error);
            ASSERT_NE(r, nullptr);
            EXPECT_EQ(readAllThrough(r, 64), text + "\xF0\x9F\x98\x80\xEF\xBF\xBD");
            EXPECT_EQ(utrans_reader_encoding(r), e.ours);
            EXPECT_EQ(utrans_reader_had_bom(r) != 0, flags != 0);
            EXPECT_EQ(utrans_replacements(r), 0u);
            EXPECT_EQ(utrans_close_read(r), 0);
        }
    }
    // Exact bytes: a marked big-endian file, malformed input cleaned, a dangling start at close.
    int error = -1;
    utrans_writer* w = utrans_open_write(path.c_str(), UTRANS_UTF16BE, UTRANS_WRITE_BOM, 0644, &error);
    ASSERT_NE(w, nullptr);
    ASSERT_EQ(utrans_write(w, "A\xFF\xF0\x9F", 4), 0);
    ASSERT_EQ(utrans_close_write(w), 0);
    basicutil::Str bytes;
    basicutil::FileDescriptor fd;
    ASSERT_TRUE(fd.open(std::string_view(path), O_RDONLY).ok());
    ASSERT_TRUE(fd.readAll(bytes).ok());
    EXPECT_EQ(std::string(bytes.view()), std::string("\xFE\xFF\0A\xFF\xFD\xFF\xFD", 8));
}

TEST(UnicodeFileTest, WriterReportsAFullDisk) {
    TemporaryDirectory dir;
    ASSERT_TRUE(dir.create().ok());
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{100000, 100000};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(3);
        int error = 0;
        utrans_writer* w = utrans_open_write((dir / "big").c_str(), UTRANS_UTF8, 0, 0644, &error);
        if (w == nullptr) _exit(4);
        const std::string line(1000, 'x');
        int failedAt = -1;
        for (int i = 0; i < 200 && failedAt < 0; ++i) {
            if (utrans_write(w, line.data(), line.size()) != 0) failedAt = i;
        }
        const int closed = utrans_close_write(w);
        _exit(failedAt > 0 && errno == EFBIG && closed == EFBIG ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
