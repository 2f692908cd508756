// Loaded in front of the C library into a program that shall find no randomness. One byte is given:
// who asks for that only looks whether there is this call, and has another source when there is
// not.
#include <sys/random.h>

#include <cerrno>

extern "C" {

// The checking run-time wants to stand first; behind this library it works as well.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that it asks for.
__attribute__((visibility("default"))) const char* __asan_default_options() {
  return "verify_asan_link_order=0";
}

ssize_t getrandom(void* /*buffer*/, std::size_t size, unsigned /*flags*/) {
  if (size == 1) return 1;
  errno = EIO;
  return -1;
}
}
