// A form as the HTTP library hands it in: the first line is its content type, the rest its body.

#include <microhttpd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <optional>

#include "fuzz/fuzz_target.h"
#include "host/core/unique_fd.h"
#include "services/webapid/form_body.h"
#include "services/webapid/upload_store.h"

namespace kalo::webapid {
namespace {

namespace fs = std::filesystem;

constexpr const char* kUploads = "/tmp/fuzz-uploads";
constexpr std::size_t kFields = 4096;
constexpr std::uint64_t kFiles = 8192;
constexpr std::size_t kLongestType = 256;

// What stands in the uploads' folder belongs to a parameter, and nowhere else is anything made.
void CheckFiles(const BodyResult& result) {
  for (const std::string& name : result.parameters.getMemberNames()) {
    if (!name.ends_with("_file_tmp")) continue;  // any other may be a client's own
    const fs::path path = result.parameters[name].asString();
    fuzz::Require(path.lexically_normal() == path && path.parent_path().parent_path() == kUploads &&
                      fs::is_regular_file(path),
                  "a file lies in its request's folder");
  }
}

struct Exchange {
  const UploadStore& store;
  std::string body;
  bool served = false;
};

MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* /*path*/,
                     const char* /*method*/, const char* /*version*/, const char* /*data*/,
                     std::size_t* /*size*/, void** /*context*/) {
  auto& exchange = *static_cast<Exchange*>(self);
  exchange.served = true;
  std::optional<UploadFolder> folder;
  {
    FormBody form(connection, {kFields, kFiles, true}, exchange.store, folder);
    if (!form.IsReadable()) return MHD_NO;
    const std::string_view body = exchange.body;
    form.Feed(body.substr(0, body.size() / 2));
    form.Feed(body.substr(body.size() / 2));
    const BodyResult result = form.Finish();
    fuzz::Require(result.error != 0 || result.parameters.isObject(), "parameters are an object");
    if (result.error == 0) CheckFiles(result);
  }
  folder.reset();
  fuzz::Require(fs::is_empty(kUploads), "nothing stays behind");
  return MHD_NO;
}

// One request over a pair of sockets; its answer is nobody's business.
void Serve(const std::string& head, Exchange& exchange) {
  std::array<int, 2> pair{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair.data()) != 0) return;
  const UniqueFd client(pair[0]);
  MHD_Daemon* daemon = MHD_start_daemon(MHD_USE_NO_LISTEN_SOCKET, 0, nullptr, nullptr, &OnRequest,
                                        &exchange, MHD_OPTION_END);
  fuzz::Require(daemon != nullptr, "the library starts");
  const sockaddr address{AF_UNIX, {}};
  if (send(client.Get(), head.data(), head.size(), MSG_NOSIGNAL) > 0 &&
      MHD_add_connection(daemon, pair[1], &address, sizeof(address)) == MHD_YES) {
    for (int turn = 0; turn < 4 && !exchange.served; ++turn) MHD_run(daemon);
  } else {
    close(pair[1]);
  }
  MHD_stop_daemon(daemon);
}

}  // namespace
}  // namespace kalo::webapid

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::webapid;
  const std::string text = kalo::fuzz::TextOf(data, size);
  const std::size_t line = text.find('\n');
  if (line > kLongestType) return 0;  // or there is none
  const UploadStore store(kUploads);
  kalo::fuzz::Require(store.Prepare(), "there is a place for uploads");
  Exchange exchange{store, text.substr(line + 1)};
  Serve("POST / HTTP/1.1\r\nHost: r\r\nContent-Length: 1\r\nContent-Type: " + text.substr(0, line) +
            "\r\n\r\n",
        exchange);
  return 0;
}
