#include "tests/host/update/test_node.h"

#include <arpa/inet.h>
#include <gnutls/gnutls.h>
#include <netinet/in.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <string_view>

namespace kalo::test {
namespace {

constexpr std::uint16_t kMeshPort = 8443;

MHD_Result TakeHeader(void* headers, MHD_ValueKind /*kind*/, const char* name, const char* value) {
  std::string lower = name;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  (*static_cast<std::map<std::string, std::string>*>(headers))[lower] = value;
  return MHD_YES;
}

bool HasCertificate(MHD_Connection* connection) {
  const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_GNUTLS_SESSION);
  unsigned int status = 1;
  return info != nullptr &&
         gnutls_certificate_verify_peers2(static_cast<gnutls_session_t>(info->tls_session),
                                          &status) == GNUTLS_E_SUCCESS &&
         status == 0;
}

// Sends a little, then breaks off.
ssize_t HalfBody(void* /*state*/, std::uint64_t position, char* buffer, std::size_t /*room*/) {
  if (position > 0) return MHD_CONTENT_READER_END_WITH_ERROR;
  constexpr std::string_view kBeginning = "{\"success\":";
  std::copy(kBeginning.begin(), kBeginning.end(), buffer);
  return static_cast<ssize_t>(kBeginning.size());
}

}  // namespace

TestNode::TestNode(Options options) : options_(std::move(options)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(kMeshPort);
  inet_pton(AF_INET, options_.address.c_str(), &address.sin_addr);
  daemon_ = MHD_start_daemon(
      MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_TLS, kMeshPort,
      nullptr, nullptr, &TestNode::OnRequest, this, MHD_OPTION_SOCK_ADDR, &address,
      MHD_OPTION_HTTPS_MEM_KEY, options_.identity.key.c_str(), MHD_OPTION_HTTPS_MEM_CERT,
      options_.identity.certificate.c_str(), MHD_OPTION_HTTPS_MEM_TRUST, options_.authority.c_str(),
      MHD_OPTION_END);
  if (daemon_ == nullptr) throw std::runtime_error("the test node cannot listen");
}

TestNode::~TestNode() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  wake_.notify_all();
  MHD_stop_daemon(daemon_);
}

TestNode::Request TestNode::LastRequest() const {
  const std::lock_guard lock(mutex_);
  return request_;
}

int TestNode::Requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

MHD_Result TestNode::OnRequest(void* self, MHD_Connection* connection, const char* url,
                               const char* method, const char* /*version*/, const char* bytes,
                               std::size_t* count, void** state) {
  auto* node = static_cast<TestNode*>(self);
  if (*state == nullptr) {
    *state = node;
    return node->Begin(connection, url, method);
  }
  if (*count == 0) return node->Answer(connection);
  if (node->options_.behaviour == Behaviour::kTakesNothing) {
    node->WaitForEnd();
    return MHD_NO;
  }
  const std::lock_guard lock(node->mutex_);
  node->request_.body.append(bytes, *count);
  *count = 0;
  return MHD_YES;
}

MHD_Result TestNode::Begin(MHD_Connection* connection, const char* url, const char* method) {
  const std::lock_guard lock(mutex_);
  ++requests_;
  request_ = {};
  request_.method = method;
  request_.path = url;
  request_.has_client_certificate = HasCertificate(connection);
  MHD_get_connection_values(connection, MHD_HEADER_KIND, &TakeHeader, &request_.headers);
  return MHD_YES;
}

void TestNode::WaitForEnd() {
  std::unique_lock lock(mutex_);
  wake_.wait(lock, [this] { return ending_; });
}

MHD_Result TestNode::Answer(MHD_Connection* connection) {
  if (options_.behaviour == Behaviour::kNoAnswer) WaitForEnd();
  if (options_.behaviour == Behaviour::kSlowAnswer) {
    std::unique_lock lock(mutex_);
    wake_.wait_for(lock, options_.pause, [this] { return ending_; });
  }
  MHD_Response* response =
      options_.behaviour == Behaviour::kHalfAnswer
          ? MHD_create_response_from_callback(100, 512, &HalfBody, nullptr, nullptr)
          : MHD_create_response_from_buffer(options_.answer.size(), options_.answer.data(),
                                            MHD_RESPMEM_MUST_COPY);
  if (!options_.location.empty()) {
    MHD_add_response_header(response, "Location", options_.location.c_str());
  }
  const MHD_Result result = MHD_queue_response(connection, options_.status, response);
  MHD_destroy_response(response);
  return result;
}

}  // namespace kalo::test
