#pragma once

#include <string>

namespace kalo::meshd {

/// Makes a text from outside fit for a D-Bus string and a log line: control characters become
/// blanks; in a text that is not UTF-8 every byte above 127 becomes a question mark; it is cut to
/// a length that leaves a message small.
[[nodiscard]] std::string BusText(std::string text);

}  // namespace kalo::meshd
