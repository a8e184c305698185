#include "main/CrashSymbolizer.h"

#include <cxxabi.h>
#include <dwarf.h>
#include <elfutils/libdw.h>
#include <elfutils/libdwfl.h>
#include <gelf.h>

#include <cctype>
#include <cstdlib>

namespace vestra::tool {

namespace {

constexpr std::string_view kIndent = "      ";

bool readHex(std::string_view& text, std::uint64_t& value) {
    std::size_t n = 0;
    value = 0;
    for (; n < text.size() && n < 16; ++n) {
        const char c = text[n];
        const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
        if (digit < 0) break;
        value = value << 4 | static_cast<std::uint64_t>(digit);
    }
    if (n == 0 || (n < text.size() && std::isxdigit(static_cast<unsigned char>(text[n])))) return false;
    text.remove_prefix(n);
    return true;
}

bool skip(std::string_view& text, std::string_view prefix) {
    if (text.substr(0, prefix.size()) != prefix) return false;
    text.remove_prefix(prefix.size());
    return true;
}

// A C++ name as written in the source; any other name as it is, without its symbol version
// ("__libc_start_main@@GLIBC_2.34").
std::string demangled(const char* name) {
    int status = 0;
    char* text = abi::__cxa_demangle(name, nullptr, nullptr, &status);
    if (status != 0 || text == nullptr) {
        const std::string_view plain(name);
        return std::string(plain.substr(0, plain.find('@')));
    }
    std::string out(text);
    std::free(text);
    return out;
}

// The name of a function's DIE: its linkage name demangled, else its plain name.
std::string functionName(Dwarf_Die* die) {
    Dwarf_Attribute attribute;
    for (const unsigned at : {DW_AT_linkage_name, DW_AT_MIPS_linkage_name}) {
        if (dwarf_attr_integrate(die, at, &attribute) != nullptr) {
            if (const char* name = dwarf_formstring(&attribute)) return demangled(name);
        }
    }
    if (dwarf_attr_integrate(die, DW_AT_name, &attribute) != nullptr) {
        if (const char* name = dwarf_formstring(&attribute)) return name;
    }
    return "??";
}

std::string place(const char* file, int line, int column) {
    std::string out = file != nullptr ? file : "??";
    if (line > 0) out += ":" + std::to_string(line);
    if (line > 0 && column > 0) out += ":" + std::to_string(column);
    return out;
}

// Where an inlined call stands in its caller: the call's file and line.
std::string callPlace(Dwarf_Die* inlined, Dwarf_Die* cu) {
    Dwarf_Attribute attribute;
    Dwarf_Word file = 0, line = 0, column = 0;
    if (dwarf_attr(inlined, DW_AT_call_file, &attribute) == nullptr ||
        dwarf_formudata(&attribute, &file) != 0)
        return "??";
    if (dwarf_attr(inlined, DW_AT_call_line, &attribute) != nullptr) dwarf_formudata(&attribute, &line);
    if (dwarf_attr(inlined, DW_AT_call_column, &attribute) != nullptr) dwarf_formudata(&attribute, &column);
    Dwarf_Files* files = nullptr;
    std::size_t count = 0;
    const char* name = nullptr;
    if (dwarf_getsrcfiles(cu, &files, &count) == 0 && file < count)
        name = dwarf_filesrc(files, file, nullptr, nullptr);
    return place(name, static_cast<int>(line), static_cast<int>(column));
}

std::string hexText(const unsigned char* bytes, int n) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    for (int i = 0; i < n; ++i) {
        out += kDigits[bytes[i] >> 4];
        out += kDigits[bytes[i] & 15];
    }
    return out;
}

}  // namespace

bool parseCrashFrame(std::string_view line, CrashFrame& frame) {
    frame = CrashFrame{};
    std::string_view p = line;
    if (!skip(p, "  #")) return false;
    std::size_t digits = 0;
    while (digits < p.size() && p[digits] >= '0' && p[digits] <= '9') {
        frame.index = frame.index * 10 + static_cast<unsigned>(p[digits] - '0');
        if (++digits > 6) return false;
    }
    p.remove_prefix(digits);
    if (digits == 0 || !skip(p, " 0x") || !readHex(p, frame.pc)) return false;
    if (!skip(p, " in ")) return p.empty();
    const std::size_t at = p.find(" +0x");
    if (at == 0 || at == std::string_view::npos) return false;
    frame.module = std::string(p.substr(0, at));
    p.remove_prefix(at + 4);
    if (!readHex(p, frame.offset)) return false;
    if (skip(p, " (build id ")) {
        const std::size_t end = p.find(')');
        if (end == std::string_view::npos) return false;
        frame.buildId = std::string(p.substr(0, end));
    }
    return true;
}

// One libdwfl session, its modules reported as they are first asked for.
struct CrashSymbolizer::Session {
    struct Module {
        Dwfl_Module* module = nullptr;
        std::string problem;       // why nothing can be read from it
        Dwarf_Addr loadStart = 0;  // where the module's first page lies in the session
        std::string buildId;
    };

    Dwfl_Callbacks callbacks{};
    char* debuginfoPath = nullptr;  // the default search
    Dwfl* dwfl = nullptr;
    std::map<std::string, Module> modules;

    Session() {
        callbacks.find_elf = dwfl_build_id_find_elf;
        callbacks.find_debuginfo = dwfl_standard_find_debuginfo;
        callbacks.section_address = dwfl_offline_section_address;
        callbacks.debuginfo_path = &debuginfoPath;
        dwfl = dwfl_begin(&callbacks);
    }
    ~Session() {
        if (dwfl != nullptr) dwfl_end(dwfl);
    }

    const Module& open(const std::string& path) {
        auto [it, added] = modules.try_emplace(path);
        Module& m = it->second;
        if (!added) return m;
        if (dwfl == nullptr) {
            m.problem = std::string("the debugging-information library did not start: ") + dwfl_errmsg(-1);
            return m;
        }
        dwfl_report_begin_add(dwfl);
        m.module = dwfl_report_offline(dwfl, path.c_str(), path.c_str(), -1);
        const char* error = m.module == nullptr ? dwfl_errmsg(-1) : nullptr;
        if (dwfl_report_end(dwfl, nullptr, nullptr) != 0 && error == nullptr) error = dwfl_errmsg(-1);
        if (m.module == nullptr) {
            m.problem = "cannot read " + path + ": " + (error != nullptr ? error : "unknown error");
            return m;
        }
        GElf_Addr bias = 0;
        Elf* elf = dwfl_module_getelf(m.module, &bias);
        std::size_t count = 0;
        if (elf == nullptr || elf_getphdrnum(elf, &count) != 0) {
            m.problem = "cannot read " + path + "'s program headers";
            m.module = nullptr;
            return m;
        }
        // The log's offsets count from the page of the first loaded segment (where the dynamic
        // linker reports the module's base).
        bool found = false;
        for (std::size_t i = 0; i < count; ++i) {
            GElf_Phdr header;
            if (gelf_getphdr(elf, static_cast<int>(i), &header) == nullptr || header.p_type != PT_LOAD)
                continue;
            const Dwarf_Addr start = header.p_vaddr & ~Dwarf_Addr{0xFFF};
            if (!found || start + bias < m.loadStart) m.loadStart = start + bias;
            found = true;
        }
        if (!found) {
            m.problem = path + " has no loadable segment";
            m.module = nullptr;
            return m;
        }
        const unsigned char* bits = nullptr;
        GElf_Addr where = 0;
        const int n = dwfl_module_build_id(m.module, &bits, &where);
        if (n > 0) m.buildId = hexText(bits, n);
        return m;
    }
};

CrashSymbolizer::CrashSymbolizer() : _session(std::make_unique<Session>()) {}
CrashSymbolizer::~CrashSymbolizer() = default;

std::string CrashSymbolizer::describe(const CrashFrame& frame) {
    auto said = [](const std::string& text) { return std::string(kIndent) + "(" + text + ")\n"; };
    if (frame.module.empty()) return said("no module: the address lies in none the process had loaded");
    const Session::Module& m = _session->open(frame.module);
    if (m.module == nullptr) return said(m.problem);
    if (!frame.buildId.empty() && m.buildId != frame.buildId) {
        return said(frame.module + " has build id " + (m.buildId.empty() ? "(none)" : m.buildId) +
                    ", not the log's: it changed since the crash, and is not read");
    }
    // A return address: the call is the byte before it.
    const Dwarf_Addr address = m.loadStart + frame.offset - (frame.index > 0 ? 1 : 0);
    const char* symbol = dwfl_module_addrname(m.module, address);

    Dwarf_Addr bias = 0;
    Dwarf_Die* cu = dwfl_module_addrdie(m.module, address, &bias);
    if (cu == nullptr) {
        // No address ranges table (clang writes none by default): each unit asked in turn.
        for (Dwarf_Die* unit = nullptr; (unit = dwfl_module_nextcu(m.module, unit, &bias)) != nullptr;) {
            if (dwarf_haspc(unit, address - bias) > 0) {
                cu = unit;
                break;
            }
        }
    }
    Dwarf_Line* source = cu != nullptr ? dwarf_getsrc_die(cu, address - bias) : nullptr;
    if (source == nullptr) {
        if (symbol == nullptr) return said("nothing is known of this address in " + frame.module);
        return std::string(kIndent) + demangled(symbol) + " (no line information in " + frame.module + ")\n";
    }
    int line = 0, column = 0;
    if (dwarf_lineno(source, &line) != 0) line = 0;
    if (dwarf_linecol(source, &column) != 0) column = 0;
    std::string here = place(dwarf_linesrc(source, nullptr, nullptr), line, column);

    // The innermost function at the address, then the chain of its callers as the compiler laid
    // them out (the scopes around the inlined instance, not around its out-of-line definition).
    Dwarf_Die* scopes = nullptr;
    const int count = dwarf_getscopes(cu, address - bias, &scopes);
    Dwarf_Die* chain = nullptr;
    int links = 0;
    for (int i = 0; i < count && links <= 0; ++i) {
        const int tag = dwarf_tag(&scopes[i]);
        if (tag == DW_TAG_inlined_subroutine || tag == DW_TAG_subprogram)
            links = dwarf_getscopes_die(&scopes[i], &chain);
    }
    std::free(scopes);
    const std::string symbolName = symbol != nullptr ? demangled(symbol) : std::string("??");
    std::string out;
    bool named = false;
    for (int i = 0; i < links; ++i) {
        Dwarf_Die* scope = &chain[i];
        const int tag = dwarf_tag(scope);
        if (tag != DW_TAG_inlined_subroutine && tag != DW_TAG_subprogram) continue;
        std::string name = functionName(scope);
        // The function itself: its symbol says more than a plain name (namespace, clone).
        if (tag == DW_TAG_subprogram && name.find('(') == std::string::npos && symbol != nullptr)
            name = symbolName;
        out += std::string(kIndent) + (named ? "inlined into " : "") + name + " at " + here + "\n";
        named = true;
        if (tag == DW_TAG_subprogram) break;
        here = callPlace(scope, cu);
    }
    std::free(chain);
    if (!named) out = std::string(kIndent) + symbolName + " at " + here + "\n";
    return out;
}

std::string CrashSymbolizer::symbolize(std::string_view log) {
    std::string out;
    out.reserve(log.size() * 2);
    while (!log.empty()) {
        const std::size_t end = log.find('\n');
        const std::string_view line = log.substr(0, end);
        out += line;
        out += '\n';
        log.remove_prefix(end == std::string_view::npos ? log.size() : end + 1);
        CrashFrame frame;
        if (parseCrashFrame(line, frame)) out += describe(frame);
    }
    return out;
}

}  // namespace vestra::tool
