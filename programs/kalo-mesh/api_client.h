#pragma once

#include <json/value.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "programs/kalo-mesh/session_file.h"

namespace kalo::cli {

/// One file of an upload: the form's part and the file on the disk.
struct FilePart {
  std::string name;
  std::string path;
};

/// Told how much of an upload is sent.
using SendProgress = std::function<void(std::uint64_t sent, std::uint64_t total)>;

/// Calls the web API of the main router. Certificates are always checked against the session's
/// authority; no proxy, no redirect. A refused connection is tried again until the deadline.
class ApiClient {
 public:
  static constexpr std::chrono::seconds kCallPatience{20};
  /// For calls that ask the world outside or every node.
  static constexpr std::chrono::seconds kLongPatience{10800};

  ApiClient(Session session, std::chrono::seconds connect_deadline);
  ApiClient(const ApiClient&) = delete;
  ApiClient& operator=(const ApiClient&) = delete;
  ~ApiClient();

  /// @return the answer's data.
  /// @throws Refusal when the server refuses; Failure (kNotReachable) when no answer comes.
  /// @param patience how long the answer may take
  Json::Value Call(const std::string& api, int version, const std::string& method,
                   const Json::Value& params, std::chrono::seconds patience = kCallPatience);

  /// Sends files as parts of a form.
  /// @throws as Call; Failure (kFailed) when a file cannot be read.
  Json::Value Upload(const std::string& api, int version, const std::string& method,
                     const std::vector<FilePart>& parts, const SendProgress& progress);

  /// Signs in; the session then holds cookie and token.
  void Login(const std::string& user, const std::string& password);

  [[nodiscard]] const Session& CurrentSession() const { return session_; }

 private:
  class Transfer;
  Json::Value Finish(Transfer& transfer);

  Session session_;
  std::chrono::seconds connect_deadline_;
};

}  // namespace kalo::cli
