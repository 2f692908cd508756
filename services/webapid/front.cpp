#include "services/webapid/front.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

#include "host/webapi/error_codes.h"
#include "services/webapid/form_body.h"
#include "services/webapid/json_body.h"
#include "services/webapid/worker_message.h"

namespace kalo::webapid {
namespace {

constexpr const char* kAuthApi = "KALO.Core.Auth";
constexpr const char* kFetchSite = "Sec-Fetch-Site";
constexpr const char* kEventStream = "text/event-stream";
constexpr std::size_t kBodyBeforeLogin = std::size_t{16} << 10;
constexpr std::size_t kBody = std::size_t{1} << 20;

bool IsAuth(const RowName& name, const char* method) {
  return name.api == kAuthApi && name.version == 1 && name.method == method;
}

bool HasQuery(const Request& request) {
  return MHD_get_connection_values(request.Connection(), MHD_GET_ARGUMENT_KIND, nullptr, nullptr) >
         0;
}

// The media type without its parameters, in small letters.
std::string MediaType(const Request& request) {
  std::string type = request.Header(MHD_HTTP_HEADER_CONTENT_TYPE);
  type.resize(std::min(type.find(';'), type.size()));
  while (type.ends_with(' ')) type.pop_back();
  for (char& c : type) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return type;
}

}  // namespace

void Front::Begin(Request& request, const std::string& method, const std::string& path) {
  // Only browsers can be misled by a name, and only the administration port is for browsers.
  if (request.Port() == PortKind::kAdmin &&
      !parts_.host_names.Contains(request.Header(MHD_HTTP_HEADER_HOST))) {
    return request.Answer(ErrorReply(webapi::kForeignHost));
  }
  const bool reads = method == MHD_HTTP_METHOD_GET || method == MHD_HTTP_METHOD_HEAD;
  if (reads && request.Port() == PortKind::kAdmin && !path.starts_with("/webapi/")) {
    return request.Answer(parts_.page.Get(path, request.Header(MHD_HTTP_HEADER_IF_NONE_MATCH)));
  }
  const int error =
      request.TellsItsEnd() ? Accept(request, method, path) : webapi::kMalformedRequest;
  if (error != 0) request.Answer(ErrorReply(error));
}

int Front::Accept(Request& request, const std::string& method, const std::string& path) {
  const std::optional<RowName> name = ParseRowPath(path);
  if (!name || method != MHD_HTTP_METHOD_POST) return webapi::kUnknownApi;
  if (IsFromForeignSite(request.Header(MHD_HTTP_HEADER_ORIGIN), request.Header(kFetchSite),
                        request.Header(MHD_HTTP_HEADER_HOST))) {
    return webapi::kForeignSite;
  }
  if (const int error = AcceptCaller(request, *name); error != 0) return error;
  // Parameters travel in the body alone, where all the checks are.
  if (HasQuery(request)) return webapi::kMalformedRequest;
  if (request.kind == RequestKind::kRow) {
    if (const int error = AcceptRow(request, *name); error != 0) return error;
  }
  return AcceptBody(request);
}

int Front::AcceptCaller(Request& request, const RowName& name) {
  if (request.Port() == PortKind::kMesh) {
    const std::optional<int> node = request.Client().NodeId();
    if (!node) return webapi::kNotAllowed;
    request.caller = MeshNode{*node};
    return 0;
  }
  if (request.Port() == PortKind::kLocal) {
    // The socket's mode says so already; a mode is easily changed.
    if (request.Client().PeerUser() != geteuid()) return webapi::kNotAllowed;
    request.caller = User{"root", {"administrators"}};
    return 0;
  }
  if (IsAuth(name, "login")) {
    request.kind = RequestKind::kLogin;
    return 0;
  }
  if (IsAuth(name, "logout")) request.kind = RequestKind::kLogout;
  return parts_.authentication.Identify(request);
}

int Front::AcceptRow(Request& request, const RowName& name) {
  request.row = parts_.rows.Find(name);
  if (request.row == nullptr) return webapi::kUnknownApi;
  return IsAllowed(*request.row, request.caller) ? 0 : webapi::kNotAllowed;
}

int Front::AcceptSize(Request& request, std::uint64_t limit) {
  request.receive_limit = limit;
  return request.ContentLength().value_or(0) > limit ? webapi::kBodyTooLarge : 0;
}

int Front::AcceptBody(Request& request) {
  const std::string type = MediaType(request);
  // Without a session nothing else keeps out a form of another site, which can send any other type.
  if (request.kind == RequestKind::kLogin && type != "application/json") {
    return webapi::kWrongContentType;
  }
  if (type.empty() || type == "application/json") {
    const std::size_t limit = request.kind == RequestKind::kLogin ? kBodyBeforeLogin : kBody;
    request.body = std::make_unique<JsonBody>(limit);
    return AcceptSize(request, limit);
  }
  const bool is_form = type == "multipart/form-data" || type == "application/x-www-form-urlencoded";
  if (request.kind != RequestKind::kRow || !is_form) return webapi::kMalformedRequest;
  return AcceptForm(request);
}

int Front::AcceptForm(Request& request) {
  const bool files = request.row->files;
  const std::uint64_t file_bytes = files ? parts_.configuration.upload_bytes : 0;
  auto body =
      std::make_unique<FormBody>(request.Connection(), FormBody::Limits{kBody, file_bytes, files},
                                 parts_.uploads, request.uploads);
  if (!body->IsReadable()) return webapi::kMalformedRequest;
  request.body = std::move(body);
  if (files) request.Client().SetDeadline(parts_.configuration.upload_time);
  return AcceptSize(request, kBody + file_bytes);
}

void Front::Complete(Request& request) {
  if (closed_) return request.Answer(ErrorReply(webapi::kServerBusy));
  const BodyResult body = request.body->Finish();
  if (body.error != 0) return request.Answer(ErrorReply(body.error));
  switch (request.kind) {
    case RequestKind::kLogin:
      return parts_.authentication.Login(request, body.parameters);
    case RequestKind::kLogout:
      return parts_.authentication.Logout(request);
    case RequestKind::kRow:
      return Dispatch(request, body.parameters);
  }
}

void Front::Dispatch(Request& request, const Json::Value& parameters) {
  const webapi::RowDescription& row = *request.row;
  if (row.stream && request.Header(MHD_HTTP_HEADER_ACCEPT) == kEventStream) return Listen(request);
  const bool mesh = request.Port() == PortKind::kMesh;
  WorkerPool& pool = mesh ? parts_.mesh_workers : parts_.admin_workers;
  pool.Submit({WorkerMessage(row, parameters), &row, [&request](int code, std::string envelope) {
                 request.Answer(code == 0 ? EnvelopeReply(std::move(envelope)) : ErrorReply(code));
               }});
}

// Listening is no activity: a page that nobody looks at any more does not stay signed in by it.
void Front::Listen(Request& request) {
  if (request.Port() != PortKind::kAdmin) return request.Answer(ErrorReply(webapi::kUnknownApi));
  parts_.events.Open(request,
                     [this, &row = *request.row, session = Authentication::SessionOf(request)] {
                       return IsAllowed(row, parts_.authentication.CallerOf(session));
                     });
}

}  // namespace kalo::webapid
