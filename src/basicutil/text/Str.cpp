#include "basicutil/text/Str.h"

#include <new>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "basicutil/platform/Assert.h"
#include "basicutil/platform/StartupOrder.h"

namespace basicutil {

// --- StrSegment ----------------------------------------------------------------------------------

void StrSegment::setEnd(const char* p) noexcept {
    VESTRA_ASSERT(p >= _data);
    VESTRA_ASSERT_TEXT(_len >= static_cast<size_type>(p - _data), "_len >= (size_type) (p - _data)");
    _len = static_cast<size_type>(p - _data);
}

void StrSegment::setBegin(const char* p) noexcept {
    VESTRA_ASSERT(p >= _data);
    VESTRA_ASSERT_TEXT(_len >= static_cast<size_type>(p - _data), "_len >= (size_type) (p - _data)");
    _len -= static_cast<size_type>(p - _data);
    _data = p;
}

// --- Str -----------------------------------------------------------------------------------------

Str::Str(const char* data, size_type len) : Str() {
    append(data, len);
}

Str::Str(size_type n, char c) : Str() {
    append(n, c);
}

Str::Str(Str&& other) noexcept : Str() {
    takeFrom(other);
}

Str& Str::operator=(const Str& other) {
    if (this != &other) assign(other._p, other._len);
    return *this;
}

Str& Str::operator=(Str&& other) noexcept {
    if (this != &other) {
        releaseHeap();
        takeFrom(other);
    }
    return *this;
}

Str::~Str() {
    releaseHeap();
}

void Str::ensureCapacity(size_type len, const char* operation) {
    if (len > kMaxLength) throw std::length_error(operation);
    const size_type have = capacity();
    if (len <= have) return;
    // Grow geometrically so that repeated appends stay linear.
    size_type want = have * 2 < len ? len : have * 2;
    if (want > kMaxLength) want = kMaxLength;
    char* fresh = static_cast<char*>(::operator new(static_cast<std::size_t>(want + 1)));
    std::memcpy(fresh, _p, static_cast<std::size_t>(_len + 1));
    if (!isLocal()) ::operator delete(_p);
    _p = fresh;
    _capacity = want;
}

Str& Str::appendSlow(const char* data, size_type len) {
    if (len > kMaxLength - _len) throw std::length_error("basic_string::append");
    if (len == 0) return *this;
    // `data` may point into this string: note its offset before the buffer moves.
    const bool inside = data >= _p && data <= _p + _len;
    const size_type offset = inside ? static_cast<size_type>(data - _p) : 0;
    ensureCapacity(_len + len, "basic_string::append");
    std::memmove(_p + _len, inside ? _p + offset : data, static_cast<std::size_t>(len));
    _len += len;
    _p[_len] = '\0';
    return *this;
}

char* Str::appendUninitializedSlow(size_type n) {
    if (n > kMaxLength - _len) throw std::length_error("basic_string::append");
    ensureCapacity(_len + n, "basic_string::append");
    char* const start = _p + _len;
    _len += n;
    _p[_len] = '\0';
    return start;
}

Str& Str::append(size_type n, char c) {
    if (n > kMaxLength - _len) throw std::length_error("basic_string::append");
    ensureCapacity(_len + n, "basic_string::append");
    std::memset(_p + _len, c, static_cast<std::size_t>(n));
    _len += n;
    _p[_len] = '\0';
    return *this;
}

void Str::pop_back() noexcept {
    VESTRA_ASSERT(!empty());
    _p[--_len] = '\0';
}

Str& Str::assign(const char* data, size_type len) {
    if (data >= _p && data <= _p + _len) {  // a part of itself
        std::memmove(_p, data, static_cast<std::size_t>(len));
        _len = len;
        _p[_len] = '\0';
        return *this;
    }
    _len = 0;
    _p[0] = '\0';
    return append(data, len);
}

void Str::reserve(size_type capacity) {
    ensureCapacity(capacity, "basic_string::reserve");
}

void Str::resize(size_type len, char fill) {
    if (len > _len) {
        ensureCapacity(len, "basic_string::resize");
        std::memset(_p + _len, fill, static_cast<std::size_t>(len - _len));
    }
    _len = len;
    _p[_len] = '\0';
}

Str& Str::erase(size_type pos, size_type n) noexcept {
    if (pos >= _len) return *this;
    if (n > _len - pos) n = _len - pos;
    std::memmove(_p + pos, _p + pos + n, static_cast<std::size_t>(_len - pos - n + 1));
    _len -= n;
    return *this;
}

void Str::takeFrom(Str& src) noexcept {
    if (src.isLocal()) {
        std::memcpy(_local, src._local, sizeof _local);
        _p = _local;
    } else {
        _p = src._p;
        _capacity = src._capacity;
    }
    _len = src._len;
    src._p = src._local;
    src._len = 0;
    src._local[0] = '\0';
}

void Str::releaseHeap() noexcept {
    if (!isLocal()) ::operator delete(_p);
    _p = _local;
    _len = 0;
    _local[0] = '\0';
}

void Str::swap(Str& other) noexcept {
    Str held;
    held.takeFrom(*this);
    takeFrom(other);
    other.takeFrom(held);
}

// --- Start-up constants ------------------------------------------------------------------------

namespace {

// The string utilities' globals, in their start-up order (the byte sets are compile-time
// constants in the header).
struct StrGlobals {
    Str empty;
    Str trueWord{"true"};
    Str falseWord{"false"};
    Str quotedEmpty{"\"\""};
    Str urlEncoding[256];

    StrGlobals() {
        recordStartupEvent("+basicutil/Str");
        for (unsigned b = 0; b < 256; ++b) {
            const char c = static_cast<char>(b);
            if (kUrlUnreserved.contains(c)) {
                urlEncoding[b].append(1, c);
            } else {
                static constexpr char kHexDigits[] = "0123456789ABCDEF";
                const char escape[3] = {'%', kHexDigits[b >> 4], kHexDigits[b & 15]};
                urlEncoding[b].append(escape, 3);
            }
        }
    }
    ~StrGlobals() { recordStartupEvent("-basicutil/Str"); }
};
StrGlobals g_str VESTRA_STARTUP(STARTUP_STRING_UTILITIES);

}  // namespace

const Str& emptyStr() noexcept {
    return g_str.empty;
}
const Str& trueStr() noexcept {
    return g_str.trueWord;
}
const Str& falseStr() noexcept {
    return g_str.falseWord;
}
const Str& emptySearchTerm() noexcept {
    return g_str.quotedEmpty;
}
const Str& urlEncodingOf(unsigned char b) noexcept {
    return g_str.urlEncoding[b];
}

void PrintTo(const Str& s, std::ostream* os) {
    PrintTo(StrSegment(s), os);
}

void PrintTo(const StrSegment& s, std::ostream* os) {
    VESTRA_ASSERT(os != nullptr);
    os->write(s._data, static_cast<std::streamsize>(s._len));
}

}  // namespace basicutil
