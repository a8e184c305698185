// Splitting text into fields, tokens and lines, reading lines from chunked input, and joining.
//
// Every splitter hands its pieces, in order, to a StrSegmentTokenAcceptor. The views point into
// the input, so nothing is copied unless the acceptor copies (acceptor_PopulateStrVector does).
// Limits are signed 32-bit counts; every negative limit (-1, INT32_MIN) means no limit.
#pragma once

#include <cstdint>
#include <vector>

#include "basicutil/text/Str.h"
#include "basicutil/text/StrVector.h"

namespace basicutil {

// Receives a splitter's pieces.
class StrSegmentTokenAcceptor {
  public:
    virtual ~StrSegmentTokenAcceptor() = default;
    // One piece, a view into the input; the acceptor may shorten it.
    virtual void accept(StrSegment& token) = 0;
};

// Collects the views themselves (they point into the input).
class acceptor_PopulateStrSegmentVector : public StrSegmentTokenAcceptor {
  public:
    // Appends to `out`, which must outlive the acceptor.
    explicit acceptor_PopulateStrSegmentVector(std::vector<StrSegment>& out) : _out(out) {}

    void accept(StrSegment& token) override { _out.push_back(token); }

  private:
    std::vector<StrSegment>& _out;
};

// Collects copies of the pieces.
class acceptor_PopulateStrVector : public StrSegmentTokenAcceptor {
  public:
    // Appends to `out`, which must outlive the acceptor.
    explicit acceptor_PopulateStrVector(StrVector& out) : _out(out) {}

    void accept(StrSegment& token) override { _out.emplace_back(token); }

  private:
    StrVector& _out;
};

// Fields, keeping empty ones: n separators give n + 1 fields ("a,,b" is "a", "", "b"; "a," is
// "a", ""); empty input gives none. After maxCuts cuts the rest is the last field.
void splitFields(StrSegment input, StrSegmentTokenAcceptor& acceptor, char separator,
                 std::int32_t maxCuts = -1);
void splitFields(StrSegment input, StrSegmentTokenAcceptor& acceptor, const ByteSet& separators,
                 std::int32_t maxCuts = -1);
void splitFields(StrSegment input, std::vector<StrSegment>& out, char separator, std::int32_t maxCuts = -1);
void splitFields(StrSegment input, StrVector& out, char separator, std::int32_t maxCuts = -1);

// Tokens, skipping runs of separators (no empty tokens). Once maxTokens are delivered, the rest
// of the input from the next token on (separators included) is one last token.
void splitTokens(StrSegment input, StrSegmentTokenAcceptor& acceptor, char separator,
                 std::int32_t maxTokens = -1);
void splitTokens(StrSegment input, StrSegmentTokenAcceptor& acceptor, const ByteSet& separators = kWhitespace,
                 std::int32_t maxTokens = -1);
void splitTokens(StrSegment input, std::vector<StrSegment>& out, const ByteSet& separators = kWhitespace,
                 std::int32_t maxTokens = -1);
void splitTokens(StrSegment input, StrVector& out, const ByteSet& separators = kWhitespace,
                 std::int32_t maxTokens = -1);

// Lines: each line feed ends a line, less one carriage return before it. An unterminated last
// line is delivered as it is, "\r" included; a final line feed adds no empty line.
void splitLines(StrSegment input, StrSegmentTokenAcceptor& acceptor);
void splitLines(StrSegment input, std::vector<StrSegment>& out);

// Moves bytes from `input` into `line` up to the next line feed. True when a whole line is in
// `line` (without its line feed and one carriage return, also one that ended the previous
// chunk); false when `input` ran out first (it is then empty).
[[nodiscard]] bool accumulateLine(StrSegment& input, Str& line);

// The items separated by one byte.
Str join(const std::vector<StrSegment>& items, char separator);

}  // namespace basicutil
