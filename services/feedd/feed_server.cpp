#include "services/feedd/feed_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <utility>
#include <vector>

#include "host/core/log.h"
#include "services/feedd/byte_range.h"
#include "services/feedd/feed_file.h"
#include "services/feedd/feed_path.h"
#include "services/feedd/slow_body.h"

namespace kalo::feedd {
namespace {

constexpr unsigned kConnections = 1000;
constexpr unsigned kIdleSeconds = 30;

struct ResponseEnd {
  void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
};
using Response = std::unique_ptr<MHD_Response, ResponseEnd>;
using Header = std::pair<const char*, std::string>;

std::string HeaderOf(MHD_Connection* connection, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value != nullptr ? value : "";
}

MHD_Result Send(MHD_Connection* connection, unsigned status, const Response& response,
                std::initializer_list<Header> headers) {
  if (!response) return MHD_NO;
  for (const auto& [name, value] : headers) {
    MHD_add_response_header(response.get(), name, value.c_str());
  }
  return MHD_queue_response(connection, status, response.get());
}

MHD_Result SendNothing(MHD_Connection* connection, unsigned status,
                       std::initializer_list<Header> headers = {}) {
  const Response response(MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT));
  return Send(connection, status, response, headers);
}

// The part of a file that is asked for. If-Range: only when the file is still the one that the
// client has a part of.
ByteRange RangeOf(MHD_Connection* connection, const FeedFile& file) {
  const std::string range = HeaderOf(connection, MHD_HTTP_HEADER_RANGE);
  const std::string known = HeaderOf(connection, MHD_HTTP_HEADER_IF_RANGE);
  const bool stale = !known.empty() && known != file.ETag() && known != file.LastModified();
  return ParseByteRange(stale ? "" : range, file.size);
}

Response BodyOf(FeedFile& file, const ByteRange& range, std::uint64_t bytes_per_second) {
  if (bytes_per_second > 0) {
    return Response(SlowResponse(std::move(file.fd), range.first, range.length, bytes_per_second));
  }
  Response response(
      MHD_create_response_from_fd_at_offset64(range.length, file.fd.Get(), range.first));
  if (response) (void)file.fd.Release();  // the response closes it
  return response;
}

MHD_Result SendFile(MHD_Connection* connection, const std::string& path, FeedFile file,
                    std::uint64_t bytes_per_second) {
  const std::string type =
      path.ends_with(".json") ? "application/json" : "application/octet-stream";
  const std::string tag = file.ETag();
  const std::string modified = file.LastModified();
  if (HeaderOf(connection, MHD_HTTP_HEADER_IF_NONE_MATCH) == tag) {
    return SendNothing(connection, MHD_HTTP_NOT_MODIFIED,
                       {{MHD_HTTP_HEADER_ETAG, tag}, {MHD_HTTP_HEADER_LAST_MODIFIED, modified}});
  }
  const ByteRange range = RangeOf(connection, file);
  const std::string size = std::to_string(file.size);
  if (range.kind == ByteRange::Kind::kUnsatisfiable) {
    return SendNothing(connection, MHD_HTTP_RANGE_NOT_SATISFIABLE,
                       {{MHD_HTTP_HEADER_CONTENT_RANGE, "bytes */" + size}});
  }
  const Response response = BodyOf(file, range, bytes_per_second);
  if (range.kind == ByteRange::Kind::kWhole) {
    return Send(connection, MHD_HTTP_OK, response,
                {{MHD_HTTP_HEADER_CONTENT_TYPE, type},
                 {MHD_HTTP_HEADER_ETAG, tag},
                 {MHD_HTTP_HEADER_LAST_MODIFIED, modified},
                 {MHD_HTTP_HEADER_ACCEPT_RANGES, "bytes"}});
  }
  return Send(connection, MHD_HTTP_PARTIAL_CONTENT, response,
              {{MHD_HTTP_HEADER_CONTENT_TYPE, type},
               {MHD_HTTP_HEADER_ETAG, tag},
               {MHD_HTTP_HEADER_LAST_MODIFIED, modified},
               {MHD_HTTP_HEADER_CONTENT_RANGE, "bytes " + std::to_string(range.first) + "-" +
                                                   std::to_string(range.first + range.length - 1) +
                                                   "/" + size}});
}

sockaddr_in AddressOf(const FeedServerOptions& options) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(options.port);
  if (inet_pton(AF_INET, options.address.c_str(), &address.sin_addr) != 1) {
    throw std::runtime_error(options.address + " is no numeric address");
  }
  return address;
}

MHD_OptionItem Option(MHD_OPTION option, std::intptr_t value, const void* pointer = nullptr) {
  return {option, value, const_cast<void*>(pointer)};
}

}  // namespace

FeedServer::FeedServer(const FeedServerOptions& options)
    : root_(::open(options.root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)),
      bytes_per_second_(options.bytes_per_second) {
  if (!root_) throw std::runtime_error(options.root + ": " + std::strerror(errno));
  const bool tls = !options.certificate.empty();
  const sockaddr_in address = AddressOf(options);
  std::vector<MHD_OptionItem> items = {
      Option(MHD_OPTION_SOCK_ADDR, 0, &address),
      Option(MHD_OPTION_CONNECTION_LIMIT, kConnections),
      Option(MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds),
  };
  if (tls) {
    items.push_back(Option(MHD_OPTION_HTTPS_MEM_CERT, 0, options.certificate.c_str()));
    items.push_back(Option(MHD_OPTION_HTTPS_MEM_KEY, 0, options.key.c_str()));
  }
  items.push_back(Option(MHD_OPTION_END, 0));
  unsigned flags = bytes_per_second_ > 0
                       ? MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD
                       : MHD_USE_EPOLL_INTERNAL_THREAD;
  if (tls) flags |= MHD_USE_TLS;
  daemon_.reset(MHD_start_daemon(flags, 0, nullptr, nullptr, &OnRequest, this, MHD_OPTION_ARRAY,
                                 items.data(), MHD_OPTION_END));
  if (!daemon_) {
    throw std::runtime_error("cannot listen on " + options.address + ":" +
                             std::to_string(options.port) + ", or certificate and key are bad");
  }
  const MHD_DaemonInfo* info = MHD_get_daemon_info(daemon_.get(), MHD_DAEMON_INFO_BIND_PORT);
  const std::uint16_t port = info != nullptr ? info->port : options.port;
  url_ = (tls ? "https://" : "http://") + options.address + ":" + std::to_string(port);
}

// Called from C, so nothing may be thrown through.
MHD_Result FeedServer::OnRequest(void* self, MHD_Connection* connection, const char* path,
                                 const char* method, const char* /*version*/, const char* /*data*/,
                                 std::size_t* size, void** context) {
  // The first call has the headers only: an answer then would break a connection that still sends.
  if (*context == nullptr) {
    *context = self;
    return MHD_YES;
  }
  if (*size > 0) {
    *size = 0;  // nobody sends a body with what is answered here
    return MHD_YES;
  }
  try {
    return static_cast<const FeedServer*>(self)->Answer(connection, path, method);
  } catch (const std::exception& e) {
    Log(LOG_ERR, "a request cannot be served: %s", e.what());
    return MHD_NO;
  }
}

MHD_Result FeedServer::Answer(MHD_Connection* connection, const std::string& path,
                              const std::string& method) const {
  Log(LOG_INFO, "%s %s", method.c_str(), path.c_str());
  if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
    return SendNothing(connection, MHD_HTTP_METHOD_NOT_ALLOWED,
                       {{MHD_HTTP_HEADER_ALLOW, "GET, HEAD"}});
  }
  const auto query = [connection](const char* key) -> std::optional<std::string> {
    const char* value = MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, key);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
  };
  std::optional<std::string> file_path = FeedPath(path, query);
  if (!file_path) return SendNothing(connection, MHD_HTTP_NOT_FOUND);
  std::optional<FeedFile> file = FeedFile::Open(root_.Get(), *file_path);
  if (!file && IsVersionTwo(path)) {
    file_path = kEmptyDocument;
    file = FeedFile::Open(root_.Get(), *file_path);
  }
  if (!file) return SendNothing(connection, MHD_HTTP_NOT_FOUND);
  return SendFile(connection, *file_path, std::move(*file), bytes_per_second_);
}

}  // namespace kalo::feedd
