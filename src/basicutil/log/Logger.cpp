// Channels: the registry, the level check, similar-message suppression, observers, and
// stream-style messages.
#include "basicutil/log/Logger.h"

#include <algorithm>

#include "basicutil/log/LoggerRecentLines.h"
#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/platform/StartupOrder.h"

namespace basicutil {

namespace {

// Every channel, in creation order. Made by the first channel, so it outlives them all.
struct Registry {
    std::mutex mutex;  // the members below
    std::vector<Logger*> channels;
    bool initialized = false;
    std::function<void(Logger&)> setup;
    // Moved on by each initialize(): a channel being made while one runs sets itself up again
    // until no newer setup came meanwhile, so that it ends with the newest whoever runs last.
    std::uint64_t generation = 0;
    // One initialize() at a time. Constructors never take it: a setup waits for the lines being
    // written (Logger::setAppenders), and one of those may be making a channel.
    std::mutex initializing;
};

Registry& registry() {
    static Registry instance;
    return instance;
}

// The "Logger" channel.
struct LoggerGlobals {
    LoggerSimple channel;
    LoggerGlobals() : channel("Logger", 0, 60, 100) {
        recordStartupEvent("+basicutil/Logger");
        alive.store(true);
    }
    ~LoggerGlobals() {
        alive.store(false);
        recordStartupEvent("-basicutil/Logger");
    }
    static inline std::atomic<bool> alive{false};
};
LoggerGlobals g_logger VESTRA_STARTUP(STARTUP_LOGGER);

Timeval wallClockNow() noexcept {
    const struct timeval tv = platform::readWallClockOrAbort();
    return {tv.tv_sec, tv.tv_usec};
}

}  // namespace

Logger& loggerChannel() noexcept {
    return g_logger.channel;
}

Logger* loggerChannelIfAlive() noexcept {
    return LoggerGlobals::alive.load() ? &g_logger.channel : nullptr;
}

struct Logger::Similar {
    LogLevel level;
    Str key;
    Str first;
    std::int64_t firstSeen;  // seconds
    std::uint64_t count;     // occurrences, the first included
    std::uint64_t reported;  // of those, written or reported
};

LogObserver::~LogObserver() = default;
LogSink::~LogSink() = default;
LogLineLayout::~LogLineLayout() = default;
Logger::iterate_channels_callback::~iterate_channels_callback() = default;

Logger::Logger(const char* name, int quiet, unsigned similarSeconds, unsigned similarCapacity)
    : _name(name),
      _threshold(quiet != 0 ? LOG_EMERG + 1 : LOG_DEBUG),
      _similarSeconds(similarSeconds),
      _similarCapacity(similarCapacity) {
    Registry& all = registry();
    {
        std::lock_guard<std::mutex> lock(all.mutex);
        all.channels.push_back(this);
    }
    for (;;) {
        std::function<void(Logger&)> setup;
        std::uint64_t generation = 0;
        {
            std::lock_guard<std::mutex> lock(all.mutex);
            if (!all.initialized) return;
            setup = all.setup;
            generation = all.generation;
        }
        if (setup) setup(*this);
        std::lock_guard<std::mutex> lock(all.mutex);
        if (all.generation == generation) return;
    }
}

void Logger::setChannelSetup(std::function<void(Logger&)> setup) {
    Registry& all = registry();
    std::lock_guard<std::mutex> lock(all.mutex);
    all.setup = std::move(setup);
}

Logger::~Logger() {
    flushSimilar();
    Registry& all = registry();
    std::lock_guard<std::mutex> lock(all.mutex);
    all.channels.erase(std::remove(all.channels.begin(), all.channels.end(), this), all.channels.end());
}

void Logger::initialize() {
    Registry& all = registry();
    std::lock_guard<std::mutex> running(all.initializing);
    std::vector<Logger*> channels;
    std::function<void(Logger&)> setup;
    {
        std::lock_guard<std::mutex> lock(all.mutex);
        all.initialized = true;
        ++all.generation;
        channels = all.channels;
        setup = all.setup;
    }
    if (!setup) return;
    for (Logger* logger : channels) setup(*logger);
}

bool Logger::initialized() noexcept {
    Registry& all = registry();
    std::lock_guard<std::mutex> lock(all.mutex);
    return all.initialized;
}

void Logger::iterateChannels(iterate_channels_callback& callback) {
    Registry& all = registry();
    std::vector<Logger*> channels;
    {
        std::lock_guard<std::mutex> lock(all.mutex);
        channels = all.channels;
    }
    for (Logger* logger : channels) callback.visit(*logger);
}

Logger* Logger::find(StrSegment name) noexcept {
    Registry& all = registry();
    std::lock_guard<std::mutex> lock(all.mutex);
    for (Logger* logger : all.channels) {
        if (logger->_name.view() == name.view()) return logger;
    }
    return nullptr;
}

void Logger::setLayout(std::shared_ptr<const LogLineLayout> layout) {
    std::lock_guard<std::mutex> lock(_mutex);
    _layout = std::move(layout);
}

void Logger::registerLogObserver(LogObserver* observer) {
    std::lock_guard<std::mutex> lock(_mutex);
    _observers.push_back(observer);
    _hasObservers.store(true, std::memory_order_release);
}

void Logger::unregisterLogObserver(LogObserver* observer) {
    std::lock_guard<std::mutex> lock(_mutex);
    _observers.erase(std::remove(_observers.begin(), _observers.end(), observer), _observers.end());
    _hasObservers.store(!_observers.empty(), std::memory_order_release);
}

// Under _mutex: the observers see the line now; it is kept for the appenders, which are
// written after the lock is released (they may log on this very channel about their troubles).
void Logger::emit(LogLevel level, StrSegment message, Outgoing& out, bool owned) {
    const Timeval now = wallClockNow();
    keepRecentLogLine(_name, level, now, message);
    if (!_observers.empty()) {
        const LogEvent event{_name, level, now, message};
        Str line;
        if (_layout != nullptr) {
            _layout->renderLine(line, event);
        } else {
            line.append(message);
            line.push_back('\n');
        }
        for (LogObserver* observer : _observers) observer->observe(event, line);
    }
    if (out.appenders == nullptr) return;
    if (owned) {
        out.reports.push_back({level, now, Str(message)});
    } else {
        out.hasMessage = true;
        out.level = level;
        out.time = now;
        out.message = message;
    }
}

// Under _mutex.
void Logger::reportLocked(Similar& entry, Outgoing& out) {
    if (entry.count <= entry.reported) return;
    Str report = strprintf("%llu similar messages suppressed.  First occurred at:\n\t\t\t\t",
                           static_cast<unsigned long long>(entry.count - entry.reported));
    report.append(entry.first);
    entry.reported = entry.count;
    emit(entry.level, report, out, true);
}

// Not under _mutex.
void Logger::deliver(const Outgoing& out) const {
    if (out.appenders == nullptr) return;
    for (const Outgoing::Line& line : out.reports) {
        const LogEvent event{_name, line.level, line.time, line.message};
        for (const std::shared_ptr<LogSink>& sink : *out.appenders) sink->write(event);
    }
    if (out.hasMessage) {
        const LogEvent event{_name, out.level, out.time, out.message};
        for (const std::shared_ptr<LogSink>& sink : *out.appenders) sink->write(event);
    }
}

void Logger::submit(LogLevel level, StrSegment message, StrSegment similarityKey) {
    Outgoing out;
    const ReadMostly<AppenderList>::Reader appenders(_appenders);
    if ((_similarSeconds == 0 || _similarCapacity == 0) && !_hasObservers.load(std::memory_order_acquire)) {
        // Nothing to count and nobody watching: the appenders alone, without the mutex.
        const Timeval now = wallClockNow();
        keepRecentLogLine(_name, level, now, message);
        out.appenders = appenders.get();
        if (out.appenders == nullptr) return;
        out.hasMessage = true;
        out.level = level;
        out.time = now;
        out.message = message;
    } else {
        std::lock_guard<std::mutex> lock(_mutex);
        out.appenders = appenders.get();
        submitLocked(level, message, similarityKey, out);
    }
    deliver(out);
}

void Logger::submitLocked(LogLevel level, StrSegment message, StrSegment similarityKey, Outgoing& out) {
    if (_similarSeconds == 0 || _similarCapacity == 0) {
        emit(level, message, out, false);
        return;
    }
    const std::int64_t now = wallClockNow().tv_sec;
    // Windows that have passed: their counts are reported and their entries go.
    for (auto it = _similar.begin(); it != _similar.end();) {
        if (now - it->firstSeen >= static_cast<std::int64_t>(_similarSeconds)) {
            reportLocked(*it, out);
            it = _similar.erase(it);
        } else {
            ++it;
        }
    }
    for (Similar& entry : _similar) {
        if (entry.level == level && entry.key.view() == similarityKey.view()) {
            ++entry.count;
            return;
        }
    }
    if (_similar.size() >= _similarCapacity) {
        for (Similar& entry : _similar) reportLocked(entry, out);
        _similar.clear();
    }
    _similar.push_back({level, Str(similarityKey), Str(message), now, 1, 1});
    emit(level, message, out, false);
}

void Logger::flushSimilar() {
    Outgoing out;
    const ReadMostly<AppenderList>::Reader appenders(_appenders);
    {
        std::lock_guard<std::mutex> lock(_mutex);
        out.appenders = appenders.get();
        for (Similar& entry : _similar) reportLocked(entry, out);
        _similar.clear();
    }
    deliver(out);
}

void Logger::setAppenders(std::vector<std::shared_ptr<LogSink>> appenders) {
    _appenders.replace(appenders.empty() ? nullptr
                                         : std::make_shared<const AppenderList>(std::move(appenders)));
}

std::vector<std::shared_ptr<LogSink>> Logger::appenders() const {
    const ReadMostly<AppenderList>::Reader list(_appenders);
    return list.get() != nullptr ? *list.get() : AppenderList{};
}

void Logger::debugSplitLines(LogLevel level, StrSegment text) {
    if (!enabled(level)) return;
    const char* p = text.data();
    std::size_t rest = text.size();
    while (rest > 0) {
        std::size_t eol = 0;
        while (eol < rest && p[eol] != '\n' && p[eol] != '\r') ++eol;
        if (eol > 0) log(level, StrSegment(p, eol));
        if (eol == rest) break;
        VESTRA_ASSERT(p[eol] == '\n' || p[eol] == '\r');
        p += eol + 1;
        rest -= eol + 1;
    }
}

namespace {

// Message buffers for logf, one per nesting level; kept across calls so that a message needs
// no allocation once the buffer has grown to its size.
struct ScratchTexts {
    static constexpr int kLevels = 4;
    Str texts[kLevels];
    int depth = 0;
    ~ScratchTexts();
};
thread_local ScratchTexts t_texts;
// Set when the thread's buffers are gone (the main thread's go before the process's globals,
// which may still log as they are torn down); it has no destructor of its own, so it stays
// readable to the end.
thread_local bool t_textsGone = false;
ScratchTexts::~ScratchTexts() {
    t_textsGone = true;
}

}  // namespace

Logger::ScratchText::ScratchText() {
    if (t_textsGone) {
        _owned = true;
        _text = new Str;
        return;
    }
    ScratchTexts& all = t_texts;
    _owned = all.depth >= ScratchTexts::kLevels;
    _text = _owned ? new Str : &all.texts[all.depth];
    ++all.depth;
    _text->clear();
}

Logger::ScratchText::~ScratchText() {
    if (!t_textsGone) --t_texts.depth;
    if (_owned) {
        delete _text;
    } else if (_text->capacity() > 64 * 1024) {
        Str().swap(*_text);  // a rare huge message does not pin its memory
    }
}

// --- Stream-style messages ---

namespace {

// The thread's buffer for one stream-style message at a time.
struct ThreadLogScratch {
    Str buffer;
    Str* _scratchp = nullptr;  // the buffer, while a message uses it
};

thread_local ThreadLogScratch t_scratch;

}  // namespace

LoggerStreamAccumulator::LoggerStreamAccumulator(Logger* logp, LogLevel level) : _level(level) {
    VESTRA_ASSERT(logp != nullptr);
    const auto word = reinterpret_cast<std::uintptr_t>(logp);
    VESTRA_ASSERT((word & DYNAMIC_FLAG) == 0);
    if (!logp->enabled(level)) {  // nothing gathered, nothing rendered
        _logger = word;
        _buffer = nullptr;
        return;
    }
    ThreadLogScratch* thr = &t_scratch;
    if (thr->_scratchp == nullptr) {
        thr->_scratchp = &thr->buffer;
        VESTRA_ASSERT(thr->_scratchp != nullptr);
        Str* scratchp = thr->_scratchp;
        VESTRA_ASSERT(scratchp->empty());
        _buffer = scratchp;
        _logger = word;
    } else {  // the thread's buffer holds a message being built: this one gets its own
        _buffer = new Str;
        _logger = word | DYNAMIC_FLAG;
    }
}

Logger* LoggerStreamAccumulator::logger() const noexcept {
    return reinterpret_cast<Logger*>(_logger & ~DYNAMIC_FLAG);
}

LoggerStreamAccumulator& LoggerStreamAccumulator::operator<<(StrSegment text) {
    if (_buffer != nullptr) _buffer->append(text);
    return *this;
}

LoggerStreamAccumulator& LoggerStreamAccumulator::operator<<(char c) {
    if (_buffer != nullptr) _buffer->push_back(c);
    return *this;
}

LoggerStreamAccumulator& LoggerStreamAccumulator::operator<<(long long v) {
    if (_buffer != nullptr) appendf(*_buffer, "%lld", v);
    return *this;
}

LoggerStreamAccumulator& LoggerStreamAccumulator::operator<<(unsigned long long v) {
    if (_buffer != nullptr) appendf(*_buffer, "%llu", v);
    return *this;
}

LoggerStreamAccumulator& LoggerStreamAccumulator::operator<<(double v) {
    if (_buffer != nullptr) appendf(*_buffer, "%g", v);
    return *this;
}

void LoggerStreamAccumulator::finish_vlog() {
    LoggerStreamAccumulator* acc = this;
    VESTRA_ASSERT(acc != nullptr);
    if (acc->_buffer == nullptr) return;
    Str* const buffer = acc->_buffer;
    acc->_buffer = nullptr;
    logger()->log(_level, *buffer);
    if ((_logger & DYNAMIC_FLAG) != 0) {
        delete buffer;
    } else {
        buffer->clear();
        t_scratch._scratchp = nullptr;
    }
}

}  // namespace basicutil
