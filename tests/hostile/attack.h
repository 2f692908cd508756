#pragma once

#include <string>
#include <vector>

#include "tests/hostile/bodies.h"
#include "tests/hostile/dice.h"
#include "tests/hostile/known_rows.h"

namespace kalo::hostile {

/// A session that the server gave.
struct Session {
  std::string cookie;
  std::string token;
};

/// @return the header lines with which a request tells of its session; none for what is empty.
[[nodiscard]] std::string SessionHeaders(const Session& session);

/// On which connection a request comes, and so who it can be at most.
enum class Door {
  kAdminPort,     ///< no certificate is asked for
  kMeshNobody,    ///< the mesh port, without a certificate
  kMeshStranger,  ///< with one of another authority, in the name of node 0
  kMeshNode0,     ///< with that of node 0
  kMeshNode1,     ///< with that of a satellite
};

/// One request, as its bytes go out.
struct Attack {
  Door door = Door::kAdminPort;
  std::string bytes;
  std::string mark;               ///< goes along as a parameter; the entry function notes it
  const KnownRow* row = nullptr;  ///< that it asks for
  Caller caller = Caller::kNobody;
  Form form = Form::kProper;
  bool is_complete = true;  ///< the server has all that it was promised, so it must answer
  bool is_clean = true;     ///< no byte of it can be taken for the next request

  [[nodiscard]] bool MayReach() const { return form != Form::kRefused && row->Allows(caller); }
  [[nodiscard]] bool MustReach() const { return form == Form::kProper && row->Allows(caller); }
};

/// Makes requests by the thousand, the same ones for the same seed. In a third of them nothing is
/// odd but who asks; no request has the right to sign in or out.
class AttackMaker {
 public:
  /// @param rows borrowed; outlive this object and what it makes
  AttackMaker(unsigned seed, const std::vector<KnownRow>& rows, Session administrator,
              Session guest);

  [[nodiscard]] Attack Next();

 private:
  /// A piece of a request's header.
  struct Piece {
    std::string text;
    Form form = Form::kProper;
  };
  struct Identity {
    Session session;
    Caller caller = Caller::kNobody;
  };

  [[nodiscard]] Piece Method();
  [[nodiscard]] Piece Path(const KnownRow& row);
  [[nodiscard]] Piece MoreHeaders();
  [[nodiscard]] Identity ClaimedIdentity();
  [[nodiscard]] Identity IdentityFor(const Attack& attack);
  [[nodiscard]] Body BodyFor(const Attack& attack, bool is_proper);
  void AddBody(Attack& attack, const std::string& header, const std::string& text);
  void Spoil(Attack& attack, std::string header, const std::string& text);

  Dice dice_;
  BodyMaker bodies_{dice_};
  const std::vector<KnownRow>& rows_;
  Session administrator_;
  Session guest_;
  unsigned number_ = 0;
};

}  // namespace kalo::hostile
