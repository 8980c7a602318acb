#ifndef LINXIPC_TESTS_CALLS_REGISTERS_H
#define LINXIPC_TESTS_CALLS_REGISTERS_H

#include <sys/ptrace.h>
#include <sys/types.h>
#include <sys/user.h>

#include <cstdint>
#include <type_traits>

namespace calls {

/// The registers of a process that stands at a system call, as far as they have to be changed for the call to fail.
namespace registers {

#if defined(__x86_64__) || defined(__i386__)

constexpr bool known = true;

#if defined(__x86_64__)
constexpr auto numberRegister = &user_regs_struct::orig_rax;
constexpr auto answerRegister = &user_regs_struct::rax;
constexpr auto firstArgumentRegister = &user_regs_struct::rdi;
#else
constexpr auto numberRegister = &user_regs_struct::orig_eax;
constexpr auto answerRegister = &user_regs_struct::eax;
constexpr auto firstArgumentRegister = &user_regs_struct::ebx;
#endif

template <class Register>
bool set(pid_t process, Register which, long value) {
    user_regs_struct all;
    if (ptrace(PTRACE_GETREGS, process, nullptr, &all) == -1) return false;
    all.*which = static_cast<std::remove_reference_t<decltype(all.*which)>>(value);
    return ptrace(PTRACE_SETREGS, process, nullptr, &all) != -1;
}

/// Before the call: has the kernel make none.
inline bool skipCall(pid_t process) {
    return set(process, numberRegister, -1);
}

/// Changes the first argument. Programs count on finding it unchanged after the call.
inline bool setArgument(pid_t process, uint64_t value) {
    return set(process, firstArgumentRegister, static_cast<long>(value));
}

/// After the call: has it answer an error.
inline bool answer(pid_t process, int error) {
    return set(process, answerRegister, -error);
}

#else

constexpr bool known = false;

inline bool skipCall(pid_t) {
    return false;
}
inline bool setArgument(pid_t, uint64_t) {
    return false;
}
inline bool answer(pid_t, int) {
    return false;
}

#endif

}  // namespace registers
}  // namespace calls

#endif
