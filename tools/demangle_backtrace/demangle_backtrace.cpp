// demangle_backtrace RAW OUT: turns the frames that backtrace_symbols_fd wrote into numbered lines
// with demangled function names and, where the module has debug information, source lines.
// The crash handler runs it on "/etc/tarvion/logs/backTrace" and waits for it, so it must cope
// with any input: what it cannot understand it copies, what it cannot resolve it keeps. It reads
// the modules itself through elfutils, since an instrument image usually has no binutils.

#include <cxxabi.h>
#include <dwarf.h>
#include <elfutils/libdwfl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace {

const char usageText[] =
    "NAME\n"
    "    demangle_backtrace - make a raw crash backtrace readable\n"
    "\n"
    "SYNOPSIS\n"
    "    demangle_backtrace RAW OUT\n"
    "    demangle_backtrace -h | --help\n"
    "\n"
    "DESCRIPTION\n"
    "    Reads RAW, a backtrace in the form that glibc's backtrace_symbols_fd(3) writes, one frame\n"
    "    a line, innermost first:\n"
    "        /path/module(symbol+0x1f) [0x55d0c0ffee1f]\n"
    "        /path/module(+0x1234) [0x55d0c0ffe234]\n"
    "        /path/module() [0x7f00deadbeef]\n"
    "        /path/module[0x401234]\n"
    "        [0x7f00deadbeef]\n"
    "    (the blank before \"[\" is optional), and writes OUT with one line for each frame.\n"
    "\n"
    "    Each address is resolved against the load base of its module: an offset written as\n"
    "    (+0xOFF) is already relative to it; for (symbol+0xOFF) the symbol's address is taken\n"
    "    from the module's symbol table and the offset added; a bare runtime address is used\n"
    "    only for a module that is not position independent (ELF type EXEC). Since every frame\n"
    "    that backtrace(3) records is a return address, the address looked up is one less, so\n"
    "    that the line shown is that of the call; the exception is a frame interrupted by a\n"
    "    signal (the frame after the kernel's signal return trampoline), whose address is the\n"
    "    faulting instruction.\n"
    "\n"
    "    A module named without a slash is searched for on PATH; a relative path is taken from\n"
    "    the current directory. Modules are read in this process with elfutils (libdw); no\n"
    "    other program is run. Debug information is taken from the module itself or, by its\n"
    "    build ID or debug link, from /usr/lib/debug. A module without it still names its\n"
    "    functions from its symbol table; a module that cannot be found keeps its raw text.\n"
    "\n"
    "    OUT is created or truncated; \"-\" writes to standard output. RAW is only read.\n"
    "\n"
    "OUTPUT FORMAT\n"
    "    One line for each line of RAW, in the same order:\n"
    "        #N MODULE: FUNCTION+0xOFF at FILE:LINE\n"
    "    N counts the frames from 0. FUNCTION is demangled; +0xOFF is its offset in the\n"
    "    function (as RAW gives it, or from the module's symbol table). \" at FILE:LINE\" is\n"
    "    present where the module has debug information. Where the address lies in inlined\n"
    "    code, \" (inlined: F1 into F2 at FILE:LINE; ...)\" follows, innermost first.\n"
    "    A frame that cannot be resolved at all is written as \"#N \" and its raw text.\n"
    "    A line that is not a frame is copied as it stands, without a number.\n"
    "\n"
    "EXIT STATUS\n"
    "    0  OUT was written (also when frames stayed unresolved or lines were malformed).\n"
    "    1  RAW could not be read or OUT could not be written; a message goes to standard error.\n"
    "    2  Wrong arguments; a short usage goes to standard error.\n";

const char programName[] = "demangle_backtrace";

struct Location
{
    std::string function;
    std::string place; // "file:line", empty when unknown
};

struct Frame
{
    std::string raw;
    bool isFrame = false;
    std::string module;     // as RAW names it; empty when RAW names none
    std::string symbol;     // as RAW gives it, mangled; empty when none
    std::string offsetText; // "+0x1f" as RAW gives it; empty when none
    bool hasOffset = false;
    bool negativeOffset = false;
    unsigned long long offset = 0;
    unsigned long long runtimeAddress = 0;

    bool hasModuleAddress = false;
    Dwarf_Addr moduleAddress = 0; // in the module's own session, see Module
    bool isTrampoline = false;
    bool isReturnAddress = true;
    std::string function; // for display, with its offset
    std::vector<Location> locations;
};

bool parseHex(const std::string& text, unsigned long long& value)
{
    if (text.size() < 3 || text.size() > 18 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X'))
        return false;
    value = 0;
    for (size_t i = 2; i < text.size(); ++i) {
        const char c = text[i];
        unsigned digit;
        if (c >= '0' && c <= '9')
            digit = unsigned(c - '0');
        else if (c >= 'a' && c <= 'f')
            digit = unsigned(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
            digit = unsigned(c - 'A' + 10);
        else
            return false;
        value = (value << 4) | digit;
    }
    return true;
}

std::string toHex(unsigned long long value)
{
    char text[24];
    std::snprintf(text, sizeof(text), "0x%llx", value);
    return text;
}

std::string demangle(const char* name)
{
    int status = -1;
    char* text = abi::__cxa_demangle(name, nullptr, nullptr, &status);
    std::string result(status == 0 && text != nullptr ? text : name);
    std::free(text);
    return result;
}

void trimRight(std::string& text)
{
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
        text.pop_back();
}

// Recognises one line of backtrace_symbols_fd; false for anything else.
bool parseFrame(const std::string& line, Frame& frame)
{
    std::string text = line;
    trimRight(text);
    if (text.empty() || text.back() != ']')
        return false;
    const size_t open = text.rfind('[');
    if (open == std::string::npos || !parseHex(text.substr(open + 1, text.size() - open - 2), frame.runtimeAddress))
        return false;
    std::string prefix = text.substr(0, open);
    trimRight(prefix);
    if (!prefix.empty() && prefix.back() == ')') {
        const size_t paren = prefix.rfind('(');
        if (paren == std::string::npos)
            return false;
        const std::string inside = prefix.substr(paren + 1, prefix.size() - paren - 2);
        frame.module = prefix.substr(0, paren);
        const size_t sign = inside.find_last_of("+-");
        unsigned long long offset = 0;
        if (sign != std::string::npos && parseHex(inside.substr(sign + 1), offset)) {
            frame.symbol = inside.substr(0, sign);
            frame.offsetText = inside.substr(sign);
            frame.hasOffset = true;
            frame.negativeOffset = inside[sign] == '-';
            frame.offset = offset;
        } else {
            frame.symbol = inside;
        }
    } else {
        frame.module = prefix;
    }
    frame.raw = line;
    frame.isFrame = true;
    return true;
}

std::string findModuleFile(const std::string& name)
{
    if (name.empty())
        return std::string();
    struct stat info;
    if (name.find('/') != std::string::npos)
        return stat(name.c_str(), &info) == 0 && S_ISREG(info.st_mode) ? name : std::string();
    const char* path = std::getenv("PATH");
    std::istringstream directories(path != nullptr ? path : "");
    std::string directory;
    while (std::getline(directories, directory, ':')) {
        const std::string candidate = (directory.empty() ? std::string(".") : directory) + "/" + name;
        if (stat(candidate.c_str(), &info) == 0 && S_ISREG(info.st_mode))
            return candidate;
    }
    return std::string();
}

// "file:line" as a crash report shows it. A relative file is taken from the compilation's
// directory, and "." and "dir/.." are taken out of the path, which a build through a compiler
// cache leaves in it. Line 0 means that the line table does not know the line.
std::string placeText(const char* directory, const char* file, unsigned long long line)
{
    std::string path = file[0] != '/' && directory != nullptr ? std::string(directory) + "/" + file : file;
    const bool absolute = path[0] == '/';
    std::vector<std::string> parts;
    std::istringstream input(path);
    for (std::string part; std::getline(input, part, '/');) {
        if (part == ".." && !parts.empty() && parts.back() != "..")
            parts.pop_back();
        else if (!part.empty() && part != ".")
            parts.push_back(part);
    }
    std::string text = absolute ? "/" : "";
    for (size_t i = 0; i < parts.size(); ++i)
        text += (i == 0 ? "" : "/") + parts[i];
    return text + ":" + (line == 0 ? std::string("?") : std::to_string(line));
}

// Demangled linkage name of a function's scope, or its plain name (C, main).
std::string functionName(Dwarf_Die* scope)
{
    Dwarf_Attribute attribute;
    for (const int name : {DW_AT_linkage_name, DW_AT_MIPS_linkage_name, DW_AT_name}) {
        if (const char* text = dwarf_formstring(dwarf_attr_integrate(scope, name, &attribute)))
            return demangle(text);
    }
    return "??";
}

char* debugInfoPath = nullptr; // the default: beside the module, then /usr/lib/debug
const Dwfl_Callbacks callbacks = {dwfl_build_id_find_elf, dwfl_standard_find_debuginfo, dwfl_offline_section_address,
                                  &debugInfoPath};

// One libdwfl session for each module, which places the module at 0: an address in it is then
// an offset from the module's load base, as RAW writes it, or for an ELF EXEC file the runtime
// address itself.
class Module
{
public:
    explicit Module(const std::string& path)
    {
        if (path.empty() || (m_dwfl = dwfl_begin(&callbacks)) == nullptr)
            return;
        dwfl_report_begin(m_dwfl);
        m_module = dwfl_report_elf(m_dwfl, path.c_str(), path.c_str(), -1, 0, false);
        dwfl_report_end(m_dwfl, nullptr, nullptr);
        GElf_Addr bias = 0;
        Elf* elf = m_module != nullptr ? dwfl_module_getelf(m_module, &bias) : nullptr;
        GElf_Ehdr header;
        if (elf == nullptr || gelf_getehdr(elf, &header) == nullptr) {
            m_module = nullptr;
            return;
        }
        m_isExecutable = header.e_type == ET_EXEC;
        dwfl_module_info(m_module, nullptr, &m_start, nullptr, nullptr, nullptr, nullptr, nullptr);
    }
    ~Module() { dwfl_end(m_dwfl); }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    bool isValid() const { return m_module != nullptr; }
    bool isExecutable() const { return m_isExecutable; }
    Dwarf_Addr start() const { return m_start; }

    bool symbolAddress(const std::string& name, Dwarf_Addr& address)
    {
        if (!m_symbolsRead) {
            m_symbolsRead = true;
            const int count = dwfl_module_getsymtab(m_module);
            for (int i = 0; i < count; ++i) {
                GElf_Sym symbol;
                GElf_Addr value = 0;
                GElf_Word section = SHN_UNDEF;
                const char* text = dwfl_module_getsym_info(m_module, i, &symbol, &value, &section, nullptr, nullptr);
                if (text == nullptr || section == SHN_UNDEF)
                    continue;
                std::string key(text);
                const size_t version = key.find('@');
                if (version != std::string::npos && version > 0)
                    key.erase(version);
                // backtrace_symbols names global symbols only: a local one of the same name from
                // another source file must not take the place of the global one.
                if (GELF_ST_BIND(symbol.st_info) == STB_LOCAL)
                    m_addressByName.emplace(key, value);
                else
                    m_addressByName[key] = value;
            }
        }
        const auto it = m_addressByName.find(name);
        if (it == m_addressByName.end())
            return false;
        address = it->second;
        return true;
    }

    // The kernel returns from a signal handler through a trampoline of the C library; the frame
    // recorded after it is the interrupted instruction, not a return address.
    bool isSignalTrampoline(Dwarf_Addr address)
    {
        static const std::vector<std::vector<unsigned char>> patterns = {
            {0x48, 0xc7, 0xc0, 0x0f, 0x00, 0x00, 0x00, 0x0f, 0x05}, // x86-64: mov $15,%rax; syscall
            {0xb8, 0xad, 0x00, 0x00, 0x00, 0xcd, 0x80},             // i386: mov $173,%eax; int $0x80
            {0x58, 0xb8, 0x77, 0x00, 0x00, 0x00, 0xcd, 0x80},       // i386: pop; mov $119,%eax; int $0x80
            {0x68, 0x11, 0x80, 0xd2, 0x01, 0x00, 0x00, 0xd4},       // aarch64: mov x8,#139; svc #0
            {0xad, 0x70, 0xa0, 0xe3, 0x00, 0x00, 0x00, 0xef},       // arm: mov r7,#173; svc #0
        };
        Dwarf_Addr offset = address;
        Dwarf_Addr bias = 0;
        Elf_Scn* section = dwfl_module_address_section(m_module, &offset, &bias);
        const Elf_Data* data = section != nullptr ? elf_getdata(section, nullptr) : nullptr;
        if (data == nullptr || data->d_buf == nullptr)
            return false;
        const unsigned char* code = static_cast<const unsigned char*>(data->d_buf);
        for (const std::vector<unsigned char>& pattern : patterns) {
            if (offset + pattern.size() <= data->d_size && std::equal(pattern.begin(), pattern.end(), code + offset))
                return true;
        }
        return false;
    }

    // The function of the symbol table around address, with the offset of frameAddress in it.
    std::string symbolName(Dwarf_Addr address, Dwarf_Addr frameAddress)
    {
        GElf_Off offset = 0;
        GElf_Sym symbol;
        const char* name = dwfl_module_addrinfo(m_module, address, &offset, &symbol, nullptr, nullptr, nullptr);
        return name != nullptr ? demangle(name) + "+" + toHex(frameAddress - (address - offset)) : std::string();
    }

    // The source line of address and the functions there, innermost first: for code inlined into
    // its caller each next location is the caller and the place of the call in it.
    std::vector<Location> locate(Dwarf_Addr address)
    {
        Dwarf_Addr bias = 0;
        Dwarf_Die* unit = dwfl_module_addrdie(m_module, address, &bias);
        Dwarf_Attribute attribute;
        const char* directory = unit != nullptr ? dwarf_formstring(dwarf_attr(unit, DW_AT_comp_dir, &attribute)) : nullptr;
        std::string place;
        int line = 0;
        const char* file = nullptr;
        if (Dwfl_Line* row = dwfl_module_getsrc(m_module, address))
            file = dwfl_lineinfo(row, nullptr, &line, nullptr, nullptr, nullptr);
        if (file != nullptr)
            place = placeText(directory, file, static_cast<unsigned>(line));

        std::vector<Location> locations;
        Dwarf_Files* files = nullptr;
        size_t fileCount = 0;
        for (Dwarf_Die& scope : scopesAt(unit, address - bias)) {
            locations.push_back({functionName(&scope), place});
            Dwarf_Word callFile = 0;
            Dwarf_Word callLine = 0;
            const char* name = nullptr;
            if (dwarf_formudata(dwarf_attr(&scope, DW_AT_call_file, &attribute), &callFile) == 0
                && dwarf_formudata(dwarf_attr(&scope, DW_AT_call_line, &attribute), &callLine) == 0
                && (files != nullptr || dwarf_getsrcfiles(unit, &files, &fileCount) == 0))
                name = dwarf_filesrc(files, callFile, nullptr, nullptr);
            place = name != nullptr ? placeText(directory, name, callLine) : std::string();
        }
        if (locations.empty() && !place.empty())
            locations.push_back({"??", place});
        return locations;
    }

private:
    // The function of the unit around pc, preceded by the functions inlined into it there,
    // innermost first. The functions of a unit are listed once: a walk of its whole tree takes
    // milliseconds where it holds the declarations of a large framework.
    std::vector<Dwarf_Die> scopesAt(Dwarf_Die* unit, Dwarf_Addr pc)
    {
        std::vector<Dwarf_Die> scopes;
        if (unit == nullptr)
            return scopes;
        auto listed = m_functionsByUnit.find(dwarf_dieoffset(unit));
        if (listed == m_functionsByUnit.end()) {
            listed = m_functionsByUnit.emplace(dwarf_dieoffset(unit), std::vector<Dwarf_Die>()).first;
            dwarf_getfuncs(unit, [](Dwarf_Die* function, void* list) {
                static_cast<std::vector<Dwarf_Die>*>(list)->push_back(*function);
                return int(DWARF_CB_OK);
            }, &listed->second, 0);
        }
        for (Dwarf_Die& function : listed->second) {
            if (dwarf_haspc(&function, pc) <= 0)
                continue;
            // Down through the blocks and inlined functions that hold pc.
            Dwarf_Die parent = function;
            Dwarf_Die child;
            bool deeper = dwarf_child(&parent, &child) == 0;
            while (deeper) {
                const int tag = dwarf_tag(&child);
                if ((tag == DW_TAG_lexical_block || tag == DW_TAG_inlined_subroutine) && dwarf_haspc(&child, pc) > 0) {
                    if (tag == DW_TAG_inlined_subroutine)
                        scopes.insert(scopes.begin(), child);
                    parent = child;
                    deeper = dwarf_child(&parent, &child) == 0;
                } else {
                    deeper = dwarf_siblingof(&child, &child) == 0;
                }
            }
            scopes.push_back(function);
            break;
        }
        return scopes;
    }

    Dwfl* m_dwfl = nullptr;
    Dwfl_Module* m_module = nullptr; // null when the file was not found or is no ELF file
    bool m_isExecutable = false;
    Dwarf_Addr m_start = 0;
    bool m_symbolsRead = false;
    std::unordered_map<std::string, Dwarf_Addr> m_addressByName;
    std::map<Dwarf_Off, std::vector<Dwarf_Die>> m_functionsByUnit;
};

std::string formatFrame(const Frame& frame, int number)
{
    std::string line = "#" + std::to_string(number) + " ";
    std::string place;
    if (!frame.locations.empty())
        place = frame.locations.front().place;
    std::string function = frame.function;
    if (function.empty() && !frame.locations.empty() && frame.locations.back().function != "??")
        function = frame.locations.back().function;
    if (function.empty() && place.empty())
        return line + frame.raw;
    line += (frame.module.empty() ? std::string("??") : frame.module) + ": " + (function.empty() ? "??" : function);
    if (!place.empty())
        line += " at " + place;
    if (frame.locations.size() > 1) {
        line += " (inlined:";
        for (size_t i = 0; i + 1 < frame.locations.size(); ++i) {
            line += (i == 0 ? " " : "; ") + frame.locations[i].function + " into " + frame.locations[i + 1].function;
            if (!frame.locations[i + 1].place.empty())
                line += " at " + frame.locations[i + 1].place;
        }
        line += ")";
    }
    return line;
}

void resolve(std::vector<Frame>& frames)
{
    std::map<std::string, Module> modules;
    auto moduleOf = [&modules](const Frame& frame) -> Module* {
        auto it = modules.find(frame.module);
        if (it == modules.end())
            it = modules.emplace(std::piecewise_construct, std::forward_as_tuple(frame.module),
                                 std::forward_as_tuple(findModuleFile(frame.module)))
                     .first;
        return it->second.isValid() ? &it->second : nullptr;
    };

    // Module addresses.
    for (Frame& frame : frames) {
        Module* module = frame.isFrame && !frame.module.empty() ? moduleOf(frame) : nullptr;
        if (module == nullptr)
            continue;
        if (!frame.symbol.empty()) {
            Dwarf_Addr address = 0;
            if (!module->symbolAddress(frame.symbol, address))
                continue;
            frame.moduleAddress = frame.negativeOffset ? address - frame.offset : address + frame.offset;
            frame.hasModuleAddress = true;
        } else if (frame.hasOffset) {
            frame.moduleAddress = module->start() + frame.offset;
            frame.hasModuleAddress = !frame.negativeOffset;
        } else if (module->isExecutable()) {
            frame.moduleAddress = frame.runtimeAddress;
            frame.hasModuleAddress = true;
        }
    }

    // Which addresses are return addresses: all but a signal trampoline and the frame after it.
    const Frame* previous = nullptr;
    for (Frame& frame : frames) {
        if (!frame.isFrame)
            continue;
        frame.isTrampoline = frame.hasModuleAddress && moduleOf(frame)->isSignalTrampoline(frame.moduleAddress);
        if (frame.isTrampoline || (previous != nullptr && previous->isTrampoline))
            frame.isReturnAddress = false;
        previous = &frame;
    }

    // Names and source lines.
    for (Frame& frame : frames) {
        if (!frame.isFrame)
            continue;
        if (!frame.symbol.empty())
            frame.function = demangle(frame.symbol.c_str()) + frame.offsetText;
        if (!frame.hasModuleAddress)
            continue;
        Dwarf_Addr address = frame.moduleAddress;
        if (frame.isReturnAddress && address > 0)
            --address;
        Module* module = moduleOf(frame);
        if (frame.function.empty())
            frame.function = module->symbolName(address, frame.moduleAddress);
        frame.locations = module->locate(address);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc >= 2 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0)) {
        std::fputs(usageText, stdout);
        return 0;
    }
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s RAW OUT\n       %s --help\n", programName, programName);
        return 2;
    }
    const char* rawPath = argv[1];
    const char* outPath = argv[2];

    struct stat info;
    if (stat(rawPath, &info) != 0) {
        std::fprintf(stderr, "%s: cannot read %s: %s\n", programName, rawPath, std::strerror(errno));
        return 1;
    }
    if (S_ISDIR(info.st_mode)) {
        std::fprintf(stderr, "%s: cannot read %s: %s\n", programName, rawPath, std::strerror(EISDIR));
        return 1;
    }
    std::ifstream raw(rawPath, std::ios::binary);
    if (!raw) {
        std::fprintf(stderr, "%s: cannot read %s: %s\n", programName, rawPath, std::strerror(errno));
        return 1;
    }
    std::vector<Frame> frames;
    std::string line;
    while (std::getline(raw, line)) {
        Frame frame;
        if (!parseFrame(line, frame))
            frame.raw = line;
        frames.push_back(frame);
    }
    if (raw.bad()) {
        std::fprintf(stderr, "%s: cannot read %s\n", programName, rawPath);
        return 1;
    }

    // The crash handler waits for this program: debug information comes from this machine
    // only, never over the network.
    unsetenv("DEBUGINFOD_URLS");
    resolve(frames);

    std::ostringstream text;
    int number = 0;
    for (const Frame& frame : frames)
        text << (frame.isFrame ? formatFrame(frame, number++) : frame.raw) << '\n';

    if (std::strcmp(outPath, "-") == 0) {
        std::cout << text.str();
        std::cout.flush();
        return std::cout ? 0 : 1;
    }
    std::ofstream out(outPath, std::ios::binary | std::ios::trunc);
    if (out)
        out << text.str();
    if (out)
        out.flush();
    if (!out) {
        std::fprintf(stderr, "%s: cannot write %s: %s\n", programName, outPath, std::strerror(errno));
        return 1;
    }
    return 0;
}
