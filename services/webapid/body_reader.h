#pragma once

#include <json/value.h>

#include <string_view>

namespace kalo::webapid {

/// What a request's body came to: parameters, or the error to answer with.
struct BodyResult {
  int error = 0;           ///< 0, or the server's error code
  Json::Value parameters;  ///< an object when there is no error
};

/// Takes a request's body piece by piece.
class BodyReader {
 public:
  BodyReader() = default;
  BodyReader(const BodyReader&) = delete;
  BodyReader& operator=(const BodyReader&) = delete;
  virtual ~BodyReader() = default;

  /// After an error the rest is read over: an answer is possible at the end of the body only.
  virtual void Feed(std::string_view data) = 0;
  /// Call it once, when the body is complete.
  [[nodiscard]] virtual BodyResult Finish() = 0;
};

}  // namespace kalo::webapid
