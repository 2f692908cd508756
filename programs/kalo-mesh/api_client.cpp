#include "programs/kalo-mesh/api_client.h"

#include <curl/curl.h>

#include <filesystem>
#include <thread>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/failure.h"

namespace kalo::cli {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxAnswer = 4U << 20U;
constexpr long kUploadBuffer = 512L * 1024;
constexpr auto kRetryPause = 200ms;
constexpr const char* kCookieName = "kalo_session";

struct CurlDeleter {
  void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  void operator()(curl_mime* mime) const { curl_mime_free(mime); }
};

std::size_t Append(char* data, std::size_t size, std::size_t count, void* target) {
  auto& text = *static_cast<std::string*>(target);
  if (text.size() + size * count > kMaxAnswer) return 0;
  text.append(data, size * count);
  return size * count;
}

int OnProgress(void* target, curl_off_t /*all*/, curl_off_t /*received*/, curl_off_t total,
               curl_off_t sent) {
  const auto& progress = *static_cast<const SendProgress*>(target);
  if (total > 0) progress(static_cast<std::uint64_t>(sent), static_cast<std::uint64_t>(total));
  return 0;
}

Json::Value DataOf(const std::string& body, long status) {
  const auto root = ParseStrictJson(body);
  if (!root || !root->isObject() || !(*root)["success"].isBool()) {
    throw Failure(kFailed, "the server's answer cannot be read (HTTP status " +
                               std::to_string(status) + "); is it a mesh router?");
  }
  if ((*root)["success"].asBool()) return (*root)["data"];
  const Json::Value& error = (*root)["error"];
  const bool numbered = error.isObject() && error["code"].isInt();
  const bool worded = error.isObject() && error["message"].isString();
  throw Refusal(numbered ? error["code"].asInt() : 0,
                worded ? error["message"].asString() : "no reason given");
}

}  // namespace

// One request, from its options to its answer.
class ApiClient::Transfer {
 public:
  Transfer(const Session& session, const std::string& api, int version, const std::string& method)
      : curl_(curl_easy_init()) {
    if (curl_ == nullptr) throw Failure(kFailed, "the HTTP library cannot be used");
    SetServer(session, "/webapi/" + api + "/" + std::to_string(version) + "/" + method);
    Set(CURLOPT_PROXY, "");
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_WRITEFUNCTION, Append);
    Set(CURLOPT_WRITEDATA, &body_);
    Set(CURLOPT_COOKIEFILE, "");
    if (!session.cookie.empty()) {
      Set(CURLOPT_COOKIE, (std::string(kCookieName) + "=" + session.cookie).c_str());
    }
    if (!session.token.empty()) AddHeader("X-KALO-Token: " + session.token);
    AddHeader("Expect:");
  }

  void SetJson(const Json::Value& params, std::chrono::seconds patience) {
    Set(CURLOPT_TIMEOUT, static_cast<long>(patience.count()));
    AddHeader("Content-Type: application/json");
    Set(CURLOPT_COPYPOSTFIELDS, WriteJson(params).c_str());
  }

  void SetFiles(const std::vector<FilePart>& parts, const SendProgress& progress) {
    mime_.reset(curl_mime_init(curl_.get()));
    for (const FilePart& part : parts) {
      curl_mimepart* piece = curl_mime_addpart(mime_.get());
      curl_mime_name(piece, part.name.c_str());
      if (curl_mime_filedata(piece, part.path.c_str()) != CURLE_OK) {
        throw Failure(kFailed, "cannot read " + part.path);
      }
    }
    Set(CURLOPT_MIMEPOST, mime_.get());
    Set(CURLOPT_TIMEOUT, static_cast<long>(ApiClient::kLongPatience.count()));
    Set(CURLOPT_UPLOAD_BUFFERSIZE, kUploadBuffer);
    if (!progress) return;
    Set(CURLOPT_NOPROGRESS, 0L);
    Set(CURLOPT_XFERINFOFUNCTION, OnProgress);
    Set(CURLOPT_XFERINFODATA, &progress);
  }

  CURLcode Perform() {
    body_.clear();
    Set(CURLOPT_HTTPHEADER, headers_.get());
    return curl_easy_perform(curl_.get());
  }

  [[nodiscard]] const std::string& Body() const { return body_; }

  [[nodiscard]] long Status() const {
    long status = 0;
    curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &status);
    return status;
  }

  // The session cookie that the answer set; lines of the cookie list are seven fields apart by
  // tabs.
  [[nodiscard]] std::string Cookie() const {
    curl_slist* cookies = nullptr;
    curl_easy_getinfo(curl_.get(), CURLINFO_COOKIELIST, &cookies);
    const std::unique_ptr<curl_slist, CurlDeleter> owner(cookies);
    const std::string before = std::string("\t") + kCookieName + "\t";
    for (const curl_slist* entry = cookies; entry != nullptr; entry = entry->next) {
      const std::string line = entry->data;
      const std::size_t at = line.find(before);
      if (at != std::string::npos) return line.substr(at + before.size());
    }
    return "";
  }

 private:
  template <class Value>
  void Set(CURLoption option, Value value) {
    if (curl_easy_setopt(curl_.get(), option, value) != CURLE_OK) {
      throw Failure(kFailed, "the HTTP library refuses an option");
    }
  }

  void SetServer(const Session& session, const std::string& path) {
    if (!session.server.starts_with(kUnixServer)) {
      Set(CURLOPT_URL, (session.server + path).c_str());
      Set(CURLOPT_CAINFO, session.ca_file.c_str());
      // Nobody else vouches for the router: the machine's public authorities are built in.
      Set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
      Set(CURLOPT_PROTOCOLS_STR, "https");
      return;
    }
    Set(CURLOPT_UNIX_SOCKET_PATH, session.server.c_str() + kUnixServer.size());
    Set(CURLOPT_URL, ("http://localhost" + path).c_str());
    Set(CURLOPT_PROTOCOLS_STR, "http");
  }

  void AddHeader(const std::string& line) {
    headers_.reset(curl_slist_append(headers_.release(), line.c_str()));
  }

  std::unique_ptr<CURL, CurlDeleter> curl_;
  std::unique_ptr<curl_slist, CurlDeleter> headers_;
  std::unique_ptr<curl_mime, CurlDeleter> mime_;
  std::string body_;
};

ApiClient::ApiClient(Session session, std::chrono::seconds connect_deadline)
    : session_(std::move(session)), connect_deadline_(connect_deadline) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
}

ApiClient::~ApiClient() {
  curl_global_cleanup();
}

// Only a connection that never came about is tried again: anything later may have had its effect.
Json::Value ApiClient::Finish(Transfer& transfer) {
  const auto end = Clock::now() + connect_deadline_;
  CURLcode result = transfer.Perform();
  while (result == CURLE_COULDNT_CONNECT && Clock::now() < end) {
    std::this_thread::sleep_for(kRetryPause);
    result = transfer.Perform();
  }
  if (result == CURLE_OK) return DataOf(transfer.Body(), transfer.Status());
  std::string message = "cannot reach " + session_.server + ": " + curl_easy_strerror(result);
  if (result == CURLE_PEER_FAILED_VERIFICATION) {
    message += "\n  Its certificate does not come from the authority in " + session_.ca_file;
  } else if (result == CURLE_SSL_CACERT_BADFILE) {
    message += "\n  The authority's file " + session_.ca_file + " cannot be read";
  }
  throw Failure(kNotReachable, message);
}

Json::Value ApiClient::Call(const std::string& api, int version, const std::string& method,
                            const Json::Value& params, std::chrono::seconds patience) {
  Transfer transfer(session_, api, version, method);
  transfer.SetJson(params, patience);
  return Finish(transfer);
}

Json::Value ApiClient::Upload(const std::string& api, int version, const std::string& method,
                              const std::vector<FilePart>& parts, const SendProgress& progress) {
  for (const FilePart& part : parts) {
    if (!std::filesystem::is_regular_file(part.path)) {
      throw Failure(kFailed, "no such file: " + part.path);
    }
  }
  Transfer transfer(session_, api, version, method);
  transfer.SetFiles(parts, progress);
  return Finish(transfer);
}

void ApiClient::Login(const std::string& user, const std::string& password) {
  Json::Value params(Json::objectValue);
  params["user"] = user;
  params["password"] = password;
  Transfer transfer(session_, "KALO.Core.Auth", 1, "login");
  transfer.SetJson(params, kCallPatience);
  const Json::Value data = Finish(transfer);
  session_.cookie = transfer.Cookie();
  if (session_.cookie.empty() || !data.isObject() || !data["token"].isString()) {
    throw Failure(kFailed, "the server signed us in without a session");
  }
  session_.token = data["token"].asString();
}

}  // namespace kalo::cli
