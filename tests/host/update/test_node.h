#pragma once

#include <microhttpd.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

#include "tests/host/update/test_authority.h"

namespace kalo::test {

/// A node's web API server as a test wants it: TLS on the mesh port of a loopback address, one
/// answer for every request.
class TestNode {
 public:
  enum class Behaviour {
    kAnswer,        ///< answers with `answer`
    kHalfAnswer,    ///< announces more than it sends
    kSlowAnswer,    ///< takes everything, answers after `pause`
    kNoAnswer,      ///< takes everything, answers when it is destroyed
    kTakesNothing,  ///< leaves the body where it is until it is destroyed
  };

  struct Options {
    std::string address = "127.0.0.1";
    Identity identity = {};
    std::string authority = {};  ///< whose clients are asked for
    Behaviour behaviour = Behaviour::kAnswer;
    std::string answer = R"({"success":true,"data":null})";
    unsigned status = MHD_HTTP_OK;
    std::chrono::milliseconds pause{0};
    std::string location = {};  ///< header of that name, when not empty
  };

  /// What came in last.
  struct Request {
    std::string method;
    std::string path;
    std::map<std::string, std::string> headers;  ///< by name in lower case
    std::string body;
    bool has_client_certificate = false;
  };

  explicit TestNode(Options options);
  TestNode(const TestNode&) = delete;
  TestNode& operator=(const TestNode&) = delete;
  ~TestNode();

  [[nodiscard]] Request LastRequest() const;
  [[nodiscard]] int Requests() const;

 private:
  static MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* url,
                              const char* method, const char* version, const char* bytes,
                              std::size_t* count, void** state);
  MHD_Result Begin(MHD_Connection* connection, const char* url, const char* method);
  MHD_Result Answer(MHD_Connection* connection);
  void WaitForEnd();

  Options options_;
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  bool ending_ = false;
  int requests_ = 0;
  Request request_;
  MHD_Daemon* daemon_ = nullptr;
};

}  // namespace kalo::test
