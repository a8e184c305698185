#include "basicutil/time/TimeZonePack.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include "basicutil/files/FileSystem.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/time/TimeZone.h"
#include "basicutil/time/TimeZoneArchive.h"
#include "basicutil/time/TimeZoneArchive_details.h"

namespace basicutil {

Status packTimeZoneDirectory(const char* directory, Str& archive, std::vector<Str>* rejected) {
    namespace fs = std::filesystem;
    std::error_code ec;
    std::map<std::string, Str> zones;  // by name: sorted as the index wants
    const fs::path root(directory);
    fs::recursive_directory_iterator it(root, fs::directory_options::follow_directory_symlink, ec);
    for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (!it->is_regular_file(ec) || ec) continue;
        const std::string name = it->path().lexically_relative(root).generic_string();
        Str bytes;
        if (name.size() > 255 || !readTimeZoneFile(it->path().c_str(), kMaxZoneFileBytes, bytes).ok())
            continue;
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

    return TimeZoneArchive::build(zones, archive);
}

Status packTimeZoneArchive(const char* directory, const char* archivePath, std::vector<Str>* rejected) {
    Str archive;
    if (Status st = packTimeZoneDirectory(directory, archive, rejected); !st) return st;
    // Replaced whole: readers see the old archive or the new one, never a mixture.
    return replaceFileContents(archivePath, archive);
}

}  // namespace basicutil
