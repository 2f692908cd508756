#pragma once

#include <microhttpd.h>

#include <string_view>

namespace kalo::webapid {

/// A request's first line as the HTTP library points to it, in its own buffer.
struct RequestLine {
  const char* method = nullptr;
  std::string_view target;  ///< before the library decoded it; up to its first NUL
  const char* version = nullptr;
};

/// Checks what the HTTP library (0.9.75) reads too kindly: lines that end with a bare LF, folded
/// header lines, NUL and other control characters, names that are no tokens, e.g. with a blank
/// before the colon, and a second Host. Others on the way may have read such a request differently.
///
/// The library cuts a head into strings where it lies in its buffer: each "\r\n" is two NULs
/// afterwards, a colon and the blanks around the target are one. So in a well-formed head the
/// strings lie one after the other without any gap, from the method to the end of the head; every
/// other head has a gap. A library that keeps heads differently would have every request refused.
/// @param connection a connection whose request has its head, but not its body yet
[[nodiscard]] bool IsHeadWellFormed(MHD_Connection* connection, const RequestLine& line);

}  // namespace kalo::webapid
