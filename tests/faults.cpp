#include "faults.hpp"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <system_error>

namespace halvtiv::test {
namespace {

// The C library's functions below find these without any object.
constinit const Fault* planned = nullptr;  // null while nothing is to fail
constinit std::int64_t calls = 0;          // of the planned kind

bool Fails(FaultKind kind) noexcept {
    if (planned == nullptr || planned->kind != kind) return false;
    const std::int64_t past = calls++ - planned->number;
    return past >= 0 && past < planned->length;
}

void* AllocateOrFail(const auto& allocate) noexcept {
    if (!Fails(FaultKind::Memory)) return allocate();
    errno = ENOMEM;
    return nullptr;
}

/// As its sixth argument, which none of the trapped calls has, this lets a call pass.
constexpr std::uint32_t kPass = 0x5eed;

void OnTrappedCall(int /*signal*/, siginfo_t* info, void* context) {
    const int before = errno;
    auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    if (Fails(FaultKind::System)) {
        registers[REG_RAX] = -planned->error;
    } else {
        const long result = ::syscall(info->si_syscall, registers[REG_RDI], registers[REG_RSI],
                                      registers[REG_RDX], registers[REG_R10], registers[REG_R8], kPass);
        registers[REG_RAX] = result < 0 ? -errno : result;
    }
    errno = before;
}

void Check(int status) {
    if (status != 0) throw std::system_error(errno, std::generic_category(), "cannot trap system calls");
}

}  // namespace

// A call of one of these numbers raises SIGSYS in the place of being carried out.
void TrapSystemCalls() {
    constexpr std::array kCalls{SYS_read,      SYS_readv,    SYS_pread64,  SYS_write, SYS_writev,
                                SYS_pwrite64,  SYS_open,     SYS_openat,   SYS_creat, SYS_fsync,
                                SYS_fdatasync, SYS_rename,   SYS_renameat, SYS_link,  SYS_linkat,
                                SYS_renameat2, SYS_ftruncate};
    std::array<sock_filter, kCalls.size() + 5> program{};
    auto* next = program.data();
    const auto skipIfEqual = [&next](std::uint32_t value, std::size_t count) {
        *next++ = BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, static_cast<std::uint8_t>(count), 0);
    };
    *next++ = BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[5]));
    skipIfEqual(kPass, kCalls.size() + 1);
    *next++ = BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));
    std::size_t left = kCalls.size();
    for (const auto number : kCalls) skipIfEqual(static_cast<std::uint32_t>(number), left--);
    *next++ = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    *next++ = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP);

    struct sigaction action {};
    action.sa_sigaction = OnTrappedCall;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    Check(::sigaction(SIGSYS, &action, nullptr));
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    Check(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
    Check(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter));
}

bool RunWithFault(const Fault& fault, const std::function<void()>& action) {
    calls = 0;
    planned = &fault;
    try {
        action();
    } catch (...) {
        planned = nullptr;
        throw;
    }
    planned = nullptr;
    return calls > fault.number;
}

}  // namespace halvtiv::test

// In the place of the C library's own, in all libraries of the process.
#pragma GCC visibility push(default)
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

void* malloc(std::size_t size) noexcept {
    return halvtiv::test::AllocateOrFail([=] { return __libc_malloc(size); });
}
void* calloc(std::size_t count, std::size_t size) noexcept {
    return halvtiv::test::AllocateOrFail([=] { return __libc_calloc(count, size); });
}
void* realloc(void* memory, std::size_t size) noexcept {
    return halvtiv::test::AllocateOrFail([=] { return __libc_realloc(memory, size); });
}
/// The same moment always: workbooks hold the time at which they were made, and are compared byte by byte.
std::time_t time(std::time_t* result) noexcept {
    constexpr std::time_t kMoment = 1'700'000'000;
    if (result != nullptr) *result = kMoment;
    return kMoment;
}
}
#pragma GCC visibility pop
