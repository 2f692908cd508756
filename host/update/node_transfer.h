#pragma once

#include <curl/curl.h>
#include <json/value.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "host/update/curl_handle.h"
#include "host/update/node_client.h"
#include "host/update/transfer_note.h"
#include "host/update/upload_file.h"
#include "platform/update/response.h"

namespace kalo {

/// What is called on a node.
struct NodeCall {
  std::string api;
  int version = 1;
  std::string method;
};

/// One call of one node's web API: what goes out, what comes back. The transfer itself is run by
/// who owns the handle, with curl_easy_perform or a multi handle. Methods throw NodeUnreachable
/// when no transfer can be made of the address.
class NodeTransfer {
 public:
  /// @param curl stays the caller's, outlives this object and is set up anew by it
  NodeTransfer(CURL* curl, const NodeAddress& node, const NodeCall& call);
  NodeTransfer(const NodeTransfer&) = delete;
  NodeTransfer& operator=(const NodeTransfer&) = delete;
  ~NodeTransfer();

  /// The call has these parameters, a JSON object, and ends by the deadline.
  void SendJson(const Json::Value& params, std::chrono::milliseconds deadline);

  /// The call is a form: the parameters and one file, sent from the disk.
  /// @throws std::runtime_error when the file cannot be read.
  void SendForm(const Json::Value& params, const std::string& path, const UploadLimits& limits);

  [[nodiscard]] CURL* Handle() const { return curl_; }

  /// What came back, when the transfer has ended.
  /// @throws NodeUnreachable; std::runtime_error when the file could not be sent for what it is.
  [[nodiscard]] KALO::MESH::SDK::Response Answer(CURLcode result) const;

 private:
  struct ListDeleter {
    void operator()(curl_slist* list) const { Curl().slist_free_all(list); }
  };
  struct MimeDeleter {
    void operator()(curl_mime* form) const { Curl().mime_free(form); }
  };
  using List = std::unique_ptr<curl_slist, ListDeleter>;

  template <typename Value>
  void Set(CURLoption option, Value value);
  void SetTls();
  void SetTarget(const NodeCall& call);
  void SetHeaders(std::initializer_list<const char*> headers);
  void AddFile(const std::string& path);
  static std::size_t OnBody(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t OnFileRead(char* bytes, std::size_t size, std::size_t count, void* self);
  static int OnFileSeek(void* self, curl_off_t offset, int origin);
  static int OnProgress(void* self, curl_off_t down_total, curl_off_t down, curl_off_t up_total,
                        curl_off_t up);
  [[nodiscard]] bool Stalls(curl_off_t sent);
  [[nodiscard]] bool IsCancelled();

  CURL* curl_;
  std::int32_t node_id_;
  std::string host_;
  List resolve_;
  List headers_;
  std::unique_ptr<curl_mime, MimeDeleter> form_;
  std::optional<UploadFile> file_;
  std::optional<TransferNote> note_;
  UploadLimits limits_;
  std::chrono::steady_clock::time_point moved_at_;
  std::chrono::steady_clock::time_point next_look_;
  curl_off_t moved_to_ = 0;
  std::string body_;
  bool body_too_large_ = false;
};

}  // namespace kalo
