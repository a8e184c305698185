// The crash log's backtrace: the frames unwound from the signal's context, each named by its
// module, the module's build id, and the function where the dynamic linker or the executable's
// symbol table (read at set-up) knows it.
#include <dlfcn.h>
#include <link.h>
#include <unwind.h>

#include <cstring>
#include <new>

#include "basicutil/crash/CrashHandler_details.h"
#include "libzero/create-crash-dump.h"

namespace basicutil::crash_handler_details {

namespace {

constexpr std::size_t kMaxFrames = 64;
constexpr std::size_t kPathBytes = 4096;

// The executable's function symbols, read at set-up: where it is loaded (the base dladdr reports,
// and what to take off an address to number it as the file does).
struct Executable {
    std::uintptr_t base = 0, offset = 0;
    crash_handler_details::SymbolTable symbols;
};
// Made by the first set-up and never destroyed: a crash in an exit handler still reads it.
alignas(Executable) unsigned char g_executableBytes[sizeof(Executable)];
constinit Executable* g_executable = nullptr;

// --- The backtrace ---------------------------------------------------------------------------------

struct Frames {
    std::uintptr_t pc[kMaxFrames];
    std::size_t count = 0;
};

_Unwind_Reason_Code collectFrame(struct _Unwind_Context* context, void* arg) {
    auto* frames = static_cast<Frames*>(arg);
    const auto pc = static_cast<std::uintptr_t>(_Unwind_GetIP(context));
    if (frames->count == kMaxFrames || pc == 0) return _URC_END_OF_STACK;  // 0: past the outermost frame
    frames->pc[frames->count++] = pc;
    return _URC_NO_REASON;
}

// A module's build id (the GNU build-id note of its loaded image), found for one address.
struct BuildIdSearch {
    std::uintptr_t address;
    const unsigned char* id = nullptr;
    std::size_t idLength = 0;
};

int findBuildId(struct dl_phdr_info* info, std::size_t, void* arg) {
    auto* search = static_cast<BuildIdSearch*>(arg);
    bool holds = false;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto& ph = info->dlpi_phdr[i];
        const std::uintptr_t start = info->dlpi_addr + ph.p_vaddr;
        if (ph.p_type == PT_LOAD && search->address >= start && search->address < start + ph.p_memsz)
            holds = true;
    }
    if (!holds) return 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto& ph = info->dlpi_phdr[i];
        if (ph.p_type != PT_NOTE) continue;
        const auto* p = reinterpret_cast<const unsigned char*>(info->dlpi_addr + ph.p_vaddr);
        const unsigned char* const end = p + ph.p_memsz;
        while (p + 12 <= end) {
            std::uint32_t nameSize, descSize, type;
            std::memcpy(&nameSize, p, 4);
            std::memcpy(&descSize, p + 4, 4);
            std::memcpy(&type, p + 8, 4);
            const unsigned char* name = p + 12;
            const unsigned char* desc = name + ((nameSize + 3) & ~3u);
            if (desc + descSize > end) break;
            if (type == 3 && nameSize == 4 && std::memcmp(name, "GNU", 4) == 0) {  // NT_GNU_BUILD_ID
                search->id = desc;
                search->idLength = descSize;
                return 1;
            }
            p = desc + ((descSize + 3) & ~3u);
        }
    }
    return 1;  // the module, without a build id
}

void writeFrame(crash_dump* d, std::size_t index, std::uintptr_t pc, bool first) {
    crash_dump_text(d, "  #");
    crash_dump_udec(d, index, 2);
    crash_dump_text(d, " 0x");
    crash_dump_hex(d, pc, 16);
    // A return address points after its call: the call itself is one byte back.
    const std::uintptr_t lookup = first ? pc : pc - 1;
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(lookup), &info) != 0 && info.dli_fname != nullptr) {
        crash_dump_text(d, " in ");
        crash_dump_text(d, info.dli_fname);
        crash_dump_text(d, " +0x");
        crash_dump_hex(d, pc - reinterpret_cast<std::uintptr_t>(info.dli_fbase), 0);
        BuildIdSearch search{lookup};
        dl_iterate_phdr(findBuildId, &search);
        if (search.id != nullptr) {
            crash_dump_text(d, " (build id ");
            for (std::size_t i = 0; i < search.idLength; ++i) crash_dump_hex(d, search.id[i], 2);
            crash_dump_char(d, ')');
        }
        std::uint64_t offset = 0;
        const char* name = nullptr;
        if (info.dli_sname != nullptr) {
            name = info.dli_sname;
            offset = pc - reinterpret_cast<std::uintptr_t>(info.dli_saddr);
        } else if (g_executable != nullptr && g_executable->base != 0 &&
                   reinterpret_cast<std::uintptr_t>(info.dli_fbase) == g_executable->base) {
            // The executable's own functions, which the dynamic linker does not know by name.
            name = g_executable->symbols.find(lookup - g_executable->offset, offset);
            offset += pc - lookup;
        }
        if (name != nullptr) {
            crash_dump_char(d, ' ');
            crash_dump_text(d, name);
            crash_dump_text(d, "+0x");
            crash_dump_hex(d, offset, 0);
        }
    }
    crash_dump_char(d, '\n');
}

// The frames from the signal's context on: from the context itself where the unwinder can start
// there; otherwise it walks from here through the handler and the kernel's signal frame, and what
// comes before the context's pc is the handler's own.
}  // namespace

void writeBacktrace(crash_dump* d, const void* context, const platform::Registers& registers,
                    bool haveRegisters) {
    Frames frames;
    frames.count = platform::unwindFromContext(context, frames.pc, kMaxFrames);
    if (frames.count == 0) _Unwind_Backtrace(collectFrame, &frames);
    std::size_t start = 0;
    if (haveRegisters) {
        while (start < frames.count && frames.pc[start] != registers.pc) ++start;
    }
    crash_dump_text(d, "Backtrace:\n");
    if (start == frames.count) {
        // The unwinder did not pass the signal frame: the faulting pc, then the handler's frames.
        crash_dump_text(
            d,
            "  (the unwinder did not reach the signal's context; its pc first, then the handler's frames)\n");
        if (haveRegisters) writeFrame(d, 0, registers.pc, true);
        start = 0;
    }
    for (std::size_t i = start; i < frames.count; ++i) writeFrame(d, i - start, frames.pc[i], i == start);
}

namespace {

// The executable's symbols and where it lies; a file that cannot be read leaves frames unnamed.
int findExecutable(struct dl_phdr_info* info, std::size_t, void* arg) {
    auto* executable = static_cast<Executable*>(arg);
    executable->offset = info->dlpi_addr;  // the first module is the executable
    return 1;
}
}  // namespace

void readExecutableSymbols() {
    char path[kPathBytes];
    if (g_executable == nullptr) g_executable = new (g_executableBytes) Executable;
    if (platform::readExecutablePath(path, sizeof path) == 0 || !g_executable->symbols.read(path)) return;
    dl_iterate_phdr(findExecutable, g_executable);
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&readExecutableSymbols), &info) != 0)
        g_executable->base = reinterpret_cast<std::uintptr_t>(info.dli_fbase);
}

// What loads lazily on first use is loaded now: the unwinder, the dynamic linker's lookups.
void warmUpBacktrace() {
    Frames frames;
    _Unwind_Backtrace(collectFrame, &frames);
    Dl_info info{};
    static_cast<void>(dladdr(reinterpret_cast<void*>(&warmUpBacktrace), &info));
    BuildIdSearch search{reinterpret_cast<std::uintptr_t>(&warmUpBacktrace)};
    dl_iterate_phdr(findBuildId, &search);
}

bool executableSymbolsRead() noexcept {
    return g_executable != nullptr && g_executable->base != 0;
}

}  // namespace basicutil::crash_handler_details
