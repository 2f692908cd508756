// bench-httpd PORT CERTIFICATE KEY [bus]: one process of the same HTTP library, which answers the
// same JSON itself: as fast as it gets without sessions, workers and files. With "bus" it answers
// "status" and the "progress" of an upgrade, and makes their calls of the mesh service for each.
#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "bench/requests/answer.h"
#include "bench/requests/bus_calls.h"

namespace {

std::string Read(const char* path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Empty when the mesh service did not answer.
std::string AnswerTo(std::string_view path, bool calls_bus) {
  namespace bench = kalo::bench;
  if (!calls_bus) return path.ends_with("/loading") ? bench::LoadingAnswer() : bench::Answer();
  if (path.ends_with("/progress")) return bench::CallForUpgrade() ? bench::UpgradeAnswer() : "";
  return bench::CallForStatus() ? bench::StatusAnswer() : "";
}

MHD_Result OnRequest(void* calls_bus, MHD_Connection* connection, const char* path, const char*,
                     const char*, const char*, std::size_t* size, void** context) {
  static int seen = 0;
  if (*context == nullptr) {
    *context = &seen;
    return MHD_YES;
  }
  if (*size != 0) {
    *size = 0;
    return MHD_YES;
  }
  std::string text = AnswerTo(path, calls_bus != nullptr);
  if (text.empty()) return MHD_NO;
  MHD_Response* response =
      MHD_create_response_from_buffer(text.size(), text.data(), MHD_RESPMEM_MUST_COPY);
  MHD_add_response_header(response, "Content-Type", "application/json");
  const MHD_Result result = MHD_queue_response(connection, MHD_HTTP_OK, response);
  MHD_destroy_response(response);
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  bool bus = argc == 5;
  const std::string certificate = Read(argv[2]);
  const std::string key = Read(argv[3]);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(std::strtol(argv[1], nullptr, 10)));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  MHD_Daemon* daemon = MHD_start_daemon(
      MHD_USE_TLS | MHD_USE_EPOLL_INTERNAL_THREAD, 0, nullptr, nullptr, OnRequest,
      bus ? &bus : nullptr, MHD_OPTION_SOCK_ADDR, &address, MHD_OPTION_HTTPS_MEM_CERT,
      certificate.c_str(), MHD_OPTION_HTTPS_MEM_KEY, key.c_str(), MHD_OPTION_END);
  if (daemon == nullptr) return 1;
  while (true) pause();
}
