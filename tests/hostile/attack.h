#pragma once

#include <random>
#include <string>
#include <vector>

namespace kalo::hostile {

/// A session that the server gave.
struct Session {
  std::string cookie;
  std::string token;
};

/// On which connection a request comes, and so who it can be at most.
enum class Door {
  kAdminPort,     ///< no certificate is asked for
  kMeshNobody,    ///< the mesh port, without a certificate
  kMeshStranger,  ///< with one of another authority, in the name of node 0
  kMeshNode1,     ///< with that of a satellite, who may call nothing
};

/// One request, as its bytes go out.
struct Attack {
  Door door = Door::kAdminPort;
  std::string bytes;
  std::string mark;         ///< goes along as a parameter; the entry function notes it
  bool may_reach = false;   ///< whoever asks has the right to; only what he sends is odd
  bool is_complete = true;  ///< the server has all that it was promised, so it must answer
  bool is_clean = true;     ///< no byte of it can be taken for the next request
};

/// Makes requests by the thousand, the same ones for the same seed.
class AttackMaker {
 public:
  AttackMaker(unsigned seed, Session administrator, Session guest);

  [[nodiscard]] Attack Next();

 private:
  struct Body {
    std::string type;
    std::string text;
    std::string more_headers;
    bool chunked = false;
  };
  template <typename Range>
  const auto& Pick(const Range& range) {
    return range[random_() % std::size(range)];
  }
  [[nodiscard]] bool Chance(unsigned one_in) { return random_() % one_in == 0; }
  [[nodiscard]] std::string Path(bool& is_plain);
  [[nodiscard]] std::string Identity(bool& is_administrator);
  [[nodiscard]] Body MakeBody(const std::string& mark);
  [[nodiscard]] std::string Form(const std::string& mark, const std::string& boundary);
  [[nodiscard]] std::string OddName();

  std::mt19937 random_;
  Session administrator_;
  Session guest_;
  unsigned number_ = 0;
};

}  // namespace kalo::hostile
