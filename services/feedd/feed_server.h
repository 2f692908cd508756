#pragma once

#include <microhttpd.h>

#include <cstdint>
#include <memory>
#include <string>

#include "host/core/unique_fd.h"

namespace kalo::feedd {

struct FeedServerOptions {
  std::string root;     ///< the feed's folder
  std::string address;  ///< numeric IPv4 address
  std::uint16_t port = 0;
  std::string certificate;             ///< PEM text; empty: plain HTTP
  std::string key;                     ///< PEM text
  std::uint64_t bytes_per_second = 0;  ///< for each file, as if the line were slow; 0: no limit
};

/// Serves a feed's folder. Everything is looked up and sent by a thread of its own until the object
/// ends; files go to the network without passing through this process where the kernel allows it.
class FeedServer {
 public:
  /// @throws std::runtime_error when the folder or the address cannot be used
  explicit FeedServer(const FeedServerOptions& options);

  /// @return where it is reached, "https://127.0.0.100:443".
  [[nodiscard]] const std::string& Url() const { return url_; }

 private:
  struct Stop {
    void operator()(MHD_Daemon* daemon) const { MHD_stop_daemon(daemon); }
  };
  static MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* path,
                              const char* method, const char* version, const char* data,
                              std::size_t* size, void** context);
  [[nodiscard]] MHD_Result Answer(MHD_Connection* connection, const std::string& path,
                                  const std::string& method) const;

  UniqueFd root_;
  std::uint64_t bytes_per_second_;
  std::unique_ptr<MHD_Daemon, Stop> daemon_;
  std::string url_;
};

}  // namespace kalo::feedd
