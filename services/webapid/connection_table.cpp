#include "services/webapid/connection_table.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kalo::webapid {
namespace {

constexpr std::array kRanksThatGo = {ConnectionRank::kUnknown, ConnectionRank::kKnown};

}  // namespace

bool ConnectionTable::MakeRoom(const std::string& peer) {
  std::size_t all = 0;
  std::size_t of_peer = 0;
  for (const auto& [number, client] : clients_) {
    if (client->IsCut()) continue;
    ++all;
    if (client->Peer() == peer) ++of_peer;
  }
  if (of_peer >= std::max<std::size_t>(limit_ / 2, 1)) {
    return std::any_of(kRanksThatGo.begin(), kRanksThatGo.end(), [&](ConnectionRank rank) {
      return CutOldest([&](const ClientConnection& client) {
        return client.Rank() == rank && client.Peer() == peer;
      });
    });
  }
  return all < limit_ || CutOne();
}

bool ConnectionTable::CutOne() {
  return std::any_of(kRanksThatGo.begin(), kRanksThatGo.end(), [this](ConnectionRank rank) {
    const Shares shares = SharesOf(rank);
    std::size_t most = 0;
    for (const auto& [peer, share] : shares) most = std::max(most, share);
    return CutOldest([&](const ClientConnection& client) {
      return client.Rank() == rank && shares.at(client.Peer()) == most;
    });
  });
}

ConnectionTable::Shares ConnectionTable::SharesOf(ConnectionRank rank) const {
  Shares shares;
  for (const auto& [number, client] : clients_) {
    if (!client->IsCut() && client->Rank() == rank) ++shares[client->Peer()];
  }
  return shares;
}

bool ConnectionTable::CutOldest(const std::function<bool(const ClientConnection&)>& may_go) {
  const auto oldest = std::find_if(clients_.begin(), clients_.end(), [&](const auto& entry) {
    return !entry.second->IsCut() && may_go(*entry.second);
  });
  if (oldest == clients_.end()) return false;
  oldest->second->Cut();
  return true;
}

void ConnectionTable::Add(std::unique_ptr<ClientConnection> client) {
  const std::uint64_t number = client->Number();
  clients_.emplace(number, std::move(client));
}

ClientConnection* ConnectionTable::Find(std::uint64_t number) const {
  const auto client = clients_.find(number);
  return client == clients_.end() ? nullptr : client->second.get();
}

void ConnectionTable::EndHandshakes() const {
  for (const auto& [number, client] : clients_) client->EndHandshake();
}

}  // namespace kalo::webapid
