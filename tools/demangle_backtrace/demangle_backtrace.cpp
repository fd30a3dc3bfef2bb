// demangle_backtrace RAW OUT: turns the frames that backtrace_symbols_fd wrote into numbered lines
// with demangled function names and, where the module has debug information, source lines.
// It is run by the crash handler (Part 7.1) on "/etc/tarvion/logs/backTrace" (Part 7.2), so it
// must cope with any input: what it cannot understand it copies, what it cannot resolve it keeps.

#include <cxxabi.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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
    "    from the module's symbol tables (nm -D, then nm) and the offset added; a bare runtime\n"
    "    address is used only for a module that is not position independent (ELF type EXEC).\n"
    "    The result is looked up with addr2line -f -C -i. Since every frame that backtrace(3)\n"
    "    records is a return address, the address looked up is one less, so that the line shown\n"
    "    is that of the call; the exception is a frame interrupted by a signal (the frame after\n"
    "    the kernel's signal return trampoline), whose address is the faulting instruction.\n"
    "\n"
    "    A module named without a slash is searched for on PATH; a relative path is taken from\n"
    "    the current directory. nm and addr2line are found on PATH; without them names that\n"
    "    RAW holds are still demangled, and nothing else is resolved.\n"
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
    unsigned long long moduleAddress = 0; // relative to the load base (absolute for ELF EXEC)
    bool isTrampoline = false;
    bool isReturnAddress = true;
    std::string function; // for display, with its offset
    std::vector<Location> locations;
};

struct Symbol
{
    unsigned long long address = 0;
    unsigned long long size = 0;
    bool isCode = false;
    std::string name;
};

struct Segment
{
    unsigned long long address = 0;
    unsigned long long fileOffset = 0;
    unsigned long long fileSize = 0;
};

struct Module
{
    std::string path; // empty when the file was not found
    bool elfRead = false;
    bool isExecutable = false; // ELF type EXEC: runtime addresses are module addresses
    std::vector<Segment> segments;
    bool symbolsRead = false;
    std::vector<Symbol> symbols; // dynamic symbols first, then the full table
    std::unordered_map<std::string, unsigned long long> addressByName;
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

std::string demangle(const std::string& name)
{
    int status = -1;
    char* text = abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status);
    if (status != 0 || text == nullptr) {
        std::free(text);
        return name;
    }
    std::string result(text);
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

// Runs a program found on PATH and gives its standard output; standard error is dropped.
std::string capture(const std::vector<std::string>& arguments)
{
    std::string output;
    int fds[2];
    if (pipe(fds) != 0)
        return output;
    const pid_t pid = fork();
    if (pid < 0) {
        close(fds[0]);
        close(fds[1]);
        return output;
    }
    if (pid == 0) {
        const int null = open("/dev/null", O_RDWR);
        if (null >= 0) {
            dup2(null, STDIN_FILENO);
            dup2(null, STDERR_FILENO);
        }
        dup2(fds[1], STDOUT_FILENO);
        close(fds[0]);
        close(fds[1]);
        std::vector<char*> argv;
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(fds[1]);
    char buffer[65536];
    for (;;) {
        const ssize_t got = read(fds[0], buffer, sizeof(buffer));
        if (got > 0)
            output.append(buffer, size_t(got));
        else if (got == 0 || errno != EINTR)
            break;
    }
    close(fds[0]);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return output;
}

std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    std::string line;
    while (std::getline(stream, line))
        lines.push_back(line);
    return lines;
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

template <typename Ehdr, typename Phdr>
void readProgramHeaders(int fd, Module& module)
{
    Ehdr header;
    if (pread(fd, &header, sizeof(header), 0) != ssize_t(sizeof(header)))
        return;
    module.isExecutable = header.e_type == ET_EXEC;
    if (header.e_phentsize != sizeof(Phdr))
        return;
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        Phdr programHeader;
        if (pread(fd, &programHeader, sizeof(programHeader), off_t(header.e_phoff + i * sizeof(Phdr)))
            != ssize_t(sizeof(programHeader)))
            return;
        if (programHeader.p_type == PT_LOAD)
            module.segments.push_back({programHeader.p_vaddr, programHeader.p_offset, programHeader.p_filesz});
    }
}

void readElf(Module& module)
{
    if (module.elfRead)
        return;
    module.elfRead = true;
    const int fd = open(module.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    unsigned char ident[EI_NIDENT];
    if (pread(fd, ident, sizeof(ident), 0) == ssize_t(sizeof(ident)) && std::memcmp(ident, ELFMAG, SELFMAG) == 0) {
        if (ident[EI_CLASS] == ELFCLASS64)
            readProgramHeaders<Elf64_Ehdr, Elf64_Phdr>(fd, module);
        else if (ident[EI_CLASS] == ELFCLASS32)
            readProgramHeaders<Elf32_Ehdr, Elf32_Phdr>(fd, module);
    }
    close(fd);
}

bool readCode(Module& module, unsigned long long address, unsigned char* bytes, size_t count)
{
    readElf(module);
    for (const Segment& segment : module.segments) {
        if (address < segment.address || address + count > segment.address + segment.fileSize)
            continue;
        const int fd = open(module.path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return false;
        const bool ok = pread(fd, bytes, count, off_t(segment.fileOffset + (address - segment.address)))
                        == ssize_t(count);
        close(fd);
        return ok;
    }
    return false;
}

// The kernel returns from a signal handler through a trampoline of the C library; the frame
// recorded after it is the interrupted instruction, not a return address.
bool isSignalTrampoline(Module& module, unsigned long long address)
{
    static const std::vector<std::vector<unsigned char>> patterns = {
        {0x48, 0xc7, 0xc0, 0x0f, 0x00, 0x00, 0x00, 0x0f, 0x05}, // x86-64: mov $15,%rax; syscall
        {0xb8, 0xad, 0x00, 0x00, 0x00, 0xcd, 0x80},             // i386: mov $173,%eax; int $0x80
        {0x58, 0xb8, 0x77, 0x00, 0x00, 0x00, 0xcd, 0x80},       // i386: pop; mov $119,%eax; int $0x80
        {0x68, 0x11, 0x80, 0xd2, 0x01, 0x00, 0x00, 0xd4},       // aarch64: mov x8,#139; svc #0
        {0xad, 0x70, 0xa0, 0xe3, 0x00, 0x00, 0x00, 0xef},       // arm: mov r7,#173; svc #0
    };
    if (module.path.empty())
        return false;
    unsigned char code[9];
    for (const std::vector<unsigned char>& pattern : patterns) {
        if (readCode(module, address, code, pattern.size()) && std::equal(pattern.begin(), pattern.end(), code))
            return true;
    }
    return false;
}

void readSymbols(Module& module)
{
    if (module.symbolsRead)
        return;
    module.symbolsRead = true;
    if (module.path.empty())
        return;
    // The dynamic table first: it is what backtrace_symbols names, and its names are unique.
    for (const char* table : {"-D", ""}) {
        std::vector<std::string> arguments = {"nm", "--defined-only", "-S"};
        if (*table != '\0')
            arguments.push_back(table);
        arguments.push_back("--");
        arguments.push_back(module.path);
        for (const std::string& line : splitLines(capture(arguments))) {
            std::istringstream fields(line);
            std::vector<std::string> tokens;
            std::string token;
            while (fields >> token)
                tokens.push_back(token);
            Symbol symbol;
            std::string type;
            if (tokens.size() == 4) {
                type = tokens[2];
                symbol.name = tokens[3];
                if (!parseHex("0x" + tokens[1], symbol.size))
                    continue;
            } else if (tokens.size() == 3) {
                type = tokens[1];
                symbol.name = tokens[2];
            } else {
                continue;
            }
            if (!parseHex("0x" + tokens[0], symbol.address) || type.size() != 1)
                continue;
            const size_t version = symbol.name.find('@');
            if (version != std::string::npos && version > 0)
                symbol.name.erase(version);
            symbol.isCode = std::strchr("TtWwi", type[0]) != nullptr;
            module.addressByName.emplace(symbol.name, symbol.address);
            module.symbols.push_back(symbol);
        }
    }
}

const Symbol* containingSymbol(Module& module, unsigned long long address)
{
    readSymbols(module);
    const Symbol* best = nullptr;
    for (const Symbol& symbol : module.symbols) {
        if (!symbol.isCode || address < symbol.address || address - symbol.address >= symbol.size)
            continue;
        if (best == nullptr || symbol.address > best->address)
            best = &symbol;
    }
    return best;
}

bool isUnknownPlace(const std::string& place)
{
    return place.empty() || place.compare(0, 3, "??:") == 0 || place.size() < 3;
}

// addr2line -a prints each address before its function/place pairs, which delimits them.
void locate(Module& module, const std::vector<Frame*>& frames, const std::vector<unsigned long long>& addresses)
{
    const size_t chunk = 256;
    for (size_t first = 0; first < frames.size(); first += chunk) {
        const size_t last = std::min(frames.size(), first + chunk);
        std::vector<std::string> arguments = {"addr2line", "-a", "-f", "-C", "-i", "-e", module.path};
        for (size_t i = first; i < last; ++i)
            arguments.push_back(toHex(addresses[i]));
        const std::vector<std::string> lines = splitLines(capture(arguments));
        size_t index = first;
        bool started = false;
        for (size_t i = 0; i < lines.size();) {
            unsigned long long ignored;
            if (parseHex(lines[i], ignored)) {
                if (started)
                    ++index;
                started = true;
                ++i;
                continue;
            }
            if (!started || index >= last || i + 1 >= lines.size())
                break;
            Location location;
            location.function = lines[i];
            location.place = lines[i + 1];
            const size_t discriminator = location.place.find(" (discriminator");
            if (discriminator != std::string::npos)
                location.place.erase(discriminator);
            frames[index]->locations.push_back(location);
            i += 2;
        }
    }
}

std::string formatFrame(const Frame& frame, int number)
{
    std::string line = "#" + std::to_string(number) + " ";
    std::string place;
    if (!frame.locations.empty() && !isUnknownPlace(frame.locations.front().place))
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
            if (!isUnknownPlace(frame.locations[i + 1].place))
                line += " at " + frame.locations[i + 1].place;
        }
        line += ")";
    }
    return line;
}

void resolve(std::vector<Frame>& frames)
{
    std::map<std::string, Module> modules;
    auto moduleOf = [&modules](const Frame& frame) -> Module& {
        auto it = modules.find(frame.module);
        if (it == modules.end()) {
            it = modules.emplace(frame.module, Module()).first;
            it->second.path = findModuleFile(frame.module);
        }
        return it->second;
    };

    // Module addresses.
    for (Frame& frame : frames) {
        if (!frame.isFrame || frame.module.empty())
            continue;
        Module& module = moduleOf(frame);
        if (module.path.empty())
            continue;
        if (!frame.symbol.empty()) {
            readSymbols(module);
            const auto it = module.addressByName.find(frame.symbol);
            if (it == module.addressByName.end())
                continue;
            frame.moduleAddress = frame.negativeOffset ? it->second - frame.offset : it->second + frame.offset;
            frame.hasModuleAddress = true;
        } else if (frame.hasOffset) {
            frame.moduleAddress = frame.negativeOffset ? 0 - frame.offset : frame.offset;
            frame.hasModuleAddress = !frame.negativeOffset;
        } else {
            readElf(module);
            if (module.isExecutable) {
                frame.moduleAddress = frame.runtimeAddress;
                frame.hasModuleAddress = true;
            }
        }
    }

    // Which addresses are return addresses: all but a signal trampoline and the frame after it.
    const Frame* previous = nullptr;
    for (Frame& frame : frames) {
        if (!frame.isFrame)
            continue;
        frame.isTrampoline = frame.hasModuleAddress && isSignalTrampoline(moduleOf(frame), frame.moduleAddress);
        if (frame.isTrampoline || (previous != nullptr && previous->isTrampoline))
            frame.isReturnAddress = false;
        previous = &frame;
    }

    // Names and source lines, one addr2line run for each module.
    std::map<std::string, std::pair<std::vector<Frame*>, std::vector<unsigned long long>>> lookups;
    for (Frame& frame : frames) {
        if (!frame.isFrame)
            continue;
        if (!frame.symbol.empty())
            frame.function = demangle(frame.symbol) + frame.offsetText;
        if (!frame.hasModuleAddress)
            continue;
        unsigned long long address = frame.moduleAddress;
        if (frame.isReturnAddress && address > 0)
            --address;
        Module& module = moduleOf(frame);
        if (frame.function.empty()) {
            if (const Symbol* symbol = containingSymbol(module, address))
                frame.function = demangle(symbol->name) + "+" + toHex(frame.moduleAddress - symbol->address);
        }
        auto& lookup = lookups[frame.module];
        lookup.first.push_back(&frame);
        lookup.second.push_back(address);
    }
    for (auto& entry : lookups)
        locate(modules[entry.first], entry.second.first, entry.second.second);
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
