// webapid-login: checks one password. Reads "user NUL password NUL" from its standard input and
// ends with 0 when the password is right, 1 when it is not, 3 when that cannot be told. A program
// of its own, because hashing takes a good part of a second and the server has one thread.

#include <sys/resource.h>
#include <syslog.h>

#include <exception>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

#include "host/core/log.h"
#include "platform/paths.h"
#include "services/webapid/password_check.h"

namespace {

constexpr int kRight = 0;
constexpr int kWrong = 1;
constexpr int kUsage = 2;
constexpr int kFailed = 3;

// Whoever sends wrong passwords all the time must not slow down what else the router does.
constexpr int kNiceness = 10;

std::optional<std::pair<std::string, std::string>> ReadInput() {
  const std::string input{std::istreambuf_iterator<char>(std::cin), {}};
  const std::size_t end = input.find('\0');
  if (end == std::string::npos || input.find('\0', end + 1) != input.size() - 1) {
    return std::nullopt;
  }
  return std::pair(input.substr(0, end), input.substr(end + 1, input.size() - end - 2));
}

}  // namespace

int main(int argc, char** /*argv*/) {
  if (argc != 1) {
    std::cerr << "webapid-login takes its input from webapid.\n";
    return kUsage;
  }
  (void)setpriority(PRIO_PROCESS, 0, kNiceness);
  try {
    const auto input = ReadInput();
    if (!input) return kUsage;
    const auto users = kalo::webapid::ReadUsers(KALO::paths::kUsers);
    return kalo::webapid::IsPasswordRight(users, input->first, input->second) ? kRight : kWrong;
  } catch (const std::exception& e) {
    openlog("webapid-login", 0, LOG_USER);
    kalo::Log(LOG_ERR, "%s", e.what());
    return kFailed;
  }
}
