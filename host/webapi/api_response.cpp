#include "platform/webapi/api_response.h"

namespace KALO {

void APIResponse::SetSuccess(const Json::Value& data) {
  has_answer_ = true;
  success_ = true;
  error_code_ = 0;
  data_ = data;
}

void APIResponse::SetError(int code, const Json::Value& data) {
  has_answer_ = true;
  success_ = false;
  error_code_ = code;
  data_ = data;
}

}  // namespace KALO
