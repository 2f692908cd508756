#include "host/core/shared_library.h"

#include <dlfcn.h>

#include <stdexcept>
#include <utility>

namespace kalo {

SharedLibrary::SharedLibrary(const char* file, std::string what)
    : what_(std::move(what)), handle_(dlopen(file, RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ == nullptr) Fail();
}

void* SharedLibrary::Symbol(const char* name) const {
  void* found = dlsym(handle_, name);
  if (found == nullptr) Fail();
  return found;
}

void SharedLibrary::Fail() const {
  const char* cause = dlerror();
  throw std::runtime_error(what_ + " cannot be loaded: " + (cause != nullptr ? cause : "unknown"));
}

}  // namespace kalo
