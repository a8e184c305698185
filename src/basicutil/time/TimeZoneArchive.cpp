#include "basicutil/time/TimeZoneArchive.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>

#include "basicutil/files/FileSystem.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/time/TimeZoneArchive_details.h"

namespace basicutil {

namespace {

constexpr char kMagic[] = "VESTRA TZ ARCHIVE 1\n";
constexpr std::size_t kMagicBytes = sizeof kMagic - 1;
constexpr std::uint64_t kMaxArchiveBytes = std::uint64_t{1} << 31;

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

Status TimeZoneArchive::build(const std::map<std::string, Str>& zones, Str& archive) {
    for (const auto& [name, bytes] : zones) {
        if (name.empty() || name.size() > 255)
            return Status::invalid(strprintf("a zone name of %zu bytes (1 to 255 fit)", name.size()));
    }
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

Status readTimeZoneFile(const char* path, std::uint64_t maxBytes, Str& out) {
    auto failure = [&](const char* operation) {
        const int saved = errno;
        char text[128];
        return Status::failure(
            saved, strprintf("%s(%s): %s", operation, path, platform::errorText(saved, text, sizeof text)));
    };
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return failure("open");
    struct stat st {};
    Status status;
    if (::fstat(fd, &st) != 0) {
        status = failure("fstat");
    } else if (!S_ISREG(st.st_mode) || static_cast<std::uint64_t>(st.st_size) > maxBytes) {
        status = Status::failure(S_ISREG(st.st_mode) ? EFBIG : EINVAL,
                                 strprintf("%s: not a regular file of at most %llu bytes", path,
                                           static_cast<unsigned long long>(maxBytes)));
    } else {
        out.clear();
        out.resize(static_cast<size_type>(st.st_size));
        size_type done = 0;
        while (status.ok() && done < out.size()) {
            const ssize_t n = ::read(fd, out.data() + done, static_cast<std::size_t>(out.size() - done));
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                status = failure("read");
            } else if (n == 0) {
                status = Status::failure(EIO, strprintf("%s: shorter than its size", path));
            } else {
                done += static_cast<size_type>(n);
            }
        }
    }
    if (::close(fd) != 0 && status.ok()) status = failure("close");
    return status;
}

}  // namespace basicutil
