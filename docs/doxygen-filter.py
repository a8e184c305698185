#!/usr/bin/env python3
"""Doxygen input filter: turns the headers' plain contract comments into documentation.

The headers are written for people reading them, not for Doxygen: comments are `//` (C++) or
`/* */` (the C headers), and the text uses backslashes, '@' and '<name>' freely. This filter,
which Doxygen runs on each header,
  - makes the file's opening comment block the file's description;
  - makes a comment right above a declaration that declaration's documentation, and a comment
    above a run of declarations (no blank line between them) the documentation of each one in
    the run without a comment of its own: an overload set or a row of accessors reads as one;
  - makes a trailing comment after a declaration or enumerator its documentation;
  - leaves comments inside function bodies, and `// --- Section ---` titles, alone;
  - shows indented examples and tables as written;
  - escapes what Doxygen would read as commands or HTML outside `code spans` and quotations.
Lines are neither added nor removed, so warnings point at the header's own lines.
"""
import re
import sys

# Characters Doxygen gives a meaning to in prose.
SPECIAL = re.compile(r"([\\@<>&#%$])")
LITERAL = re.compile(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)*\'')
ACCESS = re.compile(r"^\s*(public|protected|private)\s*:")
TYPE_SCOPE = re.compile(r"\b(class|struct|union|namespace|extern\s+\"C\")\b")
ENUM_SCOPE = re.compile(r"\benum\b")

SPECIAL_MEMBER = re.compile(r"^\s*(virtual\s+)?~\w+\s*\(|=\s*delete\s*;")
SEPARATOR = re.compile(r"^//\s*-{3}")

FILE, TYPE, ENUM, BODY = "file", "type", "enum", "body"
PROSE, CODE, QUOTE = 0, 1, 2


def escape_prose(text, state):
    """Escapes what Doxygen would read as commands or HTML. Inside `code spans` nothing is
    escaped; inside "quoted text" Doxygen reads neither commands nor HTML, so neither is there.
    Returns the text and the state at its end (a span or a quotation may go on to the next line).
    """
    out = []
    i = 0
    while i < len(text):
        c = text[i]
        if state == CODE:
            state = PROSE if c == "`" else CODE
        elif state == QUOTE:
            # As Doxygen reads a quotation: \" does not end it, and nothing in it is a command.
            if c == "\\" and text[i + 1:i + 2] == '"':
                out.append(text[i:i + 2])
                i += 2
                continue
            if c == '"':
                state = PROSE
        elif c == "`":
            state = CODE
        elif c == '"':
            state = QUOTE
        elif SPECIAL.match(c):
            c = "\\" + c
        out.append(c)
        i += 1
    return "".join(out), state


def split_code_comment(line):
    """Splits `code // text` or `code /* text */` at a comment outside any literal."""
    quote = None
    i = 0
    while i < len(line):
        c = line[i]
        if quote:
            if c == "\\":
                i += 1
            elif c == quote:
                quote = None
        elif c in "\"'":
            quote = c
        elif line.startswith("//", i) or line.startswith("/*", i):
            return line[:i], line[i:]
        i += 1
    return line, None


class Line:
    """One source line and what the scanner learned about it."""

    def __init__(self, text):
        self.text = text
        self.scope = FILE       # the innermost scope the line starts in
        self.depth = 0          # braces and parentheses open at the line's start
        self.comment = False    # the whole line is comment (or inside /* */)
        self.comment_start = False
        self.code = text
        self.trailing = None
        self.title = False      # part of a `// --- Section ---` title


def scan(texts):
    lines = [Line(t) for t in texts]
    scopes = []        # kinds of the open braces
    parens = 0
    statement = ""     # code of the statement so far, to tell what a brace opens
    in_block = False
    in_title = False
    for ln in lines:
        ln.scope = scopes[-1] if scopes else FILE
        ln.depth = len(scopes) + parens
        stripped = ln.text.strip()
        if in_block:
            ln.comment = True
            in_block = "*/" not in ln.text
            continue
        if SEPARATOR.match(stripped) or (in_title and stripped.startswith("//")):
            # A section title for the reader, not documentation. "// --- Title ---" is one line;
            # a title that does not end in dashes goes on over the comment lines below it.
            if SEPARATOR.match(stripped):
                in_title = not stripped.endswith("-")
            ln.title = True
            continue
        in_title = False
        if stripped.startswith("//") or stripped.startswith("/*"):
            ln.comment = ln.comment_start = True
            in_block = stripped.startswith("/*") and "*/" not in stripped
            continue
        ln.code, ln.trailing = split_code_comment(ln.text)
        if stripped.startswith("#"):
            continue
        for c in LITERAL.sub('""', ln.code):
            if c == "{":
                if ENUM_SCOPE.search(statement):
                    kind = ENUM
                elif TYPE_SCOPE.search(statement) and "(" not in statement.split("{")[-1]:
                    kind = TYPE
                else:
                    kind = BODY
                scopes.append(kind)
                statement = ""
            elif c == "}":
                if scopes:
                    scopes.pop()
                statement = ""
            elif c == "(":
                parens += 1
            elif c == ")":
                parens -= 1
            elif c == ";" and parens == 0:
                statement = ""
            else:
                statement += c
        statement += " "
    return lines


def find_runs(lines):
    """Runs of two or more declarations right below a comment, as (first, last) indices."""
    runs = []
    i = 0
    while i < len(lines):
        if not (lines[i].comment_start and lines[i].scope in (FILE, TYPE)):
            i += 1
            continue
        while i < len(lines) and lines[i].comment:
            i += 1
        first = i
        base = lines[first].depth if first < len(lines) else 0
        statements, last = 0, None
        while i < len(lines):
            ln = lines[i]
            stripped = ln.text.strip()
            if ln.depth < base:
                break
            if ln.depth == base and (not stripped or ln.comment or stripped.startswith("#")
                                     or ln.title
                                     or ACCESS.match(ln.text)):
                break
            # A destructor or a deleted function ends a run it did not start: the comment above
            # is about what comes before it.
            if ln.depth == base and statements > 0 and SPECIAL_MEMBER.search(ln.code):
                break
            after = lines[i + 1].depth if i + 1 < len(lines) else base
            if after == base and ln.code.rstrip().endswith((";", "}", ",")):
                statements, last = statements + 1, i
            i += 1
        if statements >= 2:
            runs.append((first, last))
        i = first  # and look inside the run too
    return runs


EXAMPLE_LINE = re.compile(r"^ {3,}\S")  # indented past the prose
LIST_ITEM = re.compile(r"^\s*([-*+]|\d+\.)\s")


def close_example(out, index):
    line = out[index]
    end = line.rfind("*/")
    out[index] = f"{line[:end]} @endcode {line[end:]}" if end >= 0 else f"{line} @endcode"


def documentation(lines):
    out = []
    state = PROSE
    example = None      # the index in `out` of the last line of an open example (or table)
    opening_end = None  # the last line of the file's opening comment
    opening = True
    prev_comment = False
    prev_prose = ""  # the previous comment line: "" empty, ":" ending in a colon, "x" other
    in_list = False  # inside a Markdown list, which runs to an empty line
    for ln in lines:
        text = ln.text
        was_comment, prev_comment = prev_comment, ln.comment and ln.scope != BODY
        if ln.comment and ln.scope != BODY:
            m = re.match(r"^(\s*)(//|/\*)(.*)$", text) if ln.comment_start else None
            if m:
                head, body = m.group(1) + ("///" if m.group(2) == "//" else "/**"), m.group(3)
            else:  # a later line of a /* */ comment
                c = re.match(r"^(\s*\*?)(.*)$", text)
                head, body = c.group(1), c.group(2)
            end = body.find("*/") if not (m and m.group(2) == "//") else -1
            prose, tail = (body, "") if end < 0 else (body[:end], body[end:])
            # An example or a table: indented lines after an empty comment line or a line
            # ending in ":", running on while indented (list items are left to Markdown).
            in_list = (in_list or bool(LIST_ITEM.match(prose))) and bool(prose.strip())
            starts = example is None and was_comment and prev_prose in ("", ":") and not in_list
            indented = EXAMPLE_LINE.match(prose) and not LIST_ITEM.match(prose)
            if indented and (starts or example is not None):
                # Shown as written, as unparsed code (Doxygen 1.9 leaves the comment markers in a
                # verbatim block). The command goes on the line before, so that the indentation
                # of the block is kept.
                if example is None:
                    out[-1] += " @code{.unparsed}"
                out.append(head + prose + tail)
                example = len(out) - 1
            else:
                prose, state = escape_prose(prose, state)
                if example is not None:
                    # Closed at the start of this line: the last example line may hold a // of
                    # its own, after which Doxygen would not see the command.
                    head += "@endcode "
                    example = None
                out.append(head + prose + tail)
            if "*/" in tail and example is not None:
                close_example(out, example)
                example = None
            words = prose.strip()
            prev_prose = "" if not words else (":" if words.endswith(":") else "x")
            if opening:
                opening_end = len(out) - 1
            continue
        if example is not None:
            close_example(out, example)
            example = None
        state = PROSE  # a code span or a quotation never runs past its comment
        in_list = False
        if text.strip():
            opening = False
        if ln.title:
            out.append(text)
            continue
        if (ln.trailing and ln.scope != BODY and ln.code.strip() not in ("", "}", "};")
                and (ln.code.rstrip()[-1] in ";,{}" or ln.code.lstrip().startswith("#define"))):
            if ln.trailing.startswith("//"):
                text = f"{ln.code}///<{escape_prose(ln.trailing[2:], PROSE)[0]}"
            elif ln.trailing.endswith("*/"):
                text = f"{ln.code}/**<{escape_prose(ln.trailing[2:-2], PROSE)[0]}*/"
        out.append(text)
    # The opening comment describes the file: mark it so on its own last line.
    if opening_end is not None:
        last = out[opening_end].rstrip()
        out[opening_end] = f"{last[:-2]} @file */" if last.endswith("*/") else f"{last} @file"
    return out


def main():
    with open(sys.argv[1], encoding="utf-8") as f:
        lines = scan(f.read().split("\n"))
    out = documentation(lines)
    for first, last in find_runs(lines):
        indent = len(out[first]) - len(out[first].lstrip())
        out[first] = out[first][:indent] + "/**@{*/ " + out[first][indent:]
        # Closed at the start of the next line: a trailing ///< must stay last on its own.
        if last + 1 < len(out):
            out[last + 1] = "/**@}*/ " + out[last + 1]
        else:
            out.append("/**@}*/")
    sys.stdout.write("\n".join(out))


if __name__ == "__main__":
    main()
