#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>

namespace KALO::MESH::SDK {

/// One node's answer to a web API call. A fresh one stands for "no answer yet": not valid, no
/// success, error number 0, no data.
class Response {
 public:
  Response() = default;

  /// Reads a node's answer envelope. Anything but a well-formed envelope gives a response that is
  /// not valid.
  static Response FromEnvelope(const Json::Value& envelope);

  /// @return whether a well-formed answer came back.
  [[nodiscard]] bool IsValid() const { return valid_; }
  [[nodiscard]] bool IsSuccess() const { return success_; }
  /// @return the node's error number; 0 when there is none.
  [[nodiscard]] std::int32_t GetErrno() const { return error_number_; }
  /// @param data receives a copy of the answer's data; untouched when there is none
  /// @return whether there is any: a null counts as none.
  bool GetData(Json::Value& data) const;

 private:
  bool valid_ = false;
  bool success_ = false;
  std::int32_t error_number_ = 0;
  Json::Value data_;
};

}  // namespace KALO::MESH::SDK
