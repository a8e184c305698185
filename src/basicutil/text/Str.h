// Byte strings: the owning Str, the view StrSegment, and 256-bit byte sets.
//
// All text is UTF-8 bytes; nothing here depends on the locale. Positions and counts are 64-bit
// unsigned with npos (all ones) for "not found". The operations live beside this header by
// concern: StrSearch (searching, counting, replacing, case, trimming, binary appends),
// StrSplit (splitting, lines, joining), StrEscape (escaping, CSV, search terms, URLs), StrUtf8
// (UTF-8 measures), StrParse (booleans, numbers, natural order), StrVector (vectors of Str).
//
// Str is its own class rather than std::string: the layout (pointer, 64-bit length, 16 inline
// bytes holding up to 15 characters or the heap capacity), the 2^62 - 1 length limit and the
// "basic_string::append" length error must be the same on every platform, and the C++ libraries
// of the platforms disagree on all three.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <string>
#include <string_view>

namespace basicutil {

// Positions and lengths: 64 bits on every platform.
using size_type = std::uint64_t;
// "Not found", and "to the end" as a length.
inline constexpr size_type npos = ~size_type{0};

class Str;

// A view of bytes: not owning, not NUL-terminated. Shortening a view only moves _data forward
// or reduces _len; the bytes are never written.
struct StrSegment {
    // The first byte and the number of bytes; public so that a view is an aggregate-like pair.
    const char* _data = "";
    size_type _len = 0;

    // An empty view; a view of `len` bytes at `data`; of a C string, a std::string_view, a
    // std::string or a Str (the last four implicitly, so that every text converts to a view).
    constexpr StrSegment() noexcept = default;
    constexpr StrSegment(const char* data, size_type len) noexcept : _data(data), _len(len) {}
    StrSegment(const char* text) noexcept : _data(text), _len(std::strlen(text)) {}         // implicit
    constexpr StrSegment(std::string_view v) noexcept : _data(v.data()), _len(v.size()) {}  // implicit
    StrSegment(const std::string& s) noexcept : _data(s.data()), _len(s.size()) {}          // implicit
    StrSegment(const Str& s) noexcept;  // implicit: a view of the whole string

    // The view as bytes, as a range and as a std::string_view (implicitly too).
    constexpr const char* data() const noexcept { return _data; }
    constexpr size_type size() const noexcept { return _len; }
    constexpr bool empty() const noexcept { return _len == 0; }
    constexpr const char* begin() const noexcept { return _data; }
    constexpr const char* end() const noexcept { return _data + _len; }
    constexpr char operator[](size_type i) const noexcept { return _data[i]; }
    constexpr std::string_view view() const noexcept { return {_data, static_cast<std::size_t>(_len)}; }
    constexpr operator std::string_view() const noexcept { return view(); }  // implicit

    // Ends the view at p, a position inside it.
    void setEnd(const char* p) noexcept;
    // Starts the view at p, a position inside it.
    void setBegin(const char* p) noexcept;
};

// An owning byte string, always NUL-terminated (the bytes may contain NULs too). Up to
// kInlineCapacity bytes live inside the object; longer strings on the heap.
class Str {
  public:
    // Bytes held without allocating.
    static constexpr size_type kInlineCapacity = 15;
    // The longest string; growing past it throws std::length_error("basic_string::append").
    static constexpr size_type kMaxLength = (size_type{1} << 62) - 1;

    // An empty string; a copy of a C string (implicitly, like a literal), of `len` bytes at
    // `data`, of a view or a std::string (explicitly: copying should show); `n` copies of `c`.
    // Copies and moves; a moved-from string is empty.
    Str() noexcept : _p(_local), _len(0) { _local[0] = '\0'; }
    Str(const char* text) : Str(text, std::strlen(text)) {}  // implicit, like a literal
    Str(const char* data, size_type len);
    explicit Str(StrSegment s) : Str(s._data, s._len) {}
    explicit Str(std::string_view v) : Str(v.data(), v.size()) {}
    explicit Str(const std::string& s) : Str(s.data(), s.size()) {}
    Str(size_type n, char c);
    Str(const Str& other) : Str(other._p, other._len) {}
    Str(Str&& other) noexcept;
    Str& operator=(const Str& other);
    Str& operator=(Str&& other) noexcept;
    ~Str();

    // The bytes (c_str() and data() are NUL-terminated), the length, the room before the next
    // allocation, and the bytes as a range and as a std::string_view (implicitly too). back()
    // and operator[] take a position inside the string.
    const char* c_str() const noexcept { return _p; }
    const char* data() const noexcept { return _p; }
    char* data() noexcept { return _p; }
    size_type size() const noexcept { return _len; }
    size_type length() const noexcept { return _len; }
    bool empty() const noexcept { return _len == 0; }
    size_type capacity() const noexcept { return isLocal() ? kInlineCapacity : _capacity; }
    char& operator[](size_type i) noexcept { return _p[i]; }
    char operator[](size_type i) const noexcept { return _p[i]; }
    char back() const noexcept { return _p[_len - 1]; }
    const char* begin() const noexcept { return _p; }
    const char* end() const noexcept { return _p + _len; }
    std::string_view view() const noexcept { return {_p, static_cast<std::size_t>(_len)}; }
    operator std::string_view() const noexcept { return view(); }  // implicit

    // Appends throw std::length_error("basic_string::append") past kMaxLength. Nothing to
    // append may come with a null pointer (an empty std::string_view).
    Str& append(const char* data, size_type len) {
        if (len == 0) return *this;
        // The common case inline: it fits, and the bytes are not this string's own.
        if (len <= capacity() - _len && (data + len <= _p || data > _p + capacity())) {
            std::memcpy(_p + _len, data, static_cast<std::size_t>(len));
            _len += len;
            _p[_len] = '\0';
            return *this;
        }
        return appendSlow(data, len);
    }
    // Grows the string by n bytes and returns where they start; the caller writes all n of
    // them (the terminator after them is already in place). Throws like append.
    char* appendUninitialized(size_type n) {
        if (n <= capacity() - _len) {
            char* const start = _p + _len;
            _len += n;
            _p[_len] = '\0';
            return start;
        }
        return appendUninitializedSlow(n);
    }

    // Appends a view, a C string, `n` copies of `c` or one byte; throws like append above.
    Str& append(StrSegment s) { return append(s._data, s._len); }
    Str& append(const char* text) { return append(text, std::strlen(text)); }
    Str& append(size_type n, char c);
    Str& operator+=(StrSegment s) { return append(s); }
    Str& operator+=(const char* text) { return append(text); }
    Str& operator+=(char c) { return append(1, c); }
    // Appends one byte.
    void push_back(char c) {
        if (_len < capacity()) {  // the common case, inline
            _p[_len++] = c;
            _p[_len] = '\0';
        } else {
            append(1, c);
        }
    }
    // Removes the last byte; not on an empty string.
    void pop_back() noexcept;

    // Replaces the contents with `len` bytes at `data` (which may be this string's own).
    Str& assign(const char* data, size_type len);
    // Makes room for `capacity` bytes without changing the contents; never shrinks.
    void reserve(size_type capacity);
    // Cuts the string to `len` bytes, or extends it with `fill`.
    void resize(size_type len, char fill = '\0');
    // Empties the string and keeps the capacity.
    void clear() noexcept {
        _len = 0;
        _p[0] = '\0';
    }
    // Removes up to `n` bytes from `pos`; from a `pos` at or past the end, nothing.
    Str& erase(size_type pos, size_type n = npos) noexcept;
    // Exchanges contents, inline or not.
    void swap(Str& other) noexcept;

    // Byte-wise comparison, as unsigned bytes.
    friend bool operator==(const Str& a, const Str& b) noexcept { return a.view() == b.view(); }
    friend std::strong_ordering operator<=>(const Str& a, const Str& b) noexcept {
        return a.view() <=> b.view();
    }
    friend bool operator==(const Str& a, std::string_view b) noexcept { return a.view() == b; }

  private:
    bool isLocal() const noexcept { return _p == _local; }
    // Moves src's contents here; this string must hold nothing on the heap. Leaves src empty.
    void takeFrom(Str& src) noexcept;
    void releaseHeap() noexcept;
    Str& appendSlow(const char* data, size_type len);
    char* appendUninitializedSlow(size_type n);
    // Room for `len` bytes and the terminator, keeping the contents.
    void ensureCapacity(size_type len, const char* operation);

    char* _p;
    size_type _len;
    union {
        char _local[kInlineCapacity + 1];
        size_type _capacity;
    };
};

inline StrSegment::StrSegment(const Str& s) noexcept : _data(s.data()), _len(s.size()) {}

// A set of byte values: byte c is a member when bit (c & 63) of word (c >> 6) is set.
class ByteSet {
  public:
    // The empty set, or the set of the bytes in `members`.
    constexpr ByteSet() noexcept = default;
    constexpr explicit ByteSet(std::string_view members) noexcept {
        for (char c : members) add(c);
    }
    // Makes `c` a member.
    constexpr void add(char c) noexcept {
        const auto b = static_cast<unsigned char>(c);
        _words[b >> 6] |= std::uint64_t{1} << (b & 63);
    }
    // Whether `c` is a member.
    constexpr bool contains(char c) const noexcept {
        const auto b = static_cast<unsigned char>(c);
        return (_words[b >> 6] >> (b & 63)) & 1;
    }

  private:
    std::uint64_t _words[4] = {0, 0, 0, 0};
};

// --- Start-up constants ------------------------------------------------------------------------
inline constexpr ByteSet kWhitespace{" \t"};  // the default for trimming and token splits
// The bytes that make a CSV field need quotes.
inline constexpr ByteSet kCsvSpecial{",\r\n\""};
// The bytes a URL carries as they are.
inline constexpr ByteSet kUrlUnreserved{"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.~"};
// The bytes URL decoding changes.
inline constexpr ByteSet kUrlDecodeTriggers{"%+"};
const Str& emptyStr() noexcept;         // ""
const Str& trueStr() noexcept;          // "true"
const Str& falseStr() noexcept;         // "false"
const Str& emptySearchTerm() noexcept;  // two double quotes
// The URL encoding of byte b: b itself when unreserved, else "%XX" (upper-case hex).
const Str& urlEncodingOf(unsigned char b) noexcept;

// Character classes. They are tables built in a start-up step of their own, after the constants
// above (and empty before it): every classifier of the library reads them, so a global built
// earlier must not classify.
enum CharacterClass : unsigned {
    CHARS_WHITESPACE,           // " \t\n\v\f\r", the C library's isspace
    CHARS_SIGNED_DIGITS,        // "-0123456789"
    CHARS_NUMBER,               // "-+xX0123456789abcdefABCDEF": decimal or hexadecimal, signed
    CHARS_LETTERS,              // A-Z, a-z
    CHARS_IDENTIFIER,           // letters, digits and "_"
    CHARS_IDENTIFIER_DOT,       // ... and "_."
    CHARS_IDENTIFIER_DASH,      // ... and "_-"
    CHARS_IDENTIFIER_DASH_DOT,  // ... and "_-."
    CHARS_CLASS_COUNT
};
// The bytes of a class.
const ByteSet& characterClass(CharacterClass which) noexcept;

// Writes the bytes to the stream (for GoogleTest and logging).
void PrintTo(const Str& s, std::ostream* os);
void PrintTo(const StrSegment& s, std::ostream* os);

}  // namespace basicutil
