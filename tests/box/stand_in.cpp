// Stands in for a node's programs, by the name that it is called by: "webapid" listens on the mesh
// port; "kalo-install" notes the word that it was given.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

int Listen() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int one = 1;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(8443);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* generic = reinterpret_cast<sockaddr*>(&address);  // NOLINT(*-reinterpret-cast)
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (bind(fd, generic, sizeof address) != 0 || listen(fd, 8) != 0) return 1;
  for (;;) pause();
}

}  // namespace

int main(int argc, char** argv) {
  if (std::filesystem::path(argv[0]).filename() == "webapid") return Listen();
  std::ofstream notes("/var/log/install-words", std::ios::app);
  for (int i = 1; i < argc; ++i) notes << argv[i] << "\n";
  return 0;
}
