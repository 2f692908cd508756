#include "tests/support/http_client.h"

#include <algorithm>
#include <cctype>

#include "host/core/strict_json.h"

namespace kalo::test {
namespace {

struct FreeList {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using List = std::unique_ptr<curl_slist, FreeList>;

void Add(List& list, const std::string& text) {
  curl_slist* longer = curl_slist_append(list.get(), text.c_str());
  (void)list.release();
  list.reset(longer);
}

std::size_t OnBody(const char* data, std::size_t one, std::size_t count, void* body) {
  static_cast<std::string*>(body)->append(data, one * count);
  return one * count;
}

std::size_t OnHeader(const char* data, std::size_t one, std::size_t count, void* headers) {
  const std::string line(data, one * count);
  const std::size_t colon = line.find(": ");
  if (colon != std::string::npos) {
    std::string name = line.substr(0, colon);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const std::string value = line.substr(colon + 2, line.find_last_not_of("\r\n") - colon - 1);
    (*static_cast<std::map<std::string, std::string>*>(headers))[name] = value;
  }
  return line.size();
}

}  // namespace

Json::Value HttpAnswer::Envelope() const {
  return ParseStrictJson(body).value_or(Json::Value());
}

int HttpAnswer::Code() const {
  const Json::Value envelope = Envelope();
  if (!envelope.isObject() || !envelope["success"].isBool()) return -1;
  if (envelope["success"].asBool()) return 0;
  return envelope["error"]["message"].asString().empty() ? -1 : envelope["error"]["code"].asInt();
}

Json::Value HttpAnswer::Data() const {
  const Json::Value envelope = Envelope();
  return envelope.isObject() ? envelope["data"] : Json::Value();
}

HttpClient::HttpClient(std::string host, int port, std::string authority)
    : host_(std::move(host)), port_(port), authority_(std::move(authority)) {}

void HttpClient::SetSession(std::string new_cookie, std::string new_token) {
  cookie = std::move(new_cookie);
  token = std::move(new_token);
}

void HttpClient::SetCertificate(std::string certificate, std::string key) {
  certificate_ = std::move(certificate);
  key_ = std::move(key);
}

HttpClient::Handle HttpClient::Prepare(const std::string& path) const {
  Handle handle(curl_easy_init());
  const std::string url = "https://" + host_ + ":" + std::to_string(port_) + path;
  curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle.get(), CURLOPT_CAINFO, authority_.c_str());
  // Else the library reads every authority of the machine, for each request.
  curl_easy_setopt(handle.get(), CURLOPT_CAPATH, nullptr);
  curl_easy_setopt(handle.get(), CURLOPT_TIMEOUT, static_cast<long>(patience_.count()));
  curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
  if (!certificate_.empty()) {
    curl_easy_setopt(handle.get(), CURLOPT_SSLCERT, certificate_.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_SSLKEY, key_.c_str());
  }
  return handle;
}

HttpAnswer HttpClient::Perform(const Handle& handle,
                               const std::vector<std::string>& headers) const {
  HttpAnswer answer;
  PerformInto(answer, handle, headers);
  return answer;
}

void HttpClient::PerformInto(HttpAnswer& answer, const Handle& handle,
                             std::vector<std::string> headers) const {
  if (!cookie.empty()) headers.push_back("Cookie: kalo_session=" + cookie);
  if (!token.empty()) headers.push_back("X-KALO-Token: " + token);
  if (!header_.empty()) headers.push_back(header_);
  List header_list;
  for (const std::string& header : headers) Add(header_list, header);
  List addresses;
  Add(addresses, host_ + ":" + std::to_string(port_) + ":127.0.0.1");
  curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, header_list.get());
  curl_easy_setopt(handle.get(), CURLOPT_RESOLVE, addresses.get());
  curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, OnBody);
  curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &answer.body);
  curl_easy_setopt(handle.get(), CURLOPT_HEADERFUNCTION, OnHeader);
  curl_easy_setopt(handle.get(), CURLOPT_HEADERDATA, &answer.headers);
  (void)curl_easy_perform(handle.get());
  curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &answer.status);
}

HttpAnswer HttpClient::Get(const std::string& path) {
  return Perform(Prepare(path), {});
}

HttpAnswer HttpClient::Post(const std::string& row, const std::string& body,
                            const std::string& type) {
  const Handle handle = Prepare("/webapi/" + row);
  curl_easy_setopt(handle.get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(handle.get(), CURLOPT_COPYPOSTFIELDS, body.c_str());
  return Perform(handle, {"Content-Type: " + type});
}

HttpAnswer HttpClient::Listen(const std::string& row,
                              const std::function<bool(const std::string&)>& go_on) {
  struct Heard {
    HttpAnswer answer;
    const std::function<bool(const std::string&)>& go_on;
  } heard{{}, go_on};
  const Handle handle = Prepare("/webapi/" + row);
  curl_easy_setopt(handle.get(), CURLOPT_COPYPOSTFIELDS, "{}");
  const auto look = [](void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    const auto& so_far = *static_cast<Heard*>(self);
    return so_far.go_on(so_far.answer.body) ? 0 : 1;
  };
  curl_easy_setopt(handle.get(), CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(handle.get(), CURLOPT_XFERINFOFUNCTION,
                   static_cast<curl_xferinfo_callback>(look));
  curl_easy_setopt(handle.get(), CURLOPT_XFERINFODATA, &heard);
  PerformInto(heard.answer, handle,
              {"Content-Type: application/json", "Accept: text/event-stream"});
  return heard.answer;
}

HttpAnswer HttpClient::PostForm(const std::string& row, const std::vector<FormPart>& parts) {
  const Handle handle = Prepare("/webapi/" + row);
  const std::unique_ptr<curl_mime, decltype(&curl_mime_free)> form(curl_mime_init(handle.get()),
                                                                   &curl_mime_free);
  for (const FormPart& part : parts) {
    curl_mimepart* added = curl_mime_addpart(form.get());
    curl_mime_name(added, part.name.c_str());
    curl_mime_data(added, part.data.data(), part.data.size());
    if (!part.file_name.empty()) curl_mime_filename(added, part.file_name.c_str());
  }
  curl_easy_setopt(handle.get(), CURLOPT_MIMEPOST, form.get());
  return Perform(handle, {});
}

HttpAnswer HttpClient::Login(const std::string& user, const std::string& password) {
  Json::Value body(Json::objectValue);
  body["user"] = user;
  body["password"] = password;
  HttpAnswer answer = Post("KALO.Core.Auth/1/login", WriteJson(body));
  if (answer.Code() != 0) return answer;
  const std::string header = answer.headers["set-cookie"];
  const std::size_t begin = header.find('=') + 1;
  SetSession(header.substr(begin, header.find(';') - begin), answer.Data()["token"].asString());
  return answer;
}

}  // namespace kalo::test
