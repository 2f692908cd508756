#pragma once

#include <curl/curl.h>
#include <json/value.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kalo::test {

/// What came back. Status 0: no answer at all.
struct HttpAnswer {
  long status = 0;
  std::string body;
  std::map<std::string, std::string> headers;  ///< names in small letters

  /// @return the body as JSON; null when it is none.
  [[nodiscard]] Json::Value Envelope() const;
  /// @return the error's code in the envelope; 0 for a success, -1 without an envelope.
  [[nodiscard]] int Code() const;
  [[nodiscard]] Json::Value Data() const;
};

/// One part of a multipart form.
struct FormPart {
  std::string name;
  std::string data;
  std::string file_name;  ///< empty: a field
};

/// A client of one server, with what it learned when it signed in.
class HttpClient {
 public:
  /// @param host name in the server's certificate; the address is 127.0.0.1
  /// @param authority PEM file
  HttpClient(std::string host, int port, std::string authority);

  /// Signs in with each request from now on.
  void SetSession(std::string cookie, std::string token);
  /// How long an answer may take; 15 seconds when nothing is said.
  void SetPatience(std::chrono::seconds patience) { patience_ = patience; }
  /// PEM files of a client certificate.
  void SetCertificate(std::string certificate, std::string key);

  /// Sends this line with each request from now on.
  void SetHeader(std::string header) { header_ = std::move(header); }

  [[nodiscard]] HttpAnswer Get(const std::string& path);
  /// Posts to /webapi/<row>.
  [[nodiscard]] HttpAnswer Post(const std::string& row, const std::string& body = "{}",
                                const std::string& type = "application/json");
  [[nodiscard]] HttpAnswer PostForm(const std::string& row, const std::vector<FormPart>& parts);
  /// Listens to a row's events until the server ends them.
  /// @param go_on gets all that came so far, whenever something came; false ends it
  [[nodiscard]] HttpAnswer Listen(const std::string& row,
                                  const std::function<bool(const std::string&)>& go_on);
  /// Signs in and keeps cookie and token.
  [[nodiscard]] HttpAnswer Login(const std::string& user, const std::string& password);

  std::string cookie;
  std::string token;

 private:
  struct Cleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  };
  using Handle = std::unique_ptr<CURL, Cleanup>;
  [[nodiscard]] Handle Prepare(const std::string& path) const;
  [[nodiscard]] HttpAnswer Perform(const Handle& handle,
                                   const std::vector<std::string>& headers) const;
  void PerformInto(HttpAnswer& answer, const Handle& handle,
                   std::vector<std::string> headers) const;

  std::string host_;
  int port_;
  std::string authority_;
  std::string certificate_;
  std::string key_;
  std::string header_;
  std::chrono::seconds patience_{15};
};

}  // namespace kalo::test
