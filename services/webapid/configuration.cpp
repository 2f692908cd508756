#include "services/webapid/configuration.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

#include "host/core/object_reader.h"

namespace kalo::webapid {
namespace {

constexpr int kWeek = 7 * 86400;
constexpr int kFewestWorkers = 2;  // one for polls, one for the rest
constexpr int kMostWorkers = 64;
constexpr std::size_t kLongestHostName = 253;
constexpr const char* kHostNameCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_";

std::uint16_t Port(ObjectReader& reader, const std::string& key) {
  return static_cast<std::uint16_t>(reader.Integer(key, 1, 65535));
}

std::chrono::seconds Seconds(ObjectReader& reader, const std::string& key, int highest,
                             std::chrono::seconds fallback) {
  return std::chrono::seconds(reader.Integer(key, 1, highest, static_cast<int>(fallback.count())));
}

std::size_t Workers(ObjectReader& reader, const std::string& key, std::size_t fallback) {
  return static_cast<std::size_t>(
      reader.Integer(key, kFewestWorkers, kMostWorkers, static_cast<int>(fallback)));
}

void ReadSession(const Json::Value& value, const std::string& name, Configuration& result) {
  ObjectReader reader(value, name + ": session");
  result.session_idle = Seconds(reader, "idle_s", kWeek, result.session_idle);
  result.session_absolute = Seconds(reader, "absolute_s", kWeek, result.session_absolute);
  reader.Finish();
}

void ReadWorkers(const Json::Value& value, const std::string& name, Configuration& result) {
  ObjectReader reader(value, name + ": workers");
  result.admin_workers = Workers(reader, "admin", result.admin_workers);
  result.mesh_workers = Workers(reader, "mesh", result.mesh_workers);
  reader.Finish();
}

void ReadLimits(const Json::Value& value, const std::string& name, Configuration& result) {
  ObjectReader reader(value, name + ": limits");
  result.request_time = Seconds(reader, "request_s", 3600, result.request_time);
  result.upload_time = Seconds(reader, "upload_s", 86400, result.upload_time);
  result.connections = static_cast<unsigned>(
      reader.Integer("connections", 1, 10000, static_cast<int>(result.connections)));
  const int mebibytes =
      reader.Integer("upload_mib", 1, 8192, static_cast<int>(result.upload_bytes >> 20));
  result.upload_bytes = static_cast<std::uint64_t>(mebibytes) << 20;
  reader.Finish();
}

// Names as they appear in a Host header, without a port.
void ReadHostNames(const Json::Value& names, const ObjectReader& reader, Configuration& result) {
  for (const Json::Value& name : names) {
    const std::string text = name.isString() ? name.asString() : "";
    const bool is_name = !text.empty() && text.size() <= kLongestHostName &&
                         text.find_first_not_of(kHostNameCharacters) == std::string::npos;
    if (!is_name) reader.Fail("host_names", "must hold host names only");
    result.host_names.push_back(text);
  }
}

Configuration Read(const Json::Value& value, const std::string& name) {
  ObjectReader reader(value, name);
  Configuration result;
  result.address = reader.Text("address");
  socklen_t length = 0;
  (void)SocketAddress(result.address, 0, length);
  if (length == 0) reader.Fail("address", "must be a numeric IPv4 or IPv6 address");
  result.admin_port = Port(reader, "admin_port");
  result.mesh_port = Port(reader, "mesh_port");
  if (result.admin_port == result.mesh_port) reader.Fail("mesh_port", "equals \"admin_port\"");
  if (value.isMember("host_names")) ReadHostNames(reader.Array("host_names"), reader, result);
  ReadSession(reader.Object("session"), name, result);
  ReadWorkers(reader.Object("workers"), name, result);
  ReadLimits(reader.Object("limits"), name, result);
  reader.Finish();
  return result;
}

}  // namespace

Configuration ParseConfiguration(const std::string& text, const std::string& name) {
  return Read(ParseJsonText(text, name), name);
}

Configuration ReadConfiguration(const std::string& path) {
  return Read(ReadJsonFile(path), path);
}

sockaddr_storage SocketAddress(const std::string& address, std::uint16_t port, socklen_t& length) {
  sockaddr_storage storage{};
  length = 0;
  sockaddr_in v4{};
  sockaddr_in6 v6{};
  if (inet_pton(AF_INET, address.c_str(), &v4.sin_addr) == 1) {
    v4.sin_family = AF_INET;
    v4.sin_port = htons(port);
    length = sizeof(v4);
    std::memcpy(&storage, &v4, length);
  } else if (inet_pton(AF_INET6, address.c_str(), &v6.sin6_addr) == 1) {
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(port);
    length = sizeof(v6);
    std::memcpy(&storage, &v6, length);
  }
  return storage;
}

}  // namespace kalo::webapid
