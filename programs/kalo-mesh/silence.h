#pragma once

#include <ostream>
#include <streambuf>

namespace kalo::cli {

/// A stream that shows nothing: what a script reads is one JSON document.
class Silence {
 public:
  [[nodiscard]] std::ostream& Stream() { return stream_; }

 private:
  class NoBuffer : public std::streambuf {};
  NoBuffer buffer_;
  std::ostream stream_{&buffer_};
};

}  // namespace kalo::cli
