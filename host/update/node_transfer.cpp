#include "host/update/node_transfer.h"

#include <arpa/inet.h>
#include <syslog.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <stdexcept>

#include "host/core/log.h"
#include "host/core/strict_json.h"
#include "host/update/mesh_credentials.h"
#include "platform/paths.h"

namespace kalo {
namespace {

constexpr const char* kMeshPort = "8443";
constexpr std::size_t kLargestAnswer = 1024UL * 1024;
constexpr long kSendBuffer = 512L * 1024;
constexpr std::chrono::milliseconds kConnectLimit{10000};
constexpr std::chrono::milliseconds kLook{200};
constexpr std::int64_t kSlowestBytesPerSecond = 1024;

[[noreturn]] void Unreachable(std::int32_t node, const std::string& cause) {
  throw NodeUnreachable("node " + std::to_string(node) + ": " + cause);
}

// Only a literal address: a name would be looked up outside the mesh.
std::string BracketedAddress(const NodeAddress& node) {
  std::array<unsigned char, sizeof(in6_addr)> bytes{};
  if (inet_pton(AF_INET, node.address.c_str(), bytes.data()) == 1) return node.address;
  if (inet_pton(AF_INET6, node.address.c_str(), bytes.data()) == 1) return "[" + node.address + "]";
  Unreachable(node.node_id, "\"" + node.address + "\" is no address");
}

std::string FieldText(const Json::Value& value) {
  return value.isString() ? value.asString() : WriteJson(value);
}

}  // namespace

NodeTransfer::NodeTransfer(CURL* curl, const NodeAddress& node, const NodeCall& call)
    : curl_(curl),
      node_id_(node.node_id),
      host_("node" + std::to_string(node.node_id) + ".mesh.internal") {
  const std::string entry = host_ + ":" + kMeshPort + ":" + BracketedAddress(node);
  resolve_.reset(Curl().slist_append(nullptr, entry.c_str()));
  Curl().easy_reset(curl_);
  SetTarget(call);
  SetTls();
}

NodeTransfer::~NodeTransfer() {
  // The handle lives on and must not remember anything of ours.
  Curl().easy_reset(curl_);
}

template <typename Value>
void NodeTransfer::Set(CURLoption option, Value value) {
  const CURLcode result = Curl().easy_setopt(curl_, option, value);
  if (result != CURLE_OK) Unreachable(node_id_, Curl().easy_strerror(result));
}

void NodeTransfer::SetTarget(const NodeCall& call) {
  const std::string url = "https://" + host_ + ":" + kMeshPort + "/webapi/" + call.api + "/" +
                          std::to_string(call.version) + "/" + call.method;
  Set(CURLOPT_URL, url.c_str());
  Set(CURLOPT_RESOLVE, resolve_.get());
  Set(CURLOPT_PROTOCOLS_STR, "https");
  Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  Set(CURLOPT_FOLLOWLOCATION, 0L);
  Set(CURLOPT_PROXY, "");
  Set(CURLOPT_NOSIGNAL, 1L);
  Set(CURLOPT_TCP_NODELAY, 1L);
  Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(kConnectLimit.count()));
  Set(CURLOPT_WRITEFUNCTION, &NodeTransfer::OnBody);
  Set(CURLOPT_WRITEDATA, this);
}

void NodeTransfer::SetTls() {
  Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  Set(CURLOPT_SSL_VERIFYPEER, 1L);
  Set(CURLOPT_SSL_VERIFYHOST, 2L);
  Set(CURLOPT_CAINFO, KALO::paths::kMeshAuthority);
  // Built in is the machine's folder of public authorities, none of which speaks for a node.
  Set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  Set(CURLOPT_SSLCERT, KALO::paths::kNodeCertificate);
  Set(CURLOPT_SSLKEY, KALO::paths::kNodeKey);
}

// "Expect: 100-continue" would cost a second wherever the server does not answer it.
void NodeTransfer::SetHeaders(std::initializer_list<const char*> headers) {
  for (const char* header : headers) {
    curl_slist* longer = Curl().slist_append(headers_.get(), header);
    if (longer == nullptr) throw std::bad_alloc();
    (void)headers_.release();
    headers_.reset(longer);
  }
  Set(CURLOPT_HTTPHEADER, headers_.get());
}

void NodeTransfer::SendJson(const Json::Value& params, std::chrono::milliseconds deadline) {
  Set(CURLOPT_TIMEOUT_MS, static_cast<long>(deadline.count()));
  Set(CURLOPT_COPYPOSTFIELDS, WriteJson(params).c_str());
  SetHeaders({"Content-Type: application/json", "Expect:"});
}

void NodeTransfer::SendForm(const Json::Value& params, const std::string& path,
                            const UploadLimits& limits) {
  Set(CURLOPT_TIMEOUT_MS, static_cast<long>(limits.whole.count()));
  Set(CURLOPT_UPLOAD_BUFFERSIZE, kSendBuffer);
  form_.reset(Curl().mime_init(curl_));
  if (!form_) throw std::bad_alloc();
  for (const std::string& name : params.getMemberNames()) {
    curl_mimepart* part = Curl().mime_addpart(form_.get());
    const std::string text = FieldText(params[name]);
    Curl().mime_name(part, name.c_str());
    Curl().mime_data(part, text.data(), text.size());
  }
  AddFile(path);
  Set(CURLOPT_MIMEPOST, form_.get());
  SetHeaders({"Expect:"});
  limits_ = limits;
  moved_at_ = std::chrono::steady_clock::now();
  Set(CURLOPT_NOPROGRESS, 0L);
  Set(CURLOPT_XFERINFOFUNCTION, &NodeTransfer::OnProgress);
  Set(CURLOPT_XFERINFODATA, this);
}

void NodeTransfer::AddFile(const std::string& path) {
  file_.emplace(path);
  note_.emplace("node-" + std::to_string(node_id_));
  const std::string name = std::filesystem::path(path).filename();
  curl_mimepart* part = Curl().mime_addpart(form_.get());
  Curl().mime_name(part, "patch_file");
  Curl().mime_filename(part, name.c_str());
  Curl().mime_data_cb(part, static_cast<curl_off_t>(file_->Size()), &NodeTransfer::OnFileRead,
                      &NodeTransfer::OnFileSeek, nullptr, this);
}

std::size_t NodeTransfer::OnFileRead(char* bytes, std::size_t size, std::size_t count, void* self) {
  const auto got = static_cast<NodeTransfer*>(self)->file_->Read({bytes, size * count});
  return got.value_or(CURL_READFUNC_ABORT);
}

int NodeTransfer::OnFileSeek(void* self, curl_off_t offset, int origin) {
  const bool to_begin = offset == 0 && origin == SEEK_SET;
  return to_begin && static_cast<NodeTransfer*>(self)->file_->Rewind() ? CURL_SEEKFUNC_OK
                                                                       : CURL_SEEKFUNC_CANTSEEK;
}

int NodeTransfer::OnProgress(void* self, curl_off_t /*down_total*/, curl_off_t /*down*/,
                             curl_off_t up_total, curl_off_t up) {
  auto* transfer = static_cast<NodeTransfer*>(self);
  transfer->note_->Moved(static_cast<std::uint64_t>(up), static_cast<std::uint64_t>(up_total));
  if (up_total > 0 && up >= up_total) return 0;
  return transfer->IsCancelled() || transfer->Stalls(up) ? 1 : 0;
}

// The library asks for each piece that it sends, and this may read a file: five times a second do.
bool NodeTransfer::IsCancelled() {
  const auto now = std::chrono::steady_clock::now();
  if (!limits_.is_cancelled || now < next_look_) return false;
  next_look_ = now + kLook;
  return limits_.is_cancelled();
}

// The library's own low-speed limit would also count the time in which the node checks what it has
// got, when nothing moves and nothing is wrong.
bool NodeTransfer::Stalls(curl_off_t sent) {
  const auto now = std::chrono::steady_clock::now();
  const std::int64_t enough = kSlowestBytesPerSecond * limits_.stall.count() / 1000;
  if (sent - moved_to_ >= enough) {
    moved_to_ = sent;
    moved_at_ = now;
  }
  return now - moved_at_ > limits_.stall;
}

std::size_t NodeTransfer::OnBody(char* bytes, std::size_t size, std::size_t count, void* self) {
  auto* transfer = static_cast<NodeTransfer*>(self);
  const std::size_t length = size * count;
  if (transfer->body_.size() + length > kLargestAnswer) {
    transfer->body_too_large_ = true;
    return 0;
  }
  transfer->body_.append(bytes, length);
  return length;
}

KALO::MESH::SDK::Response NodeTransfer::Answer(CURLcode result) const {
  if (body_too_large_) {
    Log(LOG_ERR, "node %d: its answer is larger than any envelope", node_id_);
    return {};
  }
  if (file_ && !file_->Trouble().empty()) throw std::runtime_error(file_->Trouble());
  if (result == CURLE_ABORTED_BY_CALLBACK) Unreachable(node_id_, "the upload was broken off");
  if (result != CURLE_OK) Unreachable(node_id_, Curl().easy_strerror(result));
  const std::optional<Json::Value> envelope = ParseStrictJson(body_);
  if (!envelope) {
    Log(LOG_ERR, "node %d: its answer is no JSON", node_id_);
    return {};
  }
  return KALO::MESH::SDK::Response::FromEnvelope(*envelope);
}

}  // namespace kalo
