#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "services/webapid/client_connection.h"

namespace kalo::webapid {

/// The connections of one port, oldest first. Accepting never stops: at a limit a new connection
/// takes the place of an old one, so holding connections does not shut others out.
class ConnectionTable {
 public:
  /// @param limit of connections; one address may have half of them
  explicit ConnectionTable(std::size_t limit) : limit_(limit) {}

  /// Cuts a connection if the table is full, or holds as many of this address as it may.
  /// @return false when all that could go are being served
  [[nodiscard]] bool MakeRoom(const std::string& peer);
  /// Cuts the connection that matters least: of the lowest rank, of the address that has most of
  /// that rank, the oldest.
  /// @return false when every connection is being served
  bool CutOne();

  void Add(std::unique_ptr<ClientConnection> client);
  void Remove(std::uint64_t number) { clients_.erase(number); }
  /// @return null when the connection is gone.
  [[nodiscard]] ClientConnection* Find(std::uint64_t number) const;
  /// Resumes every suspended handshake.
  void EndHandshakes() const;

 private:
  /// How many connections of a rank each address has.
  using Shares = std::map<std::string, std::size_t>;

  [[nodiscard]] Shares SharesOf(ConnectionRank rank) const;
  bool CutOldest(const std::function<bool(const ClientConnection&)>& may_go);

  std::size_t limit_;
  std::map<std::uint64_t, std::unique_ptr<ClientConnection>> clients_;
};

}  // namespace kalo::webapid
