#include "platform/mesh/client.h"

#include "host/mesh/bus_connection.h"
#include "host/mesh/reply_reader.h"
#include "host/mesh/wire.h"

namespace KALO::MESH::SDK::Client {
namespace {

using kalo::mesh::BusConnection;
using kalo::mesh::BusReply;
using kalo::mesh::MeshCode;
using kalo::mesh::ReplyReader;
namespace method = kalo::mesh::method;
namespace signature = kalo::mesh::signature;

std::uint16_t Number(MeshCode code) {
  return static_cast<std::uint16_t>(code);
}

template <typename Result>
Result Failure(MeshCode code) {
  Result result;
  result.code = Number(code);
  return result;
}

// Calls a method and lets `read` fill a result from its reply.
template <typename Result, typename Read>
Result Ask(BusConnection& bus, const char* name, const char* types, Read read) {
  const BusReply reply = bus.Call(name, types);
  if (reply.code != MeshCode::kOk) return Failure<Result>(reply.code);
  ReplyReader reader(reply.message.get());
  Result result;
  result.code = reader.Code();
  read(reader, result);
  return reader.Ok() ? result : Failure<Result>(MeshCode::kMalformedReply);
}

NodeInfo ReadNodeInfo(ReplyReader& reader) {
  NodeInfo info;
  reader.Inside("ssssiiss", [&] {
    info.name = reader.Text();
    info.unique = reader.Text();
    info.address = reader.Text();
    info.full_version = reader.Text();
    info.build_num = reader.Integer();
    info.nano_num = reader.Integer();
    info.boot_id = reader.Text();
    info.staged_version = reader.Text();
  });
  return info;
}

RepeaterAccessInfo ReadAccessInfo(ReplyReader& reader) {
  RepeaterAccessInfo info;
  reader.Inside("uub", [&] {
    info.parent_id = reader.Unsigned();
    info.hops = reader.Unsigned();
    info.wired = reader.Boolean();
  });
  return info;
}

void ReadError(ReplyReader& reader, SystemUpdateProgress& progress) {
  progress.error_number = reader.Integer();
  progress.err_desc = reader.Text();
  progress.err_msg = reader.Text();
}

class BusMeshClient final : public MeshClient {
 public:
  NodeInfosResult GetNodeInfos() override {
    return Ask<NodeInfosResult>(bus_, method::kGetNodeInfos, signature::kGetNodeInfos,
                                [](ReplyReader& reader, NodeInfosResult& result) {
                                  reader.ForEach("{u(ssssiiss)}", [&] {
                                    const std::uint32_t id = reader.Unsigned();
                                    result.nodes[id] = ReadNodeInfo(reader);
                                  });
                                });
  }

  RepeaterAccessInfosResult GetRepeaterAccessInfos() override {
    return Ask<RepeaterAccessInfosResult>(
        bus_, method::kGetRepeaterAccessInfos, signature::kGetRepeaterAccessInfos,
        [](ReplyReader& reader, RepeaterAccessInfosResult& result) {
          reader.ForEach("{u(uub)}", [&] {
            const std::uint32_t id = reader.Unsigned();
            result.nodes[id] = ReadAccessInfo(reader);
          });
        });
  }

  MeshSystemStatus GetMeshSystemStatus() override {
    return Ask<MeshSystemStatus>(bus_, method::kGetMeshSystemStatus,
                                 signature::kGetMeshSystemStatus,
                                 [](ReplyReader& reader, MeshSystemStatus& status) {
                                   status.syncing = reader.Boolean();
                                   reader.ForEach("(ub)", [&] {
                                     MeshSystemNode node;
                                     node.node_id = reader.Unsigned();
                                     node.offline = reader.Boolean();
                                     status.nodes.push_back(node);
                                   });
                                 });
  }

  std::uint32_t StartSystemUpdate() override {
    const BusReply reply = bus_.Call(method::kStartSystemUpdate, signature::kStartSystemUpdate);
    if (reply.code != MeshCode::kOk) return Number(reply.code);
    ReplyReader reader(reply.message.get());
    const std::uint32_t status = reader.Unsigned();
    return reader.Ok() ? status : Number(MeshCode::kMalformedReply);
  }

  SystemUpdateProgress GetSystemUpdateProgress() override {
    return Ask<SystemUpdateProgress>(bus_, method::kGetSystemUpdateProgress,
                                     signature::kGetSystemUpdateProgress,
                                     [](ReplyReader& reader, SystemUpdateProgress& progress) {
                                       progress.version = reader.Text();
                                       progress.step = reader.Text();
                                       progress.percent = reader.Integer();
                                       ReadError(reader, progress);
                                     });
  }

  SystemUpdateProgress GetSystemUpdateProgressV2() override {
    return Ask<SystemUpdateProgress>(bus_, method::kGetSystemUpdateProgressV2,
                                     signature::kGetSystemUpdateProgressV2,
                                     [](ReplyReader& reader, SystemUpdateProgress& progress) {
                                       progress.version = reader.Text();
                                       progress.step = reader.Text();
                                       progress.percent = reader.Integer();
                                       progress.total_percentage = reader.Integer();
                                       ReadError(reader, progress);
                                     });
  }

 private:
  BusConnection bus_;
};

}  // namespace

std::shared_ptr<MeshClient> MeshClientFactory::GetClient() {
  return std::make_shared<BusMeshClient>();
}

}  // namespace KALO::MESH::SDK::Client
