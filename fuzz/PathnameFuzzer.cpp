// Path normalisation against std::filesystem's lexical rules, and the properties that tie
// normalise, relative, split and the bounded path builder together.
//
// Input: two paths separated by the first NUL.
#include <cstdint>
#include <filesystem>
#include <string>

#include "FuzzReference.h"
#include "basicutil/files/Pathname.h"
#include "libzero/bounded-path.h"

using namespace basicutil;

namespace {

// std::filesystem keeps a trailing "/" ("a/b/" stays) and gives "" for an empty path; ours
// drops the one and says "." for the other.
std::string referenceNormal(const std::string& path) {
    std::string s = std::filesystem::path(path).lexically_normal().string();
    while (s.size() > 1 && s.back() == '/') s.pop_back();
    if (s.empty()) return std::string(1, '.');
    // std::filesystem keeps up to two leading slashes ("//a"); POSIX lets both readings stand.
    std::size_t extra = 0;
    while (extra + 1 < s.size() && s[extra] == '/' && s[extra + 1] == '/') ++extra;
    return s.substr(extra);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t nul = input.find('\0');
    const std::string a = input.substr(0, nul);
    const std::string b = nul == std::string::npos ? std::string() : input.substr(nul + 1);
    if (b.find('\0') != std::string::npos) return 0;

    const Str normal = pathNormalize(a);
    FUZZ_CHECK(normal.view() == referenceNormal(a));
    FUZZ_CHECK(pathNormalize(normal) == normal);
    FUZZ_CHECK(pathIsAbsolute(normal) == pathIsAbsolute(a));

    Str relative;
    if (pathRelative(a, b, relative)) {
        FUZZ_CHECK(!pathIsAbsolute(relative));
        FUZZ_CHECK(pathNormalize(pathJoin(b, relative)) == normal);
    }

    // The directory and the base put back together give the path again (lexically).
    StrSegment directory, base;
    pathSplit(a, directory, base);
    if (base.view() != "/" && base.view() != "." && base.view() != "..") {
        FUZZ_CHECK(pathNormalize(pathJoin(directory, base)) == normal);
    }

    // Components pushed into a small builder: exactly the joined path, or a clean refusal.
    char buf[48];
    bounded_path builder;
    bounded_path_init(&builder, buf, sizeof buf);
    StrVector parts;
    pathComponents(a, parts);
    std::string model = pathIsAbsolute(a) ? "/" : "";
    if (!model.empty()) FUZZ_CHECK(bounded_path_set(&builder, "/", 1) == 0);
    for (const Str& part : parts) {
        std::string next = model;
        if (!next.empty() && next.back() != '/') next += '/';
        next += part.view();
        const int rc = bounded_path_push(&builder, part.data(), part.size());
        if (next.size() < sizeof buf) {
            FUZZ_CHECK(rc == 0);
            model = next;
        } else {
            FUZZ_CHECK(rc == ENAMETOOLONG);
        }
        FUZZ_CHECK(model == bounded_path_str(&builder));
    }
    return 0;
}
