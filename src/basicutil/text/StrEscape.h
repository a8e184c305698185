// Escaping and quoting for the places text goes: logs, JSON, CSV files, search queries and URLs.
#pragma once

#include "basicutil/text/Str.h"

namespace basicutil {

// A copy with line feed, carriage return and tab written as \n, \r and \t.
Str escapeControlCharacters(StrSegment s);

// Log-safe text: bytes 0x20-0x7E stay; line feed and carriage return become \n and \r, a tab
// becomes one blank (on purpose, unlike escapeControlCharacters), any other byte \xHH. Nothing
// is copied until the first byte that changes.
void escapeNonPrintableInPlace(Str& s);

// Appends text as the inside of a JSON string: double quotes, backslashes and the bytes below
// 0x20 escaped (\n, \r, \t, else \u00XX), valid UTF-8 (RFC 3629) as it is, and every byte that
// is not part of a valid sequence as \u00XX of the byte, so that the result is always valid JSON
// and no byte is lost. The one JSON string writer of the library: the logger's JSON lines and the
// tools use it.
void appendJsonEscaped(Str& out, StrSegment text);

// Appends the field as CSV: unchanged when it holds no comma, CR, LF or double quote; else
// between double quotes with each double quote doubled.
void appendCsvField(Str& out, StrSegment field);

// A term for the search-query syntax. Bytes outside `safe` make it quoted, with each double
// quote and (unless keepBackslashes) each backslash escaped by a backslash. An all-safe term is quoted,
// unescaped, when it is a reserved word (OR, IN, AND, NOT) or alwaysQuote is set; else it is
// returned as it is. An empty term is "".
Str quoteSearchTerm(StrSegment term, const ByteSet& safe, bool alwaysQuote = false,
                    bool keepBackslashes = false);

// Appends the text with every byte below 0x20 dropped.
void appendWithoutControlCharacters(Str& out, StrSegment s);

// Percent-encoding of every byte outside A-Z a-z 0-9 - _ . ~ as %XX.
void urlEncodeAppend(Str& out, StrSegment s);
Str urlEncode(StrSegment s);
void urlEncodeInPlace(Str& s);
// %XX (either case) becomes its byte, + a blank; a % without two hex digits stays. Returns
// whether the result is valid UTF-8.
[[nodiscard]] bool urlDecodeInPlace(Str& s);

}  // namespace basicutil
