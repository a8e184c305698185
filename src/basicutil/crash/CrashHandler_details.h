// The crash handler's machinery that has a unit test of its own: the executable's function
// symbols, read at set-up so that the handler can name frames without allocating.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "basicutil/platform/PlatformCrash.h"

struct crash_dump;  // libzero/create-crash-dump.h

namespace basicutil::crash_handler_details {

// The function symbols of one ELF file (its .symtab, or .dynsym where it was stripped), sorted
// by address, with their names.
class SymbolTable {
  public:
    // Reads `path`. False (and an empty table) when it is no 64-bit ELF file or has no symbols.
    bool read(const std::string& path);
    // The function holding `address` (as the file numbers addresses: the load base taken off)
    // and the offset into it; null when none does. Allocates nothing.
    const char* find(std::uint64_t address, std::uint64_t& offset) const noexcept;
    std::size_t size() const noexcept { return _symbols.size(); }  // functions known

  private:
    struct Symbol {
        std::uint64_t address, size;
        std::uint32_t name;  // offset into _names
    };
    std::vector<Symbol> _symbols;
    std::vector<char> _names;
};

// The crash log's backtrace (CrashHandlerBacktrace.cpp). The set-up reads the executable's
// symbols (its .symtab, kept for the life of the process: a crash in an exit handler still reads
// them) and warms up what loads lazily (the unwinder, the dynamic linker's lookups); the handler
// writes "Backtrace:" and a line a frame from the signal's context on, allocating nothing.
void readExecutableSymbols();
bool executableSymbolsRead() noexcept;
void warmUpBacktrace();
void writeBacktrace(crash_dump* d, const void* context, const platform::Registers& registers,
                    bool haveRegisters);

// Copies n bytes at `from` to `out` byte by byte, unseen by the sanitizers: the memory a crash log
// dumps may be an address sanitizer's poisoned zones (a stack's redzones), which it shows as they
// are instead of stopping the handler. The caller has checked that the bytes are mapped.
void copyRawMemory(unsigned char* out, std::uintptr_t from, std::size_t n) noexcept;

}  // namespace basicutil::crash_handler_details
