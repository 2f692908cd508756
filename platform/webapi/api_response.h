#pragma once

#include <json/value.h>

namespace KALO {

/// The answer to one request. Keeps the last answer set; one that was never set is answered by the
/// server with a general failure.
class APIResponse {
 public:
  /// Marks the request successful.
  /// @param data the result: an object, or null where there is nothing to say
  void SetSuccess(const Json::Value& data);

  /// Marks the request failed.
  /// @param code the number that tells the client what happened
  /// @param data null in every answer of this module
  void SetError(int code, const Json::Value& data);

  /// @return whether any answer was set.
  [[nodiscard]] bool HasAnswer() const { return has_answer_; }
  [[nodiscard]] bool IsSuccess() const { return success_; }
  /// @return the error's code; 0 for a success.
  [[nodiscard]] int ErrorCode() const { return error_code_; }
  [[nodiscard]] const Json::Value& Data() const { return data_; }

 private:
  bool has_answer_ = false;
  bool success_ = false;
  int error_code_ = 0;
  Json::Value data_;
};

}  // namespace KALO
