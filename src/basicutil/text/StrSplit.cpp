#include "basicutil/text/StrSplit.h"

#include "basicutil/platform/Assert.h"

namespace basicutil {

namespace {

void deliver(StrSegmentTokenAcceptor& acceptor, const char* begin, const char* end) {
    StrSegment token(begin, static_cast<size_type>(end - begin));
    acceptor.accept(token);
}

template <typename IsSeparator>
void fields(StrSegment input, StrSegmentTokenAcceptor& acceptor, IsSeparator isSeparator,
            std::int32_t maxCuts) {
    if (input.empty()) return;
    const char* start = input.begin();
    if (maxCuts != 0) {
        for (const char* p = input.begin(); p < input.end(); ++p) {
            if (!isSeparator(*p)) continue;
            deliver(acceptor, start, p);
            start = p + 1;
            if (maxCuts > 0 && --maxCuts == 0) break;  // negative: no limit, never counted down
        }
    }
    deliver(acceptor, start, input.end());
}

template <typename IsSeparator>
void tokens(StrSegment input, StrSegmentTokenAcceptor& acceptor, IsSeparator isSeparator,
            std::int32_t maxTokens) {
    const char* p = input.begin();
    const char* const end = input.end();
    while (true) {
        while (p < end && isSeparator(*p)) ++p;
        if (p == end) return;
        if (maxTokens == 0) {  // the limit is reached: the rest is the last token
            deliver(acceptor, p, end);
            return;
        }
        const char* const start = p;
        while (p < end && !isSeparator(*p)) ++p;
        if (maxTokens > 0) --maxTokens;  // negative: no limit, never counted down
        deliver(acceptor, start, p);
        if (p == end || p + 1 == end) return;
    }
}

}  // namespace

void splitFields(StrSegment input, StrSegmentTokenAcceptor& acceptor, char separator, std::int32_t maxCuts) {
    fields(
        input, acceptor, [separator](char c) { return c == separator; }, maxCuts);
}

void splitFields(StrSegment input, StrSegmentTokenAcceptor& acceptor, const ByteSet& separators,
                 std::int32_t maxCuts) {
    fields(
        input, acceptor, [&separators](char c) { return separators.contains(c); }, maxCuts);
}

void splitFields(StrSegment input, std::vector<StrSegment>& out, char separator, std::int32_t maxCuts) {
    acceptor_PopulateStrSegmentVector acceptor(out);
    splitFields(input, acceptor, separator, maxCuts);
}

void splitFields(StrSegment input, StrVector& out, char separator, std::int32_t maxCuts) {
    acceptor_PopulateStrVector acceptor(out);
    splitFields(input, acceptor, separator, maxCuts);
}

void splitTokens(StrSegment input, StrSegmentTokenAcceptor& acceptor, char separator,
                 std::int32_t maxTokens) {
    tokens(
        input, acceptor, [separator](char c) { return c == separator; }, maxTokens);
}

void splitTokens(StrSegment input, StrSegmentTokenAcceptor& acceptor, const ByteSet& separators,
                 std::int32_t maxTokens) {
    tokens(
        input, acceptor, [&separators](char c) { return separators.contains(c); }, maxTokens);
}

void splitTokens(StrSegment input, std::vector<StrSegment>& out, const ByteSet& separators,
                 std::int32_t maxTokens) {
    acceptor_PopulateStrSegmentVector acceptor(out);
    splitTokens(input, acceptor, separators, maxTokens);
}

void splitTokens(StrSegment input, StrVector& out, const ByteSet& separators, std::int32_t maxTokens) {
    acceptor_PopulateStrVector acceptor(out);
    splitTokens(input, acceptor, separators, maxTokens);
}

void splitLines(StrSegment input, StrSegmentTokenAcceptor& acceptor) {
    const char* start = input.begin();
    for (const char* p = input.begin(); p < input.end(); ++p) {
        if (*p != '\n') continue;
        const char* lineEnd = p;
        if (lineEnd > start && lineEnd[-1] == '\r') --lineEnd;
        deliver(acceptor, start, lineEnd);
        start = p + 1;
    }
    if (start < input.end()) deliver(acceptor, start, input.end());  // keeps a trailing "\r"
}

void splitLines(StrSegment input, std::vector<StrSegment>& out) {
    acceptor_PopulateStrSegmentVector acceptor(out);
    splitLines(input, acceptor);
}

bool accumulateLine(StrSegment& input, Str& line) {
    const auto* p =
        static_cast<const char*>(std::memchr(input._data, '\n', static_cast<std::size_t>(input._len)));
    if (p == nullptr) {
        line.append(input);
        input._data = input.end();
        input._len = 0;
        return false;
    }
    VESTRA_ASSERT(*p == '\n');
    if (p > input._data) {
        const char* lineEnd = p[-1] == '\r' ? p - 1 : p;
        line.append(input._data, static_cast<size_type>(lineEnd - input._data));
    } else if (!line.empty() && line.back() == '\r') {
        line.pop_back();  // the carriage return ended the previous chunk
    }
    input.setBegin(p + 1);
    return true;
}

Str join(const std::vector<StrSegment>& items, char separator) {
    size_type total = items.empty() ? 0 : items.size() - 1;
    for (const StrSegment& item : items) total += item._len;
    Str out;
    out.reserve(total);
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) out.push_back(separator);
        out.append(items[i]);
    }
    return out;
}

}  // namespace basicutil
