#include "basicutil/time/TimeZoneArchive.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include "basicutil/files/FileSystem.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/time/TimeZone.h"
#include "basicutil/time/TimeZone_details.h"

namespace basicutil {

namespace {

constexpr char kMagic[] = "VESTRA TZ ARCHIVE 1\n";
constexpr std::size_t kMagicBytes = sizeof kMagic - 1;
constexpr std::uint64_t kMaxArchiveBytes = std::uint64_t{1} << 31;
constexpr std::uint64_t kMaxZoneBytes = 1 << 20;

std::uint32_t readBigEndian32(const char* p) noexcept {
    const auto* u = reinterpret_cast<const unsigned char*>(p);
    return (std::uint32_t{u[0]} << 24) | (std::uint32_t{u[1]} << 16) | (std::uint32_t{u[2]} << 8) | u[3];
}

void appendBigEndian32(Str& out, std::uint64_t v) {
    const char bytes[4] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                           static_cast<char>(v)};
    out.append(bytes, 4);
}

Status archiveFailure(const char* what) {
    return Status::invalid(strprintf("bad zone archive: %s", what));
}

}  // namespace

Status TimeZoneArchive::fromBytes(Str bytes, std::shared_ptr<const TimeZoneArchive>& out) {
    const char* p = bytes.data();
    const std::uint64_t size = bytes.size();
    if (size < kMagicBytes + 8 || std::memcmp(p, kMagic, kMagicBytes) != 0) {
        return archiveFailure("no magic");
    }
    const std::uint64_t count = readBigEndian32(p + kMagicBytes);
    const std::uint64_t indexBytes = readBigEndian32(p + kMagicBytes + 4);
    const std::uint64_t indexStart = kMagicBytes + 8;
    if (indexBytes > size - indexStart || count > indexBytes / 10) {  // an entry takes 10 bytes or more
        return archiveFailure("index larger than the file");
    }
    const char* index = p + indexStart;
    const char* indexEnd = index + indexBytes;
    const std::uint64_t dataSize = size - indexStart - indexBytes;
    std::vector<Entry> entries;
    entries.reserve(count);
    for (std::uint64_t i = 0; i < count; ++i) {
        const auto nameLength = static_cast<std::uint64_t>(static_cast<unsigned char>(*index));
        if (static_cast<std::uint64_t>(indexEnd - index) < 1 + nameLength + 8 || nameLength == 0) {
            return archiveFailure("an index entry past the index");
        }
        const StrSegment name(index + 1, nameLength);
        const std::uint64_t offset = readBigEndian32(index + 1 + nameLength);
        const std::uint64_t length = readBigEndian32(index + 5 + nameLength);
        index += 1 + nameLength + 8;
        if (offset > dataSize || length > dataSize - offset) {
            return archiveFailure("a zone past the end of the data");
        }
        if (!entries.empty() &&
            !(StrSegment(p + entries.back().name.offset, entries.back().name.length).view() < name.view())) {
            return archiveFailure("names out of order");
        }
        entries.push_back({{static_cast<std::uint64_t>(name.data() - p), nameLength},
                           {static_cast<std::uint64_t>(indexEnd - p) + offset, length}});
    }
    if (index != indexEnd) {
        return archiveFailure("index size differs from its entries");
    }
    out = std::make_shared<const TimeZoneArchive>(std::move(bytes), std::move(entries));
    return {};
}

Status TimeZoneArchive::open(const char* path, std::shared_ptr<const TimeZoneArchive>& out) {
    Str bytes;
    if (Status st = readTimeZoneFile(path, kMaxArchiveBytes, bytes); !st) return st;
    return fromBytes(std::move(bytes), out);
}

bool TimeZoneArchive::find(StrSegment name, StrSegment& tzif) const noexcept {
    const auto at =
        std::lower_bound(_entries.begin(), _entries.end(), name.view(),
                         [this](const Entry& e, std::string_view n) { return view(e.name).view() < n; });
    if (at == _entries.end() || view(at->name).view() != name.view()) return false;
    tzif = view(at->data);
    return true;
}

Status TimeZoneArchive::packDirectory(const char* directory, Str& archive, std::vector<Str>* rejected) {
    namespace fs = std::filesystem;
    std::error_code ec;
    std::map<std::string, Str> zones;  // by name: sorted as the index wants
    const fs::path root(directory);
    fs::recursive_directory_iterator it(root, fs::directory_options::follow_directory_symlink, ec);
    for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (!it->is_regular_file(ec) || ec) continue;
        const std::string name = it->path().lexically_relative(root).generic_string();
        Str bytes;
        if (name.size() > 255 || !readTimeZoneFile(it->path().c_str(), kMaxZoneBytes, bytes).ok()) continue;
        if (bytes.size() < 4 || std::memcmp(bytes.data(), "TZif", 4) != 0) continue;
        // Only what loads whole: a truncated or damaged file would be a zone nobody can use.
        TimeZonePtr zone;
        if (Status st = TimeZone::fromTzif(name, bytes, zone); !st) {
            if (rejected != nullptr) rejected->push_back(strprintf("%s: %s", name, st.text().view()));
            continue;
        }
        zones.emplace(name, std::move(bytes));
    }
    if (ec) return Status::failure(ec.value(), strprintf("%s: %s", directory, ec.message()));
    if (zones.empty()) return Status::failure(ENOENT, strprintf("%s: no zone files", directory));

    Str index, data;
    std::map<std::string_view, std::uint64_t> stored;  // contents already in data, by bytes
    for (const auto& [name, bytes] : zones) {
        auto [at, fresh] = stored.try_emplace(bytes.view(), data.size());
        if (fresh) data.append(bytes);
        index.push_back(static_cast<char>(name.size()));
        index.append(name.data(), name.size());
        appendBigEndian32(index, at->second);
        appendBigEndian32(index, bytes.size());
    }
    if (data.size() + index.size() > kMaxArchiveBytes)
        return Status::failure(EFBIG, "zones too large for one archive");
    archive.clear();
    archive.append(kMagic, kMagicBytes);
    appendBigEndian32(archive, zones.size());
    appendBigEndian32(archive, index.size());
    archive.append(index);
    archive.append(data);
    return {};
}

Status TimeZoneArchive::pack(const char* directory, const char* archivePath, std::vector<Str>* rejected) {
    Str archive;
    if (Status st = packDirectory(directory, archive, rejected); !st) return st;
    // Replaced whole: readers see the old archive or the new one, never a mixture.
    return replaceFileContents(archivePath, archive);
}

}  // namespace basicutil
