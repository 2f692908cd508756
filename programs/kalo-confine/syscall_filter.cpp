#include "programs/kalo-confine/syscall_filter.h"

#include <sched.h>
#include <seccomp.h>

#include <array>
#include <cerrno>
#include <memory>
#include <system_error>

namespace kalo::confine {
namespace {

// Those that a processor does not have are passed over.
constexpr std::array kRefused = {"socket",
                                 "socketpair",
                                 "socketcall",
                                 "io_uring_setup",
                                 "io_uring_enter",
                                 "io_uring_register",
                                 "mount",
                                 "umount",
                                 "umount2",
                                 "pivot_root",
                                 "chroot",
                                 "move_mount",
                                 "open_tree",
                                 "fsopen",
                                 "fsconfig",
                                 "fsmount",
                                 "fspick",
                                 "mount_setattr",
                                 "quotactl",
                                 "quotactl_fd",
                                 "swapon",
                                 "swapoff",
                                 "name_to_handle_at",
                                 "open_by_handle_at",
                                 "fanotify_init",
                                 "unshare",
                                 "setns",
                                 "ptrace",
                                 "process_vm_readv",
                                 "process_vm_writev",
                                 "process_madvise",
                                 "pidfd_getfd",
                                 "kcmp",
                                 "keyctl",
                                 "add_key",
                                 "request_key",
                                 "bpf",
                                 "perf_event_open",
                                 "userfaultfd",
                                 "syslog",
                                 "acct",
                                 "init_module",
                                 "finit_module",
                                 "delete_module",
                                 "kexec_load",
                                 "kexec_file_load",
                                 "reboot",
                                 "lookup_dcookie",
                                 "settimeofday",
                                 "clock_settime",
                                 "clock_adjtime",
                                 "adjtimex",
                                 "stime",
                                 "sethostname",
                                 "setdomainname",
                                 "iopl",
                                 "ioperm",
                                 "modify_ldt",
                                 "vhangup",
                                 "personality",
                                 "mbind",
                                 "migrate_pages",
                                 "move_pages",
                                 "set_mempolicy"};

constexpr std::array kNamespaces = {CLONE_NEWNS,  CLONE_NEWUTS, CLONE_NEWIPC,   CLONE_NEWUSER,
                                    CLONE_NEWPID, CLONE_NEWNET, CLONE_NEWCGROUP};

struct Release {
  void operator()(void* filter) const { seccomp_release(filter); }
};
using Filter = std::unique_ptr<void, Release>;

void Check(int result, const char* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

void Refuse(const Filter& filter, const char* name, int error) {
  const int number = seccomp_syscall_resolve_name(name);
  if (number == __NR_SCMP_ERROR) return;
  Check(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(static_cast<unsigned>(error)), number, 0),
        name);
}

}  // namespace

void FilterSystemCalls() {
  // Calls of another processor mode, whose numbers mean something else, end the program.
  const Filter filter(seccomp_init(SCMP_ACT_ALLOW));
  if (!filter) throw std::system_error(ENOMEM, std::generic_category(), "system call filter");
  for (const char* name : kRefused) Refuse(filter, name, EPERM);
  for (const int flag : kNamespaces) {
    const auto bits = static_cast<scmp_datum_t>(flag);
    Check(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), SCMP_SYS(clone), 1,
                           SCMP_A0(SCMP_CMP_MASKED_EQ, bits, bits)),
          "clone");
  }
  // Its flags lie in memory, where a filter cannot look; the C library then uses clone.
  Refuse(filter, "clone3", ENOSYS);
  Check(seccomp_load(filter.get()), "loading the system call filter");
}

}  // namespace kalo::confine
