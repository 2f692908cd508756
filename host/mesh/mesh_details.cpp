#include "host/mesh/mesh_details.h"

#include "host/mesh/bus_connection.h"
#include "host/mesh/reply_reader.h"
#include "host/mesh/wire.h"

namespace kalo {
namespace {

MeshNodeDetails ReadNode(mesh::ReplyReader& reader) {
  MeshNodeDetails node;
  node.id = reader.Unsigned();
  node.name = reader.Text();
  node.model = reader.Text();
  node.version = reader.Text();
  node.role = reader.Text();
  node.online = reader.Boolean();
  node.boot_id = reader.Text();
  node.step = reader.Text();
  node.percent = reader.Integer();
  node.staged_version = reader.Text();
  node.error = reader.Text();
  return node;
}

MeshDetails Failure(mesh::MeshCode code) {
  MeshDetails details;
  details.code = static_cast<std::uint16_t>(code);
  return details;
}

}  // namespace

MeshDetails GetMeshDetails() {
  mesh::BusConnection bus;
  const mesh::BusReply reply = bus.Call(mesh::method::kGetNodes, mesh::signature::kGetNodes);
  if (reply.code != mesh::MeshCode::kOk) return Failure(reply.code);
  mesh::ReplyReader reader(reply.message.get());
  MeshDetails details;
  details.code = reader.Code();
  details.update_running = reader.Boolean();
  reader.ForEach("(ussssbssiss)", [&] { details.nodes.push_back(ReadNode(reader)); });
  return reader.Ok() ? details : Failure(mesh::MeshCode::kMalformedReply);
}

}  // namespace kalo
