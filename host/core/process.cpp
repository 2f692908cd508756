#include "platform/core/process.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

// fork(2) itself, not clone(2): whoever must drop something in the child, or know that a request
// forked, relies on the pthread_atfork handlers.
int KLIBCProcFork(int flags) {
  if (flags != 0) {
    errno = EINVAL;
    return -1;
  }
  std::fflush(nullptr);  // else both sides write what stands in the buffers
  return fork();
}
