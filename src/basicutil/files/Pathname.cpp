#include "basicutil/files/Pathname.h"

#include "basicutil/files/Pathname_details.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <vector>

#include "basicutil/files/File.h"
#include "basicutil/platform/StartupOrder.h"

namespace basicutil {

namespace {

struct PathnameGlobals {
    Str root{"/"};
    Str dot{"."};
    Str dotDot{".."};
    Str devNull{"/dev/null"};
    Str copying{"copying source to destination"};
    Str hardLinking{"hard linking source to destination"};
    Str moving{"moving source to destination"};
    PathnameGlobals() { recordStartupEvent("+basicutil/Pathname"); }
    ~PathnameGlobals() { recordStartupEvent("-basicutil/Pathname"); }
};
PathnameGlobals g_pathname VESTRA_STARTUP(STARTUP_PATHNAME);

StrSegment segment(const char* begin, const char* end) noexcept {
    return StrSegment(begin, static_cast<size_type>(end - begin));
}

bool isDot(StrSegment c) noexcept {
    return c.size() == 1 && c[0] == '.';
}
bool isDotDot(StrSegment c) noexcept {
    return c.size() == 2 && c[0] == '.' && c[1] == '.';
}

// Calls f for each non-empty component, in order.
template <typename F>
void forEachComponent(StrSegment path, F&& f) {
    const char* p = path.begin();
    const char* const end = path.end();
    while (p < end) {
        while (p < end && *p == '/') ++p;
        const char* const start = p;
        while (p < end && *p != '/') ++p;
        if (p > start) f(segment(start, p));
    }
}

// The components left after lexical normalisation; a relative path keeps its leading "..".
std::vector<StrSegment> normalComponents(StrSegment path) {
    std::vector<StrSegment> parts;
    const bool absolute = pathIsAbsolute(path);
    forEachComponent(path, [&](StrSegment c) {
        if (isDot(c)) return;
        if (isDotDot(c)) {
            if (!parts.empty() && !isDotDot(parts.back())) {
                parts.pop_back();
                return;
            }
            if (absolute) return;  // "/.." is "/"
        }
        parts.push_back(c);
    });
    return parts;
}

Str joinComponents(bool absolute, const std::vector<StrSegment>& parts, std::size_t from = 0) {
    Str out;
    if (absolute) out.push_back('/');
    for (std::size_t i = from; i < parts.size(); ++i) {
        if (i > from) out.push_back('/');
        out.append(parts[i]);
    }
    if (out.empty()) out = g_pathname.dot;
    return out;
}

}  // namespace

const Str& pathRoot() noexcept {
    return g_pathname.root;
}
const Str& pathDot() noexcept {
    return g_pathname.dot;
}
const Str& pathDotDot() noexcept {
    return g_pathname.dotDot;
}
const Str& pathDevNull() noexcept {
    return g_pathname.devNull;
}
const Str& copyingOperationText() noexcept {
    return g_pathname.copying;
}
const Str& hardLinkingOperationText() noexcept {
    return g_pathname.hardLinking;
}
const Str& movingOperationText() noexcept {
    return g_pathname.moving;
}

Str pathJoin(StrSegment head, StrSegment tail) {
    if (tail.empty()) return Str(head.data(), head.size());
    if (head.empty() || pathIsAbsolute(tail)) return Str(tail.data(), tail.size());
    const char* end = head.end();
    while (end > head.begin() + 1 && end[-1] == '/') --end;  // "/" stays the root
    Str out(head.data(), static_cast<size_type>(end - head.begin()));
    if (out.back() != '/') out.push_back('/');
    out.append(tail);
    return out;
}

void pathSplit(StrSegment path, StrSegment& directory, StrSegment& base) noexcept {
    const char* const begin = path.begin();
    const char* end = path.end();
    while (end > begin && end[-1] == '/') --end;
    if (path.empty()) {
        directory = base = g_pathname.dot;
        return;
    }
    if (end == begin) {  // only slashes
        directory = base = g_pathname.root;
        return;
    }
    const char* baseStart = end;
    while (baseStart > begin && baseStart[-1] != '/') --baseStart;
    base = segment(baseStart, end);
    const char* dirEnd = baseStart;
    while (dirEnd > begin && dirEnd[-1] == '/') --dirEnd;
    if (baseStart == begin) {
        directory = g_pathname.dot;
    } else if (dirEnd == begin) {
        directory = g_pathname.root;
    } else {
        directory = segment(begin, dirEnd);
    }
}

StrSegment pathDirname(StrSegment path) noexcept {
    StrSegment directory, base;
    pathSplit(path, directory, base);
    return directory;
}

StrSegment pathBasename(StrSegment path) noexcept {
    StrSegment directory, base;
    pathSplit(path, directory, base);
    return base;
}

void pathComponents(StrSegment path, StrVector& out) {
    out.clear();
    forEachComponent(path, [&](StrSegment c) { out.emplace_back(c.data(), c.size()); });
}

Str pathNormalize(StrSegment path) {
    return joinComponents(pathIsAbsolute(path), normalComponents(path));
}

Status pathAbsolute(StrSegment path, Str& out) {
    if (pathIsAbsolute(path)) {
        out = pathNormalize(path);
        return {};
    }
    Str cwd;
    cwd.resize(PATH_MAX);
    while (::getcwd(cwd.data(), static_cast<std::size_t>(cwd.size())) == nullptr) {
        if (errno != ERANGE) return Status::fromErrno("getcwd", ".");
        cwd.resize(cwd.size() * 2);
    }
    cwd.resize(std::char_traits<char>::length(cwd.c_str()));
    out = pathNormalize(pathJoin(cwd, path));
    return {};
}

bool pathRelative(StrSegment target, StrSegment base, Str& out) {
    const bool absolute = pathIsAbsolute(target);
    if (absolute != pathIsAbsolute(base)) return false;
    const std::vector<StrSegment> to = normalComponents(target);
    const std::vector<StrSegment> from = normalComponents(base);
    std::size_t common = 0;
    while (common < to.size() && common < from.size() && to[common].view() == from[common].view()) ++common;
    // Climbing out of `base` past its shared part means naming directories only ".." knows.
    for (std::size_t i = common; i < from.size(); ++i) {
        if (isDotDot(from[i])) return false;
    }
    Str result;
    for (std::size_t i = common; i < from.size(); ++i) {
        if (!result.empty()) result.push_back('/');
        result.append(g_pathname.dotDot);
    }
    for (std::size_t i = common; i < to.size(); ++i) {
        if (!result.empty()) result.push_back('/');
        result.append(to[i]);
    }
    if (result.empty()) result = g_pathname.dot;
    out = std::move(result);
    return true;
}

}  // namespace basicutil
