// Loaded in front of the C library into a program whose event loops cannot be told anything any
// more from the moment at which there is /tmp/no-events: what tells them are eight bytes.
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

extern "C" {

// The checking run-time wants to stand first; behind this library it works as well.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that it asks for.
__attribute__((visibility("default"))) const char* __asan_default_options() {
  return "verify_asan_link_order=0";
}

ssize_t write(int fd, const void* buffer, std::size_t size) {
  if (size == 8 && access("/tmp/no-events", F_OK) == 0) {
    errno = EIO;
    return -1;
  }
  return syscall(SYS_write, fd, buffer, size);
}
}
