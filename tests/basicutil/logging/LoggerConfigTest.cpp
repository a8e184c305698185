#include "basicutil/logging/LoggerConfig.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "basicutil/platform/Platform.h"
#include "basicutil/threads/Thread.h"
#include "support/LogCapture.h"
#include "support/fault-injection.h"
#include "support/test-platform.h"

namespace basicutil {
namespace {

namespace fs = std::filesystem;

class LoggerConfigTest : public ::testing::Test {
  protected:
    void SetUp() override {
        _dir = fs::path(::testing::TempDir()) /
               ("logcfg-" + std::to_string(::getpid()) + "-" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(_dir);
        fs::create_directories(_dir);
    }
    void TearDown() override { fs::remove_all(_dir); }

    std::string path(const std::string& name) const { return (_dir / name).string(); }
    void writeFile(const std::string& name, const std::string& text) const {
        std::ofstream(path(name)) << text;
    }
    static std::string readFile(const std::string& file) {
        std::ifstream in(file);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    std::vector<std::string> messages(const testing::LogCapture&, LogLevel atLeast = LOG_DEBUG) const {
        std::vector<std::string> out;
        for (const auto& line : testing::LogCapture::lines()) {
            if (line.channel == "Logger" && line.level >= atLeast) out.push_back(line.message);
        }
        return out;
    }

    fs::path _dir;
};

// Back to no configuration, for the tests that follow.
void unconfigure() {
    struct Reset : Logger::iterate_channels_callback {
        void visit(Logger& logger) override {
            logger.setAppenders({});
            logger.setThreshold(LOG_DEBUG);
        }
    } reset;
    Logger::iterateChannels(reset);
    Logger::setChannelSetup(nullptr);
}

LogEvent event(std::int64_t seconds, const char* message, int level = LOG_INFO) {
    return {"test", level, {seconds, 0}, message};
}

LogAppenderSettings toFile(const std::string& file, std::uint64_t maxFileSize = 0,
                           std::uint64_t backups = 0) {
    LogAppenderSettings s;
    s.name = "F";
    s.hasFileName = true;
    s.fileName = Str(file);
    s.maxFileSize = maxFileSize;
    s.maxBackupIndex = backups;
    return s;
}

// "line number 0\n" ... : 14 bytes each, so two fit in a 30-byte file.
std::string numbered(int from, int to) {
    std::string text;
    for (int i = from; i <= to; ++i) text += "line number " + std::to_string(i) + "\n";
    return text;
}

void writeNumbered(LogAppender& appender, std::int64_t seconds, int from, int to) {
    for (int i = from; i <= to; ++i)
        appender.write(event(seconds, ("line number " + std::to_string(i)).c_str()));
}

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.rfind(prefix, 0) == 0;
}

TEST_F(LoggerConfigTest, EveryProblemNamesItsFileAndLine) {
    writeFile("app.cfg",
              "# a comment\n"
              "\n"
              "   rootCategory = WARN, A1\n"
              "  # an indented comment\n"
              "category.Thread=debug, A2\n"
              "no equals sign here\n"
              "appender.A1.maxFileSize=1024*1024\n"
              "appender.A1.maxBackupIndex=-5\n"
              "appender.A1.bufferSize=10 apples\n"
              "appender.A1.serialization=XML\n"
              "appender.A1.escape=html\n"
              "appender.A1.layout=FancyLayout\n"
              "appender.A1.colour=red\n"
              "category.Timeval=LOUD\n"
              "[section\n"
              "# <!-- a \"#\" line opens no comment\n"
              "appender.A2.serialization =\tJSON\n"
              "appender.A2.layout.ConversionPattern=%d %x %m%n\n"
              "appender.A2.fileName=" +
                  path("a.log") +
                  "\n"
                  "appender.A2.fileName=" +
                  path("b.log") +
                  "\n"
                  "[other]\n"
                  "appender.A2.fileName=" +
                  path("c.log") +
                  "\n"
                  "[prog]\n"
                  "appender.A2.fileName=" +
                  path("d.log") +
                  "\n"
                  "<!-- a comment\n"
                  "over lines --> rootAppender=A3\n"
                  "<!-- never closed\n");
    LogConfiguration config;
    ASSERT_TRUE(config.parse_one_log_cfg_file(path("app.cfg").c_str(), "prog"));
    auto texts = [&config] {
        std::vector<std::string> out;
        for (const DeferredLogConf& p : config.problems()) out.push_back(p.describe().c_str());
        return out;
    };
    const std::string f = path("app.cfg");
    EXPECT_EQ(texts(), (std::vector<std::string>{
                           f + ":6: Parse error at \"no equals sign here\"",
                           f + ":7: Parse error at \"appender.A1.maxFileSize=1024*1024\"",
                           f + ":8: Parse error at \"appender.A1.maxBackupIndex=-5\"",
                           f + ":9: Parse error at \"appender.A1.bufferSize=10 apples\"",
                           f + ":10: Invalid serialization='XML'",
                           f + ":11: Invalid escape='html'",
                           f + ":12: Parse error at \"appender.A1.layout=FancyLayout\"",
                           f + ":13: Parse error at \"appender.A1.colour=red\"",
                           f + ":14: Parse error at \"LOUD\"",
                           f + ":15: Parse error at \"[section\"",
                           f + ":18: Invalid ConversionPattern: \"%x\" at offset 3 is no conversion",
                           f + ":20: Key \"appender.A2.fileName\" given again (first at line 19); the later "
                               "value holds",
                           f + ":27: Unterminated XML comment started",
                       }));
    // What holds, and where it came from: blanks after "=" trimmed, the program's section last.
    std::vector<std::string> entries;
    for (const LogConfigEntry& e : config.entries()) {
        entries.push_back(std::string(e.key.view()) + "=" + std::string(e.value.view()) + " @" +
                          std::to_string(e.line));
    }
    EXPECT_EQ(entries,
              (std::vector<std::string>{
                  "rootCategory=WARN, A1 @3", "category.Thread=debug, A2 @5",
                  "appender.A2.serialization=JSON @17", "appender.A2.layout.ConversionPattern=%d %x %m%n @18",
                  "appender.A2.fileName=" + path("d.log") + " @24", "rootAppender=A3 @26"}));
    // Verifying adds what applying would find.
    const std::size_t parsed = config.problems().size();
    config.verify();
    const std::vector<std::string> all = texts();
    EXPECT_EQ(std::vector<std::string>(all.begin() + static_cast<std::ptrdiff_t>(parsed), all.end()),
              (std::vector<std::string>{
                  f + ":26: Undefined appender \"A3\"",
                  f + ":7: Appender \"A1\" has no filename, assuming stderr",
                  f + ":17: Invalid ConversionPattern: appender \"A2\" has a pattern but not PatternLayout: "
                      "its pattern is not used",
              }));

    LogConfiguration missing;
    const Status st = missing.parse_one_log_cfg_file(path("none.cfg").c_str(), "prog");
    EXPECT_EQ(st.error(), ENOENT);
    EXPECT_EQ(std::string(missing.problems().at(0).describe().c_str()),
              "Couldn't open log file configuration \"" + path("none.cfg") + "\": No such file or directory");
    EXPECT_EQ(st.text().view(), missing.problems().at(0).describe().view());
    // A file past the size limit is refused whole, and says so.
    writeFile("huge.cfg", std::string((1 << 20) + 1, '#'));
    EXPECT_EQ(missing.parse_one_log_cfg_file(path("huge.cfg").c_str(), "prog").error(), EFBIG);
    DeferredLogConf odd;
    odd.error_type = 42;
    EXPECT_EQ(odd.describe().view(), "I know not this DeferredLogConf::error_type=42 you speak of.");
}

// An appender's target is probed without creating or changing anything.
TEST_F(LoggerConfigTest, ProbingFindsTargetsThatCannotBeAppendedTo) {
    writeFile("exists.log", "kept\n");
    struct Case {
        std::string path;
        const char* error;  // null: appendable
    } cases[] = {
        {path("exists.log"), nullptr},
        {path("new.log"), nullptr},
        {path(""), "Is a directory"},
        {path("no/such/dir/x.log"), "No such file or directory"},
        {path("exists.log/x.log"), "Not a directory"},
    };
    for (const Case& c : cases) {
        Str error;
        EXPECT_EQ(LogAppender::probeFile(c.path.c_str(), error), c.error == nullptr) << c.path;
        if (c.error != nullptr) {
            EXPECT_EQ(error.view(), "Cannot append to \"" + c.path + "\": " + c.error);
        }
    }
    EXPECT_FALSE(fs::exists(path("new.log")));
    EXPECT_EQ(readFile(path("exists.log")), "kept\n");
}

TEST_F(LoggerConfigTest, AppenderChecksWarnInOrder) {
    testing::LogCapture log;
    struct Case {
        LogAppenderSettings settings;
        std::vector<std::string> warnings;
    };
    LogAppenderSettings noFile;
    noFile.name = "E";
    noFile.maxBackupIndex = 3;
    noFile.maxFileSize = 100;
    noFile.serialization = static_cast<LogSerialization>(7);
    LogAppenderSettings noSize;
    noSize.name = "F";
    noSize.hasFileName = true;
    noSize.fileName = Str(path("f.log"));
    noSize.maxBackupIndex = 2;
    const Case cases[] = {
        {noFile,
         {"Appender \"E\" has no filename, assuming stderr",
          "Appender \"E\" has maxBackupIndex set without specifying a filename, ignoring",
          "Appender \"E\" has maxFileSize set without specifying a filename, ignoring",
          "Appender \"E\" has _serialization set to non-normative value, BUG!, ignoring pointedly."}},
        {noSize,
         {"Appender \"F\" has maxBackupIndex set without specifying maxFileSize, ignoring",
          "Successfully opened \"" + path("f.log") + "\" now."}},
    };
    for (const Case& c : cases) {
        testing::LogCapture::lines().clear();
        LogAppender appender(c.settings);
        EXPECT_EQ(messages(log), c.warnings) << c.settings.name.c_str();
        EXPECT_EQ(appender.settings().maxBackupIndex, 0u);
        EXPECT_EQ(appender.settings().serialization, LogSerialization::TEXT);
    }
    testing::LogCapture::lines().clear();
    LogAppenderSettings bad;
    bad.name = "G";
    bad.hasFileName = true;
    bad.fileName = Str(path("no/such/dir/g.log"));
    LogAppender failing(bad);
    failing.write(event(100, "lost"));
    ASSERT_FALSE(messages(log).empty());
    EXPECT_EQ(messages(log)[0],
              "Failed opening \"" + path("no/such/dir/g.log") + "\": No such file or directory");
}

// Rotation keeps N copies, whatever gaps the numbered names have.
TEST_F(LoggerConfigTest, RotationKeepsItsCopies) {
    for (std::uint64_t keep : {0u, 1u, 3u}) {
        const std::string file = path("r" + std::to_string(keep) + ".log");
        LogAppenderSettings s;
        s.name = "R";
        s.hasFileName = true;
        s.fileName = Str(file);
        s.maxFileSize = 30;
        s.maxBackupIndex = keep;
        if (keep == 3) writeFile("r3.log.2", "an old copy beyond a gap\n");  // .1 missing
        {
            LogAppender appender(s);
            for (int i = 0; i < 8; ++i)
                appender.write(event(100, ("line number " + std::to_string(i)).c_str()));
        }
        EXPECT_EQ(readFile(file), "line number 6\nline number 7\n") << keep;  // two 14-byte lines fit in 30
        for (std::uint64_t k = 1; k <= 4; ++k) {
            const bool expected = k <= keep;
            EXPECT_EQ(fs::exists(file + "." + std::to_string(k)), expected) << keep << " ." << k;
        }
        if (keep >= 1) {
            EXPECT_EQ(readFile(file + ".1"), "line number 4\nline number 5\n");
        }
        if (keep == 3) {
            EXPECT_EQ(readFile(file + ".3"), "line number 0\nline number 1\n");
        }
    }
}

// A gap in the numbered names (F.1 missing, F.2 there) ends the shift: F becomes F.1 and the
// copy beyond the gap stays where it is until the names before it fill up.
TEST_F(LoggerConfigTest, RotationShiftsOnlyUpToTheFirstFreeName) {
    const std::string file = path("gap.log");
    writeFile("gap.log.2", "beyond the gap\n");
    LogAppender appender(toFile(file, 30, 3));
    writeNumbered(appender, 100, 0, 2);
    EXPECT_EQ(readFile(file), numbered(2, 2));
    EXPECT_EQ(readFile(file + ".1"), numbered(0, 1));
    EXPECT_EQ(readFile(file + ".2"), "beyond the gap\n");
    EXPECT_FALSE(fs::exists(file + ".3"));
    writeNumbered(appender, 100, 3, 4);
    EXPECT_EQ(readFile(file + ".1"), numbered(2, 3));
    EXPECT_EQ(readFile(file + ".2"), numbered(0, 1));
    EXPECT_EQ(readFile(file + ".3"), "beyond the gap\n");
}

// A rename that fails leaves the live file as it is and in use: reported once, retried every
// 5 seconds of event time without more reports, and done once the way is clear.
TEST_F(LoggerConfigTest, AFailedRenameKeepsTheLiveFileAndSaysSoOnce) {
    testing::LogCapture log;
    const std::string file = path("stuck.log");
    fs::create_directories(file + ".1/inside");  // no file is renamed over a directory that holds one
    {
        LogAppender appender(toFile(file, 30, 1));
        writeNumbered(appender, 100, 0, 5);
        EXPECT_EQ(readFile(file), numbered(0, 5));
        const std::vector<std::string> said = messages(log, LOG_WARN);
        ASSERT_EQ(said.size(), 3u) << ::testing::PrintToString(said);
        EXPECT_TRUE(startsWith(said[0], "Error unlinking \"" + file + ".1\": ")) << said[0];
        EXPECT_TRUE(startsWith(said[1], "Error renaming \"" + file + "\" to \"" + file + ".1\": "))
            << said[1];
        EXPECT_EQ(said[2], "Appending to \"" + file + "\" beyond maxFileSize until it can be rotated");
        writeNumbered(appender, 105, 6, 6);  // tried again, in vain, and not said again
        EXPECT_EQ(messages(log, LOG_WARN).size(), 3u);
        fs::remove_all(file + ".1");
        writeNumbered(appender, 106, 7, 7);  // the next try is at 110
        EXPECT_FALSE(fs::exists(file + ".1"));
        writeNumbered(appender, 110, 8, 8);
    }
    EXPECT_EQ(readFile(file + ".1"), numbered(0, 7));
    EXPECT_EQ(readFile(file), numbered(8, 8));
}

// Another process moved the file between the search and the rename: said, whatever the error,
// and nothing is lost.
TEST_F(LoggerConfigTest, ARenameFailingForAnyReasonIsReported) {
    testing::LogCapture log;
    const std::string file = path("moved.log");
    LogAppender appender(toFile(file, 30, 2));
    writeNumbered(appender, 100, 0, 1);
    vestra_fail_next_rename(file.c_str(), ENOENT);
    writeNumbered(appender, 100, 2, 2);
    EXPECT_EQ(messages(log, LOG_WARN), (std::vector<std::string>{"Error renaming \"" + file + "\" to \"" +
                                                                 file + ".1\": No such file or directory"}));
    EXPECT_EQ(readFile(file), numbered(0, 2));
}

// A target that cannot be opened or written is reported at once, on the "Logger" channel and, as
// no appender of that channel can carry it, on standard error; each later line tries once more in
// silence, and the lines that could not be written are counted when the appender goes.
TEST_F(LoggerConfigTest, FailingTargetsAreReportedAtOnceAndTheirLinesCounted) {
    // What opening for appending, then writing, does to a target: the first failure's text.
    auto firstFailure = [](const std::string& target) {
        char text[128];
        const int fd = ::open(target.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        if (fd < 0)
            return "Failed opening \"" + target + "\": " + platform::errorText(errno, text, sizeof text);
        const bool wrote = ::write(fd, "x", 1) == 1;
        const int error = errno;
        ::close(fd);
        return wrote
                   ? std::string()
                   : "Error writing to \"" + target + "\": " + platform::errorText(error, text, sizeof text);
    };
    struct Case {
        std::string target;
        std::string failure;
    } cases[] = {
        {path("a-directory"), "Failed opening \"" + path("a-directory") + "\": Is a directory"},
        {path("missing/dir/x.log"),
         "Failed opening \"" + path("missing/dir/x.log") + "\": No such file or directory"},
        {"/dev/full", "Error writing to \"/dev/full\": No space left on device"},
        {"/proc/version", firstFailure("/proc/version")},
    };
    fs::create_directories(path("a-directory"));
    for (const Case& c : cases) {
        // Linux's own devices and files: FreeBSD has no /dev/full, and no /proc unless mounted.
        if ((c.target == "/dev/full" || c.target == "/proc/version") && !fs::exists(c.target)) continue;
        if (c.target == "/proc/version" && c.failure.empty()) continue;
        SCOPED_TRACE(c.target);
        testing::LogCapture log;
        ::testing::internal::CaptureStderr();
        {
            vestra_count_opens_of(c.target.c_str());
            LogAppender appender(toFile(c.target));
            for (int i = 0; i < 3; ++i) appender.write(event(100 + i, "lost"));
            EXPECT_EQ(messages(log, LOG_WARN), std::vector<std::string>{c.failure});
            EXPECT_FALSE(appender.healthy());
            // Once at the start, then at most once per line: a file that failed to open again.
            EXPECT_EQ(vestra_opens_counted(), c.failure.rfind("Failed opening", 0) == 0 ? 4 : 1);
            vestra_count_opens_of("");
        }
        const std::string count = "3 lines could not be written to \"" + c.target + "\"";
        EXPECT_EQ(messages(log, LOG_WARN), (std::vector<std::string>{c.failure, count}));
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), c.failure + "\n" + count + "\n");
    }
}

// Once a line gets through again, the lines lost before it are counted.
TEST_F(LoggerConfigTest, ARecoveredTargetCountsWhatItLost) {
    testing::LogCapture log;
    const std::string file = path("later/x.log");
    ::testing::internal::CaptureStderr();
    LogAppender appender(toFile(file));
    appender.write(event(100, "lost 1"));
    appender.write(event(100, "lost 2"));
    fs::create_directories(path("later"));
    appender.write(event(100, "kept"));
    static_cast<void>(::testing::internal::GetCapturedStderr());
    EXPECT_EQ(readFile(file), "kept\n");
    EXPECT_TRUE(appender.healthy());
    EXPECT_EQ(messages(log, LOG_WARN),
              (std::vector<std::string>{"Failed opening \"" + file + "\": No such file or directory",
                                        "2 lines could not be written to \"" + file + "\""}));
}

TEST_F(LoggerConfigTest, DisabledAppendersIgnoreLines) {
    const std::string file = path("d.log");
    LogAppender appender(toFile(file));
    appender.write(event(100, "one"));
    appender.disable();
    EXPECT_TRUE(appender.disabled());
    appender.write(event(100, "two"));
    appender.enable();
    appender.write(event(100, "three"));
    EXPECT_EQ(readFile(file), "one\nthree\n");
}

TEST_F(LoggerConfigTest, FilesMovedOrDeletedOutsideAreReopened) {
    const std::string file = path("moved.log");
    LogAppenderSettings s;
    s.name = "M";
    s.hasFileName = true;
    s.fileName = Str(file);
    LogAppender appender(s);
    appender.write(event(100, "first"));
    fs::rename(file, file + ".old");
    appender.write(event(102, "still old: checked at most every 5 s"));
    appender.write(event(106, "new file"));
    ASSERT_EQ(::unlink(file.c_str()), 0);
    appender.write(event(112, "after rm"));
    EXPECT_EQ(readFile(file + ".old"), "first\nstill old: checked at most every 5 s\n");
    EXPECT_EQ(readFile(file), "after rm\n");
}

TEST_F(LoggerConfigTest, BufferedLinesWaitForTheirFlush) {
    const std::string file = path("buffered.log");
    LogAppenderSettings s;
    s.name = "B";
    s.hasFileName = true;
    s.fileName = Str(file);
    s.buffered = true;
    s.bufferSize = 64;
    auto appender = std::make_unique<LogAppender>(s);
    appender->write(event(100, "one"));
    EXPECT_EQ(readFile(file), "");
    appender->write(event(100, "two", LOG_ERROR));  // ERROR and above: out at once
    EXPECT_EQ(readFile(file), "one\ntwo\n");
    appender->write(event(100, "three"));
    appender->write(event(101, "a second later"));  // the oldest waited a second
    EXPECT_EQ(readFile(file), "one\ntwo\nthree\na second later\n");
    appender->write(event(101, std::string(70, 'x').c_str()));  // past bufferSize
    EXPECT_EQ(readFile(file).size(), 29u + 71u);
    appender->write(event(101, "left alone"));  // no line follows: the flusher writes it out
    for (int i = 0; i < 40 && readFile(file).size() == 100; ++i) usleep(100000);
    EXPECT_EQ(readFile(file).substr(100), "left alone\n");
    appender->write(event(101, "at exit"));
    appender.reset();
    EXPECT_EQ(readFile(file).substr(111), "at exit\n");
}

TEST_F(LoggerConfigTest, SuspendedAppendersWriteNowhere) {
    const std::string file = path("s.log");
    LogAppenderSettings s;
    s.name = "S";
    s.hasFileName = true;
    s.fileName = Str(file);
    LogAppender appender(s);
    appender.write(event(100, "before"));
    appender.suspend();
    appender.write(event(100, "while suspended"));
    EXPECT_TRUE(appender.unsuspend());
    EXPECT_FALSE(appender.unsuspend());
    appender.write(event(100, "after"));
    EXPECT_EQ(readFile(file), "before\nafter\n");
}

// In a child: a file-size limit of 20 bytes stands for a full disk.
[[noreturn]] void writeTillFull(const std::string& file) {
    testing::LogCapture log;
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{20, 20};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) std::_Exit(3);
    LogAppenderSettings s;
    s.name = "D";
    s.hasFileName = true;
    s.fileName = Str(file);
    LogAppender appender(s);
    appender.write(event(100, "fits in twenty"));
    appender.write(event(100, "does not fit any more"));
    appender.write(event(100, "nor this"));
    // Standard error is a file under the same limit: the verdict goes out as the exit code.
    const std::string expected = "Error writing to \"" + file + "\": File too large";
    for (const auto& line : testing::LogCapture::lines()) {
        if (line.message == expected) std::_Exit(0);
    }
    std::_Exit(1);
}

TEST_F(LoggerConfigTest, AFullDiskIsReportedAndTheProcessGoesOn) {
    EXPECT_EXIT(writeTillFull(path("full.log")), ::testing::ExitedWithCode(0), "");
    // What the limit let through: the crossing line's head where the kernel cuts the write, and
    // nothing of it where it refuses the write whole (older FreeBSD).
    EXPECT_EQ(readFile(path("full.log")), vestra::test_platform::fileSizeLimitCutsWrites()
                                              ? "fits in twenty\ndoes "
                                              : "fits in twenty\n");
}

TEST_F(LoggerConfigTest, ConfiguredChannelsWriteWhereTheFileSays) {
    writeFile("app.cfg",
              "rootCategory=INFO, A1\n"
              "category.test.config=DEBUG, A2\n"
              "appender.A1.fileName=" +
                  path("all.log") +
                  "\n"
                  "appender.A1.layout=PatternLayout\n"
                  "appender.A1.layout.ConversionPattern=%c %p %m%n\n"
                  "appender.A2.fileName=" +
                  path("json.log") +
                  "\n"
                  "appender.A2.serialization=JSON\n"
                  "appender.A2.layout=SimpleLayout\n"
                  "[other-program]\n"
                  "rootCategory=EMERG\n");
    writeFile("app-local.cfg", "appender.A1.layout.ConversionPattern=local %c %p %m%n\n");
    LoggerSimple channel("test.config", 0, 0, 0);
    const auto problems = configureLogging(path("app.cfg").c_str(), "prog");
    EXPECT_TRUE(problems.empty());
    channel.log(LOG_DEBUG, "debug \"quoted\"");
    LoggerSimple later("test.later", 0, 0, 0);  // made after: takes the root's settings
    later.log(LOG_DEBUG, "dropped below INFO");
    later.log(LOG_INFO, "later");
    for (Logger* c : {static_cast<Logger*>(&channel), static_cast<Logger*>(&later)}) c->setAppenders({});
    std::string ours;  // the "Logger" channel writes there too (the appenders' own messages)
    std::istringstream all(readFile(path("all.log")));
    for (std::string line; std::getline(all, line);) {
        if (line.rfind("local test.", 0) == 0) ours += line + "\n";
    }
    EXPECT_EQ(ours, "local test.config DEBUG debug \"quoted\"\nlocal test.later INFO later\n");
    // SimpleLayout pads the level, JSON members too.
    EXPECT_EQ(readFile(path("json.log")), "{\"log_level\":\"DEBUG   \",\"data\":\"debug \\\"quoted\\\"\"}\n");
    unconfigure();
}

// What the appenders' checks and first openings say reaches the appenders the configuration
// sets up, and the caller: each appender under its own name, none folded into another's count.
TEST_F(LoggerConfigTest, ConfigurationWarningsReachTheUser) {
    writeFile("w.cfg",
              "rootCategory=INFO, FILE\n"
              "appender.FILE.fileName=" +
                  path("all.log") +
                  "\n"
                  "appender.FILE.maxBackupIndex=2\n"
                  "category.test.warned=INFO, B, BAD, GHOST\n"
                  "appender.B.fileName=" +
                  path("b.log") +
                  "\n"
                  "appender.B.maxBackupIndex=3\n"
                  "appender.BAD.fileName=" +
                  path("no/such/dir/bad.log") + "\n");
    LoggerSimple channel("test.warned", 0, 0, 0);
    ::testing::internal::CaptureStderr();
    std::vector<std::string> problems;
    for (const DeferredLogConf& p : configureLogging(path("w.cfg").c_str(), "prog")) {
        problems.push_back(p.describe().c_str());
    }
    unconfigure();
    const std::string stderrText = ::testing::internal::GetCapturedStderr();
    const std::string f = path("w.cfg");
    const std::string warnings[] = {
        "Appender \"FILE\" has maxBackupIndex set without specifying maxFileSize, ignoring",
        "Appender \"B\" has maxBackupIndex set without specifying maxFileSize, ignoring",
        "Failed opening \"" + path("no/such/dir/bad.log") + "\": No such file or directory",
        f + ":4: Undefined appender \"GHOST\"",
    };
    EXPECT_EQ(problems, (std::vector<std::string>{f + ":2: " + warnings[0], f + ":5: " + warnings[1],
                                                  f + ":7: " + warnings[2], warnings[3]}));
    const std::string all = readFile(path("all.log"));
    for (const std::string& w : warnings)
        EXPECT_NE(all.find(w + "\n"), std::string::npos) << w << "\n" << all;
    EXPECT_EQ(stderrText, "") << "the Logger channel's own appender carried them";
}

// initialize() runs the channel setup over the channels made before it; channels made after it
// take the setup as they are made, a category's own included.
TEST_F(LoggerConfigTest, ChannelsAreSetUpWhenEverTheyAreMade) {
    LoggerSimple early("test.early", 0, 0, 0);
    Logger::setChannelSetup([](Logger& logger) {
        if (logger.name().view() == "test.early") logger.setThreshold(LOG_CRIT);
    });
    EXPECT_EQ(early.threshold(), LOG_DEBUG);
    Logger::initialize();
    EXPECT_EQ(early.threshold(), LOG_CRIT);
    EXPECT_TRUE(Logger::initialized());

    writeFile("late.cfg", "rootCategory=WARN\ncategory.test.late=ERROR, L\nappender.L.fileName=" +
                              path("late.log") + "\n");
    ASSERT_TRUE(configureLogging(path("late.cfg").c_str(), "prog").empty());
    LoggerSimple late("test.late", 0, 0, 0), other("test.other", 0, 0, 0);
    EXPECT_EQ(late.threshold(), LOG_ERROR);
    EXPECT_EQ(other.threshold(), LOG_WARN);
    late.log(LOG_ERROR, "to its category's appender");
    EXPECT_EQ(other.appenders().size(), 0u);
    unconfigure();
    EXPECT_EQ(readFile(path("late.log")), "to its category's appender\n");
}

// A channel made while the setup changes ends with the newest one, even when the older one
// finishes last: here the older setup, run by the constructor, waits until the newer one has
// been applied to the channel, then applies itself.
TEST_F(LoggerConfigTest, AChannelMadeDuringASetupEndsWithTheNewest) {
    std::atomic<bool> olderRunning{false}, newerApplied{false};
    Logger::setChannelSetup([&](Logger& logger) {
        if (logger.name().view() != "test.slow") return;
        olderRunning = true;
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::seconds(10);  // no hang if it never comes
        while (!newerApplied && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
        logger.setThreshold(LOG_ERROR);
    });
    Logger::initialize();
    std::unique_ptr<LoggerSimple> made;
    std::thread maker([&] { made = std::make_unique<LoggerSimple>("test.slow", 0, 0, 0); });
    while (!olderRunning) std::this_thread::yield();
    Logger::setChannelSetup([](Logger& logger) {
        if (logger.name().view() == "test.slow") logger.setThreshold(LOG_WARN);
    });
    Logger::initialize();
    newerApplied = true;
    maker.join();
    Logger::setChannelSetup(nullptr);
    EXPECT_EQ(made->threshold(), LOG_WARN);
}

// In a child: a setup that replaces appenders waits for the lines being written; one of those
// makes a channel meanwhile, which must not wait for the setup in turn.
[[noreturn]] void channelMadeWhileASetupWaits(const std::string& file) {
    ::alarm(10);  // a deadlock ends the child, and the test fails
    struct MakesAChannel : LogObserver {
        std::atomic<bool> inside{false};
        void observe(const LogEvent&, StrSegment) override {
            inside = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the setup starts waiting
            LoggerSimple made("test.made.inside", 0, 0, 0);
        }
    } observer;
    auto appender = std::make_shared<LogAppender>(toFile(file));
    appender->registerLogObserver(&observer);
    LoggerSimple writing("test.writing", 0, 0, 0), replaced("test.replaced", 0, 0, 0);
    writing.setAppenders({appender});
    replaced.setAppenders({appender});
    std::thread writer([&] { writing.log(LOG_INFO, "a line in flight"); });
    while (!observer.inside) std::this_thread::yield();
    Logger::setChannelSetup([](Logger& logger) {
        if (logger.name().view() == "test.replaced") logger.setAppenders({});
    });
    Logger::initialize();
    writer.join();
    std::_Exit(0);
}

TEST_F(LoggerConfigTest, AChannelMadeWhileASetupWaitsDoesNotWaitForIt) {
    EXPECT_EXIT(channelMadeWhileASetupWaits(path("inflight.log")), ::testing::ExitedWithCode(0), "");
}

TEST_F(LoggerConfigTest, ReReadingLosesNoLine) {
    writeFile("a.cfg", "rootCategory=INFO, F\nappender.F.fileName=" + path("a.log") +
                           "\nappender.F.buffered=true\nappender.F.layout=SimpleLayout\n");
    LoggerSimple channel("test.reread", 0, 0, 0);
    ASSERT_TRUE(configureLogging(path("a.cfg").c_str(), "prog").empty());
    channel.log(LOG_INFO, "before");
    writeFile("a.cfg", "rootCategory=INFO, F\nappender.F.fileName=" + path("b.log") + "\n");
    ASSERT_TRUE(
        configureLogging(path("a.cfg").c_str(), "prog").empty());  // the old appender writes out as it goes
    channel.log(LOG_INFO, "after");
    channel.setAppenders({});
    EXPECT_NE(readFile(path("a.log")).find("INFO    : before\n"), std::string::npos);
    EXPECT_NE(readFile(path("b.log")).find("after\n"), std::string::npos);
    unconfigure();
}

// In a child: the "Thread" channel, a process-wide global torn down last, counts a repeat and
// must still write the count as the process exits, after the thread's own buffers are gone.
[[noreturn]] void countThenExit(const std::string& file) {
    LogAppenderSettings s;
    s.name = "T";
    s.hasFileName = true;
    s.fileName = Str(file);
    s.layout = std::make_shared<const LogFormat>("%d{%Y} %m%n");
    threadChannel().setAppenders({std::make_shared<LogAppender>(std::move(s))});
    threadChannel().log(LOG_WARN, "said twice");
    threadChannel().log(LOG_WARN, "said twice");
    std::exit(0);
}

TEST_F(LoggerConfigTest, CountsAreWrittenAtExit) {
    EXPECT_EXIT(countThenExit(path("exit.log")), ::testing::ExitedWithCode(0), "");
    const std::string text = readFile(path("exit.log"));
    EXPECT_NE(text.find(" said twice\n"), std::string::npos) << text;
    EXPECT_NE(text.find(" 1 similar messages suppressed.  First occurred at:\n\t\t\t\tsaid twice\n"),
              std::string::npos)
        << text;
}

// Threads write while the file rotates and is moved away from outside: every line lands once,
// whole, in one of the files.
TEST_F(LoggerConfigTest, StressEveryLineOnceAndWhole) {
    // A few seconds in ctest; `make stress` runs it with VESTRA_STRESS_LINES=1000000.
    const char* configured = std::getenv("VESTRA_STRESS_LINES");
    const int kThreads = 3, kLines = configured != nullptr ? std::atoi(configured) : 20000;
    // Enough copies that rotation drops none: about 30 bytes a line, a few dozen files.
    const std::string file = path("stress.log");
    LogAppenderSettings s;
    s.name = "X";
    s.hasFileName = true;
    s.fileName = Str(file);
    s.maxFileSize = kLines > 100000 ? 1024 * 1024 : 64 * 1024;
    s.maxBackupIndex = 1000;
    {
        LogAppender appender(s);
        std::vector<std::thread> writers;
        std::atomic<bool> done{false};
        for (int t = 0; t < kThreads; ++t) {
            writers.emplace_back([&appender, t, kLines] {
                for (int i = 0; i < kLines; ++i) {
                    const std::string text =
                        "thread " + std::to_string(t) + " line " + std::to_string(i) + " end";
                    appender.write(event(100 + i / 1000, text.c_str()));
                }
            });
        }
        std::atomic<int> moves{0};
        std::thread mover([&] {  // moves the file away from outside as long as the writers write
            while (!done.load()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                std::error_code ec;
                fs::rename(file, file + ".moved" + std::to_string(moves.load()), ec);
                if (!ec) ++moves;
            }
        });
        for (std::thread& w : writers) w.join();
        done.store(true);
        mover.join();
    }
    std::set<std::string> seen;
    std::size_t total = 0, torn = 0;
    for (const auto& entry : fs::directory_iterator(_dir)) {
        std::ifstream in(entry.path());
        for (std::string line; std::getline(in, line);) {
            ++total;
            if (line.rfind("thread ", 0) != 0 || line.size() < 4 || line.substr(line.size() - 4) != " end")
                ++torn;
            seen.insert(line);
        }
    }
    std::printf("stress: %zu lines written by %d threads, %zu found, %zu distinct, %zu torn\n",
                static_cast<std::size_t>(kThreads * kLines), kThreads, total, seen.size(), torn);
    const std::size_t files =
        static_cast<std::size_t>(std::distance(fs::directory_iterator(_dir), fs::directory_iterator()));
    std::printf("stress: %zu files\n", files);
    EXPECT_EQ(torn, 0u);
    EXPECT_EQ(total, static_cast<std::size_t>(kThreads * kLines));
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(kThreads * kLines));
}

}  // namespace
}  // namespace basicutil
