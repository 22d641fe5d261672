#ifndef TESTS_FAULTS_REFUSAL_H
#define TESTS_FAULTS_REFUSAL_H

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <stdexcept>

/* A system call that the kernel refuses: what the C library calls inside of its own functions cannot be stood before.
 */
struct Refusal {
  uint32_t system_call;
  unsigned int argument; /* counted from 0 */
  uint32_t value;        /* of that argument */
  uint32_t error;        /* the error number that comes of it */
};

constexpr uint32_t any_value = 0xFFFFFFFF;

/* Returns that of a call of sockets, which some machines know by its number in one call for all of them. */
inline Refusal refused_socket_call([[maybe_unused]] uint32_t system_call, [[maybe_unused]] uint32_t number,
                                   uint32_t error) {
#ifdef SYS_socketcall
  return {SYS_socketcall, 0, number, error};
#else
  return {system_call, 0, any_value, error};
#endif
}

/* From now on this process and those that it starts are refused that call. */
inline void refuse_for_good(const Refusal& refusal) {
  constexpr uint32_t number = offsetof(seccomp_data, nr);
  const uint32_t argument = static_cast<uint32_t>(offsetof(seccomp_data, args) + refusal.argument * sizeof(uint64_t)) +
                            (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? 4 : 0);
  const uint8_t unless_equal = refusal.value == any_value ? 0 : 1;
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, refusal.system_call, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, argument),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, refusal.value, 0, unless_equal),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | refusal.error),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program{sizeof filter / sizeof filter[0], filter};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    throw std::runtime_error("the kernel does not take a filter of system calls");
  }
}

#endif
