// feedd: serves the maker's update feed, a folder written by kalo-patch publish.

#include <syslog.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "services/feedd/feed_server.h"

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr std::size_t kLargestPem = std::size_t{64} << 10;

std::string ReadPem(const std::string& path) {
  auto text = kalo::ReadFile(path, kLargestPem);
  if (!text) throw std::runtime_error(path + ": " + std::strerror(errno));
  return std::move(*text);
}

// "127.0.0.1:8080"
void ReadListen(const std::string& text, kalo::feedd::FeedServerOptions& options) {
  const std::size_t colon = text.rfind(':');
  const std::string port = colon != std::string::npos ? text.substr(colon + 1) : "";
  const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), options.port);
  if (port.empty() || error != std::errc() || end != port.data() + port.size()) {
    throw CLI::ValidationError("--listen", text + " is not ADDRESS:PORT");
  }
  options.address = text.substr(0, colon);
}

int Serve(const kalo::feedd::FeedServerOptions& options) {
  sigset_t ends;
  sigemptyset(&ends);
  for (const int signal : {SIGTERM, SIGINT}) sigaddset(&ends, signal);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);  // before the server's thread: it inherits this
  const kalo::feedd::FeedServer server(options);
  std::cout << server.Url() << std::endl;
  kalo::Log(LOG_NOTICE, "serving %s at %s", options.root.c_str(), server.Url().c_str());
  int signal = 0;
  sigwait(&ends, &signal);
  return 0;
}

int Run(int argc, char** argv) {
  CLI::App app("Serves an update feed's folder over HTTPS or HTTP.", "feedd");
  kalo::feedd::FeedServerOptions options;
  std::string listen;
  std::string certificate;
  std::string key;
  std::uint64_t rate_kib = 0;
  app.add_option("--root", options.root, "the feed's folder")->required();
  app.add_option("--listen", listen, "ADDRESS:PORT; port 0: any")->required();
  auto* cert_option = app.add_option("--cert", certificate, "file with the server's certificate");
  app.add_option("--key", key, "file with its key")->needs(cert_option);
  app.add_option("--rate", rate_kib, "KiB a second for each file, to try a slow line")
      ->check(CLI::Range(1, 1 << 30));
  app.footer(
      "Prints its address when it serves. Exit status: 0 ended by a signal, 1 failed, "
      "2 wrong usage.");
  try {
    app.parse(argc, argv);
    ReadListen(listen, options);
    if (certificate.empty() != key.empty()) throw CLI::RequiredError("--cert and --key");
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kUsage;
  }
  options.bytes_per_second = rate_kib * 1024;
  if (!certificate.empty()) {
    options.certificate = ReadPem(certificate);
    options.key = ReadPem(key);
  }
  return Serve(options);
}

}  // namespace

int main(int argc, char** argv) {
  openlog("feedd", 0, LOG_DAEMON);
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "%s", e.what());
    std::cerr << "feedd: " << e.what() << "\n";
    return kFailed;
  }
}
