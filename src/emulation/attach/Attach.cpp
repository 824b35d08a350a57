#include "emulation/attach/Attach.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

#include <libusb-1.0/libusb.h>

#include "emulation/attach/detail/Redirections.h"
#include "util/Mutex.h"

// Which relocations fill a slot with a function's address.
#if defined(__x86_64__)
#define VORNA_JUMP_SLOT R_X86_64_JUMP_SLOT
#define VORNA_DATA_SLOT R_X86_64_GLOB_DAT
#elif defined(__aarch64__)
#define VORNA_JUMP_SLOT R_AARCH64_JUMP_SLOT
#define VORNA_DATA_SLOT R_AARCH64_GLOB_DAT
#else
#error "say which relocations fill the slots of a call on this machine"
#endif

namespace emulation {
namespace {

using detail::Redirection;

constexpr const char* remedy = "; emulated USB devices need Debian's libusb-1.0.so.0 (a shared library that uses "
                               "libudev): install libusb-1.0-0, or run with LD_PRELOAD=libusb-1.0.so.0";

// What a loaded library's dynamic section says, with addresses as the loader has placed them.
struct LoadedLibrary {
    std::uintptr_t base = 0;
    const ElfW(Sym) * symbols = nullptr;
    const char* names = nullptr;
    std::array<std::span<const ElfW(Rela)>, 2> relocations; // of calls, of data
    std::uintptr_t sealedBegin = 0, sealedEnd = 0;          // pages made read-only after relocation
};

std::uintptr_t pageSize() { return static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE)); }

LoadedLibrary describe(const dl_phdr_info& info)
{
    LoadedLibrary library;
    library.base = info.dlpi_addr;
    // glibc turns the section's offsets into addresses when it loads a library; other loaders leave them
    const auto place = [&](ElfW(Addr) value) { return value < library.base ? library.base + value : value; };
    std::array<const ElfW(Rela)*, 2> tables{};
    std::array<std::size_t, 2> bytes{};
    for (const auto& header : std::span(info.dlpi_phdr, info.dlpi_phnum)) {
        if (header.p_type == PT_GNU_RELRO) {
            library.sealedBegin = library.base + header.p_vaddr;
            library.sealedEnd = (library.sealedBegin + header.p_memsz) & ~(pageSize() - 1);
        }
        if (header.p_type != PT_DYNAMIC)
            continue;
        for (auto* entry = reinterpret_cast<const ElfW(Dyn)*>(library.base + header.p_vaddr); entry->d_tag != DT_NULL;
             ++entry) {
            switch (entry->d_tag) {
            case DT_SYMTAB:
                library.symbols = reinterpret_cast<const ElfW(Sym)*>(place(entry->d_un.d_ptr));
                break;
            case DT_STRTAB:
                library.names = reinterpret_cast<const char*>(place(entry->d_un.d_ptr));
                break;
            case DT_JMPREL:
                tables[0] = reinterpret_cast<const ElfW(Rela)*>(place(entry->d_un.d_ptr));
                break;
            case DT_PLTRELSZ:
                bytes[0] = entry->d_un.d_val;
                break;
            case DT_RELA:
                tables[1] = reinterpret_cast<const ElfW(Rela)*>(place(entry->d_un.d_ptr));
                break;
            case DT_RELASZ:
                bytes[1] = entry->d_un.d_val;
                break;
            default:
                break;
            }
        }
    }
    for (std::size_t i = 0; i < tables.size(); ++i)
        if (tables[i] != nullptr)
            library.relocations[i] = {tables[i], bytes[i] / sizeof(ElfW(Rela))};
    return library;
}

bool fillsSlot(const ElfW(Rela) & relocation)
{
    const auto type = ELF64_R_TYPE(relocation.r_info);
    return type == VORNA_JUMP_SLOT || type == VORNA_DATA_SLOT;
}

// Other threads may be calling through the slot, so it changes in one step.
bool redirect(const LoadedLibrary& library, const ElfW(Rela) & relocation, void* function)
{
    const std::uintptr_t slot = library.base + relocation.r_offset;
    const bool sealed = slot >= library.sealedBegin && slot < library.sealedEnd;
    void* const page = reinterpret_cast<void*>(slot & ~(pageSize() - 1));
    if (sealed && ::mprotect(page, pageSize(), PROT_READ | PROT_WRITE) != 0)
        return false;
    std::atomic_ref(*reinterpret_cast<void**>(slot)).store(function, std::memory_order_release);
    if (sealed)
        ::mprotect(page, pageSize(), PROT_READ);
    return true;
}

// Two passes, so that a library that cannot be redirected whole is left as it was.
struct Pass {
    std::span<const Redirection> wanted;
    bool change = false;
    bool libraryFound = false;
    bool refused = false; // a sealed page stayed sealed
    std::set<std::string_view> purposes{};
};

void visit(const LoadedLibrary& library, Pass& pass)
{
    if (library.symbols == nullptr || library.names == nullptr)
        return;
    for (const auto table : library.relocations) {
        for (const auto& relocation : table) {
            const auto symbol = ELF64_R_SYM(relocation.r_info);
            if (symbol == 0 || !fillsSlot(relocation))
                continue;
            const std::string_view name = library.names + library.symbols[symbol].st_name;
            for (const Redirection& redirection : pass.wanted) {
                if (name != redirection.name)
                    continue;
                pass.purposes.insert(redirection.purpose);
                if (pass.change && !redirect(library, relocation, redirection.function))
                    pass.refused = true;
            }
        }
    }
}

// Called by the loader, through C: nothing is thrown here.
int visitIfLibusb(dl_phdr_info* info, std::size_t, void* data) noexcept
{
    auto& pass = *static_cast<Pass*>(data);
    if (info->dlpi_name == nullptr || std::string_view(info->dlpi_name).find("libusb-1.0.so") == std::string_view::npos)
        return 0;
    pass.libraryFound = true;
    visit(describe(*info), pass);
    return 0;
}

void attachOnce()
{
    // kept for good: a library that is unloaded and loaded again would lose its redirections
    void* const libusb = ::dlopen("libusb-1.0.so.0", RTLD_NOW | RTLD_NODELETE);
    if (libusb == nullptr)
        throw std::runtime_error(std::string("cannot load libusb-1.0.so.0") + remedy);
    const auto wanted = detail::redirections();
    Pass search{wanted};
    ::dl_iterate_phdr(visitIfLibusb, &search);
    if (!search.libraryFound)
        throw std::runtime_error(std::string("cannot find libusb-1.0.so.0 among the loaded libraries") + remedy);
    for (const Redirection& redirection : wanted)
        if (!search.purposes.contains(redirection.purpose))
            throw std::runtime_error(std::string("the loaded libusb doesn't call ") + redirection.name + remedy);
    Pass change{wanted, true};
    ::dl_iterate_phdr(visitIfLibusb, &change);
    if (change.refused)
        throw std::runtime_error(std::string("the system forbids changing libusb's table of calls") + remedy);
    // The library that was loaded need not be the one that this program calls. Each new context lists the devices.
    libusb_context* context = nullptr;
    if (libusb_init(&context) != 0)
        return; // no libusb works here; opening a device will fail with a text of its own
    libusb_exit(context);
    if (!detail::haveBeenCalled())
        throw std::runtime_error(std::string("libusb is linked into the program") + remedy);
}

util::Mutex attachMutex; // outermost: libusb lists devices while it is held
bool attached VORNA_GUARDED_BY(attachMutex) = false;

} // namespace

void attachToLibusb()
{
    const util::Lock lock(attachMutex);
    if (!attached)
        attachOnce(); // a failed attempt is made again next time
    attached = true;
}

PluggedDevice plug(std::shared_ptr<Device> device)
{
    attachToLibusb();
    return Bus::instance().plug(std::move(device));
}

} // namespace emulation
