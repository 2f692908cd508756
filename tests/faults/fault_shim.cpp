// Loaded into every program of a node in front of the C library. It counts the calls of one program
// through the libraries' door to the kernel and makes the n-th of them fail, or kills the process
// there. Calls that the C library makes to itself are not seen.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include "tests/faults/fault_control.h"

namespace {

using kalo::faults::Action;
using kalo::faults::FaultControl;
using kalo::faults::Side;

FaultControl* control = nullptr;
bool in_child = false;

// By system calls of its own: the C library's are ours.
FaultControl* MapControl() {
  const long fd = syscall(SYS_openat, AT_FDCWD, kalo::faults::kControlPath, O_RDWR | O_CLOEXEC);
  if (fd < 0) return nullptr;
  void* page = mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED,
                    static_cast<int>(fd), 0);
  syscall(SYS_close, fd);
  return page == MAP_FAILED ? nullptr : static_cast<FaultControl*>(page);
}

void NoteChild() {
  in_child = true;
  prctl(PR_SET_NAME, kalo::faults::kChildName);
}

__attribute__((constructor)) void Begin() {
  control = MapControl();
  if (control != nullptr) pthread_atfork(nullptr, nullptr, NoteChild);
}

bool IsTarget() {
  if (control == nullptr || control->armed.load(std::memory_order_acquire) == 0) return false;
  if ((control->side == Side::kChild) != in_child) return false;
  return std::string_view(control->program.data()) == program_invocation_short_name;
}

// Names of calls are few and look little alike.
std::uint16_t NumberOf(std::string_view name) {
  std::uint16_t number = 0;
  for (const char c : name) number = static_cast<std::uint16_t>(number * 31 + c);
  return number;
}

// @return whether this call shall fail.
bool Hit(const char* name, bool sends = false) {
  if (!IsTarget()) return false;
  if (control->action >= Action::kGarble && !sends) return false;
  if (control->only[0] != '\0' && std::string_view(control->only.data()) != name) return false;
  const int kept = errno;
  const std::uint32_t number = control->count.fetch_add(1) + 1;
  if (number <= kalo::faults::kKeptCalls) control->names[number - 1] = NumberOf(name);
  if (control->action == Action::kNone || number != control->nth) return false;
  const std::size_t length = std::min(std::strlen(name), control->call.size() - 1);
  std::copy_n(name, length, control->call.begin());
  control->call[length] = '\0';
  control->fired.store(1, std::memory_order_release);
  if (control->action == Action::kKill) syscall(SYS_kill, getpid(), SIGKILL);
  if (control->action == Action::kPlug) syscall(SYS_kill, getpid(), SIGSTOP);
  errno = kept;
  return true;
}

template <std::size_t N>
struct Name {
  char text[N] = {};
  // NOLINTNEXTLINE(google-explicit-constructor): a text becomes a template's argument by it.
  constexpr Name(const char (&from)[N]) { std::copy_n(from, N, text); }
};

// The function of that name behind this library.
template <Name kName, typename Function>
Function* Real() {
  static Function* const real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, kName.text));
  return real;
}

// The call, or its failure: -1 or a null pointer, and errno.
template <Name kName, typename R, typename... Args>
R Faulty(Args... args) {
  if (!Hit(kName.text)) return Real<kName, R(Args...)>()(args...);
  errno = control->error;
  if constexpr (std::is_pointer_v<R>) {
    return nullptr;
  } else {
    return static_cast<R>(-1);
  }
}

// A call that returns its error number.
template <Name kName, int kSign, typename... Args>
int Numbered(Args... args) {
  return Hit(kName.text) ? kSign * control->error : Real<kName, int(Args...)>()(args...);
}

// Sends something else than it was given, in one buffer. What says how long a message is stays, so
// that the rubbish in it gets to whom it is for.
ssize_t SendSpoiled(int fd, const std::string& bytes, std::size_t head) {
  std::string spoiled = bytes;
  const bool half = control->action == Action::kHalf;
  if (half) spoiled.resize(bytes.size() / 2);
  if (!half) std::fill(spoiled.begin() + static_cast<std::ptrdiff_t>(head), spoiled.end(), '~');
  syscall(SYS_sendto, fd, spoiled.data(), spoiled.size(), MSG_NOSIGNAL, nullptr, 0);
  if (half) syscall(SYS_shutdown, fd, SHUT_RDWR);
  return static_cast<ssize_t>(bytes.size());
}

// What a sending call does when it is hit.
ssize_t Spoil(int fd, const iovec* parts, std::size_t count) {
  if (control->action < Action::kGarble) {
    errno = control->error;
    return -1;
  }
  std::string bytes;
  for (std::size_t i = 0; i < count; ++i) {
    bytes.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
  }
  return SendSpoiled(fd, bytes, count > 1 ? parts[0].iov_len : 0);
}

mode_t ModeOf(int flags, va_list list) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
}

}  // namespace

struct sd_bus;
struct sd_bus_message;
struct sd_bus_error;

// Declared by the C library with attributes that a definition here need not repeat.
#pragma GCC diagnostic ignored "-Wredundant-decls"

extern "C" {

// The checking run-time wants to stand first; behind this library it works as well.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that it asks for.
__attribute__((visibility("default"))) const char* __asan_default_options() {
  return "verify_asan_link_order=0";
}

int open(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = ModeOf(flags, list);
  va_end(list);
  return Faulty<"open", int, const char*, int, mode_t>(path, flags, mode);
}
int open64(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = ModeOf(flags, list);
  va_end(list);
  return Faulty<"open64", int, const char*, int, mode_t>(path, flags, mode);
}
int openat(int dir, const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = ModeOf(flags, list);
  va_end(list);
  return Faulty<"openat", int, int, const char*, int, mode_t>(dir, path, flags, mode);
}
// A descriptor is gone even when closing it says that something went wrong.
int close(int fd) {
  const int result = Real<"close", int(int)>()(fd);
  if (!Hit("close")) return result;
  errno = control->error;
  return -1;
}
FILE* fopen(const char* path, const char* mode) {
  return Faulty<"fopen", FILE*>(path, mode);
}
FILE* fopen64(const char* path, const char* mode) {
  return Faulty<"fopen64", FILE*>(path, mode);
}
ssize_t read(int fd, void* data, size_t size) {
  return Faulty<"read", ssize_t>(fd, data, size);
}
ssize_t write(int fd, const void* data, size_t size) {
  return Faulty<"write", ssize_t>(fd, data, size);
}
ssize_t writev(int fd, const iovec* parts, int count) {
  return Faulty<"writev", ssize_t>(fd, parts, count);
}
ssize_t pread(int fd, void* data, size_t size, off_t at) {
  return Faulty<"pread", ssize_t>(fd, data, size, at);
}
ssize_t pread64(int fd, void* data, size_t size, off64_t at) {
  return Faulty<"pread64", ssize_t>(fd, data, size, at);
}
ssize_t pwrite(int fd, const void* data, size_t size, off_t at) {
  return Faulty<"pwrite", ssize_t>(fd, data, size, at);
}
off_t lseek(int fd, off_t at, int whence) noexcept {
  return Faulty<"lseek", off_t>(fd, at, whence);
}
off64_t lseek64(int fd, off64_t at, int whence) noexcept {
  return Faulty<"lseek64", off64_t>(fd, at, whence);
}
int ftruncate(int fd, off_t size) noexcept {
  return Faulty<"ftruncate", int>(fd, size);
}
int fsync(int fd) {
  return Faulty<"fsync", int>(fd);
}
int fdatasync(int fd) {
  return Faulty<"fdatasync", int>(fd);
}
int flock(int fd, int operation) noexcept {
  return Faulty<"flock", int>(fd, operation);
}
int rename(const char* from, const char* to) noexcept {
  return Faulty<"rename", int>(from, to);
}
int renameat(int from_dir, const char* from, int to_dir, const char* to) noexcept {
  return Faulty<"renameat", int>(from_dir, from, to_dir, to);
}
int unlink(const char* path) noexcept {
  return Faulty<"unlink", int>(path);
}
int unlinkat(int dir, const char* path, int flags) noexcept {
  return Faulty<"unlinkat", int>(dir, path, flags);
}
int remove(const char* path) noexcept {
  return Faulty<"remove", int>(path);
}
int rmdir(const char* path) noexcept {
  return Faulty<"rmdir", int>(path);
}
int mkdir(const char* path, mode_t mode) noexcept {
  return Faulty<"mkdir", int>(path, mode);
}
int mkdirat(int dir, const char* path, mode_t mode) noexcept {
  return Faulty<"mkdirat", int>(dir, path, mode);
}
int symlink(const char* target, const char* path) noexcept {
  return Faulty<"symlink", int>(target, path);
}
int symlinkat(const char* target, int dir, const char* path) noexcept {
  return Faulty<"symlinkat", int>(target, dir, path);
}
ssize_t readlink(const char* path, char* data, size_t size) noexcept {
  return Faulty<"readlink", ssize_t>(path, data, size);
}
int stat(const char* path, struct stat* out) noexcept {
  return Faulty<"stat", int>(path, out);
}
int access(const char* path, int mode) noexcept {
  return Faulty<"access", int>(path, mode);
}
int lstat(const char* path, struct stat* out) noexcept {
  return Faulty<"lstat", int>(path, out);
}
int fstat(int fd, struct stat* out) noexcept {
  return Faulty<"fstat", int>(fd, out);
}
int fstatat(int dir, const char* path, struct stat* out, int flags) noexcept {
  return Faulty<"fstatat", int>(dir, path, out, flags);
}
int chmod(const char* path, mode_t mode) noexcept {
  return Faulty<"chmod", int>(path, mode);
}
int fchmod(int fd, mode_t mode) noexcept {
  return Faulty<"fchmod", int>(fd, mode);
}
int fchown(int fd, uid_t user, gid_t group) noexcept {
  return Faulty<"fchown", int>(fd, user, group);
}
int fchmodat(int dir, const char* path, mode_t mode, int flags) noexcept {
  return Faulty<"fchmodat", int>(dir, path, mode, flags);
}
int statvfs(const char* path, struct statvfs* out) noexcept {
  return Faulty<"statvfs", int>(path, out);
}
int fstatvfs(int fd, struct statvfs* out) noexcept {
  return Faulty<"fstatvfs", int>(fd, out);
}
ssize_t fgetxattr(int fd, const char* name, void* value, size_t size) noexcept {
  return Faulty<"fgetxattr", ssize_t>(fd, name, value, size);
}
int fsetxattr(int fd, const char* name, const void* value, size_t size, int flags) noexcept {
  return Faulty<"fsetxattr", int>(fd, name, value, size, flags);
}
DIR* opendir(const char* path) {
  return Faulty<"opendir", DIR*>(path);
}
DIR* fdopendir(int fd) {
  return Faulty<"fdopendir", DIR*>(fd);
}
dirent* readdir(DIR* folder) {
  return Faulty<"readdir", dirent*>(folder);
}
dirent64* readdir64(DIR* folder) {
  return Faulty<"readdir64", dirent64*>(folder);
}
// The C library declares what follows the command as it may be; all of it is as wide as a word.
int fcntl(int fd, int command, ...) {
  va_list list;
  va_start(list, command);
  const long argument = va_arg(list, long);
  va_end(list);
  // Of an open descriptor the kernel knows no reason why this fails.
  if (command == F_GETOWN) return Real<"fcntl", int(int, int, long)>()(fd, command, argument);
  return Faulty<"fcntl", int, int, int, long>(fd, command, argument);
}
int memfd_create(const char* name, unsigned flags) noexcept {
  return Faulty<"memfd_create", int>(name, flags);
}
ssize_t getrandom(void* data, size_t size, unsigned flags) {
  return Faulty<"getrandom", ssize_t>(data, size, flags);
}
// The C library tells those who want to know of each attempt, before it is made. So this one is
// made, and comes to nothing.
pid_t fork() noexcept {
  const bool is_hit = Hit("fork");
  const pid_t child = Real<"fork", pid_t()>()();
  if (!is_hit || child < 0) return child;
  if (child == 0) syscall(SYS_exit_group, 0);
  syscall(SYS_wait4, child, nullptr, 0, nullptr);
  errno = control->error;
  return -1;
}
pid_t setsid() noexcept {
  return Faulty<"setsid", pid_t>();
}
// Of one's own child the kernel knows no other reason why this fails.
pid_t waitpid(pid_t pid, int* status, int flags) {
  if (!Hit("waitpid")) return Real<"waitpid", pid_t(pid_t, int*, int)>()(pid, status, flags);
  errno = EINTR;
  return -1;
}
int kill(pid_t pid, int signal) noexcept {
  return Faulty<"kill", int>(pid, signal);
}
int pipe2(int* fds, int flags) noexcept {
  return Faulty<"pipe2", int>(fds, flags);
}
int dup2(int from, int to) noexcept {
  return Faulty<"dup2", int>(from, to);
}
int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const argv[], char* const envp[]) {
  return Numbered<"posix_spawn", 1>(pid, path, actions, attributes, argv, envp);
}
int posix_spawnp(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const argv[], char* const envp[]) {
  return Numbered<"posix_spawnp", 1>(pid, path, actions, attributes, argv, envp);
}
int socket(int domain, int type, int protocol) noexcept {
  return Faulty<"socket", int>(domain, type, protocol);
}
int socketpair(int domain, int type, int protocol, int* fds) noexcept {
  return Faulty<"socketpair", int>(domain, type, protocol, fds);
}
int accept4(int fd, sockaddr* address, socklen_t* size, int flags) {
  return Faulty<"accept4", int>(fd, address, size, flags);
}
int connect(int fd, const sockaddr* address, socklen_t size) {
  return Faulty<"connect", int>(fd, address, size);
}
ssize_t send(int fd, const void* data, size_t size, int flags) {
  const iovec part{const_cast<void*>(data), size};
  if (Hit("send", true)) return Spoil(fd, &part, 1);
  return Real<"send", ssize_t(int, const void*, size_t, int)>()(fd, data, size, flags);
}
ssize_t sendto(int fd, const void* data, size_t size, int flags, const sockaddr* to,
               socklen_t length) {
  return Faulty<"sendto", ssize_t>(fd, data, size, flags, to, length);
}
ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  if (Hit("sendmsg", true)) return Spoil(fd, message->msg_iov, message->msg_iovlen);
  return Real<"sendmsg", ssize_t(int, const msghdr*, int)>()(fd, message, flags);
}
ssize_t recv(int fd, void* data, size_t size, int flags) {
  return Faulty<"recv", ssize_t>(fd, data, size, flags);
}
ssize_t recvmsg(int fd, msghdr* message, int flags) {
  return Faulty<"recvmsg", ssize_t>(fd, message, flags);
}
int getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** out) {
  return Hit("getaddrinfo")
             ? EAI_MEMORY
             : Real<"getaddrinfo", int(const char*, const char*, const addrinfo*, addrinfo**)>()(
                   host, service, hints, out);
}
int poll(pollfd* fds, nfds_t count, int timeout) {
  return Faulty<"poll", int>(fds, count, timeout);
}
int ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* mask) {
  return Faulty<"ppoll", int>(fds, count, timeout, mask);
}
int epoll_wait(int fd, epoll_event* events, int count, int timeout) {
  return Faulty<"epoll_wait", int>(fd, events, count, timeout);
}
int epoll_ctl(int fd, int operation, int other, epoll_event* event) noexcept {
  return Faulty<"epoll_ctl", int>(fd, operation, other, event);
}
int sd_bus_open_system(sd_bus** bus) {
  return Numbered<"sd_bus_open_system", -1>(bus);
}
int sd_bus_call(sd_bus* bus, sd_bus_message* call, std::uint64_t usec, sd_bus_error* error,
                sd_bus_message** reply) {
  return Numbered<"sd_bus_call", -1>(bus, call, usec, error, reply);
}

}  // extern "C"
