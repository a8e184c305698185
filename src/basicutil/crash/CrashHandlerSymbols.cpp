#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "basicutil/crash/CrashHandler_details.h"

namespace basicutil::crash_handler_details {

namespace {

// n bytes at `offset` of the file, whole or not at all.
bool readAt(int fd, std::uint64_t offset, void* out, std::size_t n) {
    auto* p = static_cast<char*>(out);
    while (n > 0) {
        const ssize_t got = ::pread(fd, p, n, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        p += got;
        n -= static_cast<std::size_t>(got);
        offset += static_cast<std::uint64_t>(got);
    }
    return true;
}

struct Descriptor {
    int fd;
    ~Descriptor() {
        if (fd >= 0 && ::close(fd) != 0) {
            // Read-only: nothing was written that a failed close could lose.
        }
    }
};

}  // namespace

bool SymbolTable::read(const std::string& path) {
    _symbols.clear();
    _names.clear();
    Descriptor file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (file.fd < 0) return false;
    Elf64_Ehdr header{};
    if (!readAt(file.fd, 0, &header, sizeof header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_shentsize != sizeof(Elf64_Shdr) ||
        header.e_shnum == 0)
        return false;
    std::vector<Elf64_Shdr> sections(header.e_shnum);
    if (!readAt(file.fd, header.e_shoff, sections.data(), sections.size() * sizeof(Elf64_Shdr))) return false;
    // The full table when there is one, else the dynamic one.
    const Elf64_Shdr* table = nullptr;
    for (const Elf64_Shdr& s : sections) {
        if (s.sh_type == SHT_SYMTAB) table = &s;
    }
    if (table == nullptr) {
        for (const Elf64_Shdr& s : sections) {
            if (s.sh_type == SHT_DYNSYM) table = &s;
        }
    }
    if (table == nullptr || table->sh_link >= sections.size() || table->sh_entsize != sizeof(Elf64_Sym))
        return false;
    const Elf64_Shdr& strings = sections[table->sh_link];
    std::vector<Elf64_Sym> symbols(table->sh_size / sizeof(Elf64_Sym));
    _names.resize(strings.sh_size + 1);
    if (!readAt(file.fd, table->sh_offset, symbols.data(), symbols.size() * sizeof(Elf64_Sym)) ||
        !readAt(file.fd, strings.sh_offset, _names.data(), strings.sh_size)) {
        _names.clear();
        return false;
    }
    _names.back() = '\0';  // a name at the table's end still ends
    for (const Elf64_Sym& s : symbols) {
        if (ELF64_ST_TYPE(s.st_info) != STT_FUNC || s.st_value == 0 || s.st_size == 0 ||
            s.st_name >= strings.sh_size)
            continue;
        _symbols.push_back({s.st_value, s.st_size, s.st_name});
    }
    std::sort(_symbols.begin(), _symbols.end(),
              [](const Symbol& a, const Symbol& b) { return a.address < b.address; });
    return !_symbols.empty();
}

const char* SymbolTable::find(std::uint64_t address, std::uint64_t& offset) const noexcept {
    // The last symbol starting at or below the address, if the address lies inside it.
    std::size_t low = 0, high = _symbols.size();
    while (low < high) {
        const std::size_t middle = low + (high - low) / 2;
        if (_symbols[middle].address <= address) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    if (low == 0) return nullptr;
    const Symbol& s = _symbols[low - 1];
    if (address - s.address >= s.size) return nullptr;
    offset = address - s.address;
    return _names.data() + s.name;
}

}  // namespace basicutil::crash_handler_details
