#include <sys/random.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

#include "host/core/file_io.h"

namespace kalo {

std::string RandomHex(std::size_t bytes) {
  std::vector<unsigned char> raw(bytes);
  for (std::size_t done = 0; done < bytes;) {
    const ssize_t got = getrandom(raw.data() + done, bytes - done, 0);
    if (got >= 0) {
      done += static_cast<std::size_t>(got);
    } else if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "getrandom");
    }
  }
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes);
  for (const unsigned char byte : raw) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xf];
  }
  return text;
}

}  // namespace kalo
