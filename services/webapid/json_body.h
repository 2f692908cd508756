#pragma once

#include <cstddef>
#include <string>

#include "services/webapid/body_reader.h"

namespace kalo::webapid {

/// A body that is one JSON object. No body at all is an empty object.
class JsonBody : public BodyReader {
 public:
  /// @param limit in bytes
  explicit JsonBody(std::size_t limit) : limit_(limit) {}
  void Feed(std::string_view data) override;
  [[nodiscard]] BodyResult Finish() override;

 private:
  std::size_t limit_;
  std::string text_;
  bool too_large_ = false;
};

}  // namespace kalo::webapid
