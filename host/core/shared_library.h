#pragma once

#include <string>

namespace kalo {

/// A library that is loaded when it is used first, not with the program. It stays loaded: what it
/// was given, such as callbacks, may be in use until the process ends.
class SharedLibrary {
 public:
  /// @param file its name for the dynamic linker
  /// @param what what it is, for messages: "the transfer library"
  /// @throws std::runtime_error
  SharedLibrary(const char* file, std::string what);

  /// @param function becomes the function of that name
  /// @throws std::runtime_error when there is none
  template <typename Function>
  void Find(const char* name, Function*& function) const {
    function = reinterpret_cast<Function*>(Symbol(name));
  }

 private:
  [[nodiscard]] void* Symbol(const char* name) const;
  [[noreturn]] void Fail() const;

  std::string what_;
  void* handle_;
};

}  // namespace kalo
