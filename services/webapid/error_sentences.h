#pragma once

#include <string>

namespace kalo::webapid {

/// @return the sentence that tells a person what an error number means; a general one for a number
///         that is not in the table.
[[nodiscard]] const char* ErrorSentence(int code);

/// @return the HTTP status with which the front itself answers this error; 200 for an error that
///         only modules answer.
[[nodiscard]] unsigned ErrorStatus(int code);

/// @return the whole answer {"success":false,"error":{"code":…,"message":"…"}}.
[[nodiscard]] std::string ErrorEnvelope(int code);

}  // namespace kalo::webapid
