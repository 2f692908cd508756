#pragma once

#include <optional>
#include <string>

#include "services/webapid/authentication.h"
#include "services/webapid/configuration.h"
#include "services/webapid/event_hub.h"
#include "services/webapid/host_names.h"
#include "services/webapid/page_files.h"
#include "services/webapid/request.h"
#include "services/webapid/row_table.h"
#include "services/webapid/upload_store.h"
#include "services/webapid/worker_pool.h"

namespace kalo::webapid {

/// What becomes of a request: who makes it, which row it is for, whether that is allowed, what its
/// body may be, and which workers serve it.
class Front : public RequestServer {
 public:
  /// What the front works with; all borrowed, all outlive it.
  struct Parts {
    const Configuration& configuration;
    const HostNames& host_names;
    const RowTable& rows;
    const UploadStore& uploads;
    const PageFiles& page;
    Authentication& authentication;
    WorkerPool& admin_workers;
    WorkerPool& mesh_workers;
    EventHub& events;
  };
  explicit Front(const Parts& parts) : parts_(parts) {}

  void Begin(Request& request, const std::string& method, const std::string& path) override;
  void Complete(Request& request) override;

  /// From now on every request that is complete is answered with "server busy".
  void Close() { closed_ = true; }

 private:
  // Each returns 0 or an error code.
  [[nodiscard]] int Accept(Request& request, const std::string& method, const std::string& path);
  [[nodiscard]] int AcceptCaller(Request& request, const RowName& name);
  [[nodiscard]] int AcceptRow(Request& request, const RowName& name);
  [[nodiscard]] int AcceptBody(Request& request);
  [[nodiscard]] int AcceptForm(Request& request);
  [[nodiscard]] static int AcceptSize(Request& request, std::uint64_t limit);

  void Dispatch(Request& request, const Json::Value& parameters);
  void Listen(Request& request);

  Parts parts_;
  bool closed_ = false;
};

}  // namespace kalo::webapid
