// bench-fastcgi SOCKET: what a web server usually does for such a page: four processes behind
// nginx, each building the same answer with the same library as the module's "progress" of a
// download does when there is none; for ".../loading" when there is one. A request for ".../stuck"
// is answered after a second.
#include <fcgiapp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "bench/requests/answer.h"

namespace {

constexpr int kProcesses = 4;

std::string AnswerTo(std::string_view path) {
  if (path.ends_with("/loading")) return kalo::bench::LoadingAnswer();
  if (!path.ends_with("/stuck")) return kalo::bench::Answer();
  sleep(1);
  return kalo::bench::StuckAnswer();
}

int Serve(int listening) {
  FCGX_Request request;
  if (FCGX_InitRequest(&request, listening, 0) != 0) return 1;
  while (FCGX_Accept_r(&request) >= 0) {
    const char* path = FCGX_GetParam("SCRIPT_NAME", request.envp);
    const std::string text = "Content-Type: application/json\r\nCache-Control: no-store\r\n\r\n" +
                             AnswerTo(path != nullptr ? path : "");
    FCGX_PutStr(text.data(), static_cast<int>(text.size()), request.out);
    FCGX_Finish_r(&request);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || FCGX_Init() != 0) return 2;
  const int listening = FCGX_OpenSocket(argv[1], 128);
  if (listening < 0) return 1;
  for (int i = 1; i < kProcesses; ++i) {
    if (fork() == 0) return Serve(listening);
  }
  return Serve(listening);
}
