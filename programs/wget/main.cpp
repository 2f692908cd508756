// /usr/kalo/bin/wget: the program by which the router fetches a small document from outside the
// mesh. It takes five arguments, in this order, and nothing else.

#include <syslog.h>

#include <charconv>
#include <exception>
#include <iostream>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/core/log.h"
#include "programs/wget/fetch_to_file.h"

namespace {

constexpr std::string_view kTimeout = "--timeout=";
constexpr int kLongestTimeout = 600;

// @return the seconds of "--timeout=30".
std::optional<std::chrono::seconds> ReadTimeout(std::string_view word) {
  if (!word.starts_with(kTimeout)) return std::nullopt;
  word.remove_prefix(kTimeout.size());
  int seconds = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), seconds);
  if (error != std::errc() || end != word.data() + word.size()) return std::nullopt;
  if (seconds < 1 || seconds > kLongestTimeout) return std::nullopt;
  return std::chrono::seconds(seconds);
}

int Usage() {
  std::cerr
      << "usage: wget --timeout=SECONDS --tries=1 -O FILE URL\n"
         "Fetches URL (at most 1 MiB, within SECONDS) into a new FILE, which stays empty unless "
         "the\n"
         "whole answer came with status 200. Of an answer of the update feed only what the signed\n"
         "list has for this router is stored.\n"
         "Exit status: 0 done, 2 usage, 3 cannot write, 4 network, 5 certificate or signature,\n"
         "8 refused\n";
  return kalo::fetch::kUsage;
}

int Fail(int status, const std::string& error) {
  kalo::Log(LOG_ERR, "%s", error.c_str());
  std::cerr << "wget: " << error << "\n";
  return status;
}

int Run(std::span<char*> words) {
  const auto timeout = words.size() == 6 ? ReadTimeout(words[1]) : std::nullopt;
  if (!timeout || std::string_view(words[2]) != "--tries=1" || std::string_view(words[3]) != "-O") {
    return Usage();
  }
  kalo::HttpsLimits limits;
  limits.connect = *timeout;
  limits.stall = *timeout;
  limits.whole = *timeout;
  std::string error;
  const kalo::fetch::ExitStatus status =
      kalo::fetch::FetchToFile(words[5], words[4], limits, error);
  return status == kalo::fetch::kOk ? status : Fail(status, error);
}

}  // namespace

int main(int argc, char** argv) {
  openlog("wget", 0, LOG_DAEMON);
  try {
    return Run({argv, static_cast<std::size_t>(argc)});
  } catch (const std::exception& e) {
    return Fail(kalo::fetch::kNetwork, e.what());
  }
}
