#pragma once

#include <exception>
#include <string>

namespace KALO::MESH::Webapi {

/// Base of what the handler throws; never thrown by itself.
class MeshWebapiException : public std::exception {
 public:
  explicit MeshWebapiException(std::string message) : message_(std::move(message)) {}
  [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }

 private:
  std::string message_;
};

/// A method failed.
class WebapiException : public MeshWebapiException {
 public:
  explicit WebapiException(const char* message) : MeshWebapiException(message) {}
};

/// The caller gave a bad parameter or a bad patch.
class WebapiParamException : public MeshWebapiException {
 public:
  explicit WebapiParamException(const char* message) : MeshWebapiException(message) {}
};

}  // namespace KALO::MESH::Webapi
