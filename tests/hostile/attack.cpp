#include "tests/hostile/attack.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace kalo::hostile {
namespace {

constexpr std::array<Door, 9> kDoors = {Door::kAdminPort,    Door::kAdminPort, Door::kAdminPort,
                                        Door::kAdminPort,    Door::kAdminPort, Door::kMeshNobody,
                                        Door::kMeshStranger, Door::kMeshNode0, Door::kMeshNode1};

constexpr std::array<const char*, 8> kOtherMethods = {"GET",     "PUT",   "HEAD", "PATCH",
                                                      "OPTIONS", "TRACE", "post", "DELETE"};

struct Spelling {
  const char* text;
  Form form;
};

// Ways to write a path that another part of a server might read differently.
constexpr std::array<Spelling, 10> kPrefixes = {{{"/webapi/", Form::kProper},
                                                 {"/%77ebapi/", Form::kOdd},
                                                 {"/webapi//", Form::kRefused},
                                                 {"//webapi/", Form::kRefused},
                                                 {"/webapi/./", Form::kRefused},
                                                 {"/x/../webapi/", Form::kRefused},
                                                 {"/WEBAPI/", Form::kRefused},
                                                 {"/webapi/%2e%2e/", Form::kRefused},
                                                 {"/webapi/..;/", Form::kRefused},
                                                 {"https://router.test/webapi/", Form::kRefused}}};
constexpr std::array<const char*, 6> kSuffixes = {"/", "%00", "?a=b", "#x", "/../start", ";x"};

constexpr std::array<Spelling, 8> kHeaders = {{{"X-Forwarded-For: 127.0.0.1\r\n", Form::kOdd},
                                               {"Host: other\r\n", Form::kRefused},
                                               {"Content-Encoding: gzip\r\n", Form::kOdd},
                                               {"Expect: 100-continue\r\n", Form::kOdd},
                                               {"X-HTTP-Method-Override: POST\r\n", Form::kOdd},
                                               {"Connection: close\r\n", Form::kOdd},
                                               {"Transfer-Encoding: identity\r\n", Form::kRefused},
                                               {"X-KALO-User: admin\r\n", Form::kOdd}}};

std::string Chunk(const std::string& text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string size;
  for (std::size_t left = text.size(); left > 0; left /= 16) size.insert(0, 1, kDigits[left % 16]);
  return text.empty() ? "" : size + "\r\n" + text + "\r\n";
}

bool IsSigningIn(const KnownRow& row) {
  return row.is_front && row.method == "login";
}

}  // namespace

std::string SessionHeaders(const Session& session) {
  std::string headers;
  if (!session.cookie.empty()) headers += "Cookie: kalo_session=" + session.cookie + "\r\n";
  if (!session.token.empty()) headers += "X-KALO-Token: " + session.token + "\r\n";
  return headers;
}

AttackMaker::AttackMaker(unsigned seed, const std::vector<KnownRow>& rows, Session administrator,
                         Session guest)
    : dice_(seed),
      rows_(rows),
      administrator_(std::move(administrator)),
      guest_(std::move(guest)) {}

AttackMaker::Piece AttackMaker::Method() {
  if (!dice_.OneIn(3)) return {"POST"};
  return {dice_.Pick(kOtherMethods), Form::kRefused};
}

AttackMaker::Piece AttackMaker::Path(const KnownRow& row) {
  const bool is_plain = !dice_.OneIn(4);
  const Spelling prefix = is_plain || dice_.OneIn(2) ? kPrefixes[0] : dice_.Pick(kPrefixes);
  Piece path{prefix.text + row.Name(), prefix.form};
  if (is_plain) return path;
  const std::string plain = path.text;
  if (dice_.OneIn(2)) path.text += dice_.Pick(kSuffixes);
  if (dice_.OneIn(20)) path.text.append(1 + dice_.Below(20000), 'a');
  if (path.text != plain) path.form = Form::kRefused;
  return path;
}

// A request's other headers, most often none.
AttackMaker::Piece AttackMaker::MoreHeaders() {
  Piece more;
  if (dice_.OneIn(3)) {
    const Spelling header = dice_.Pick(kHeaders);
    more = {header.text, header.form};
  }
  if (dice_.OneIn(100)) {
    more.text += "X-Long: " + std::string(dice_.Below(70000), 'h') + "\r\n";
    more.form = std::max(more.form, Form::kOdd);
  }
  return more;
}

// Who the request says that it is, and who it is with that on the admin port.
AttackMaker::Identity AttackMaker::ClaimedIdentity() {
  std::string almost = administrator_.cookie;
  switch (dice_.Below(12)) {
    case 0:
      return {};
    case 1:
      return {{dice_.Hex(64), dice_.Hex(64)}};
    case 2:
      almost.back() = almost.back() == '0' ? '1' : '0';
      return {{almost, administrator_.token}};
    case 3:
      return {{administrator_.cookie, ""}};
    case 4:
      return {{administrator_.cookie, dice_.Hex(64)}};
    case 5:
      return {{administrator_.cookie, guest_.token}};
    case 6:
      return {guest_, Caller::kUser};
    case 7:
      return {{guest_.cookie, administrator_.token}};
    case 8:
      return {{"", administrator_.token}};
    case 9:
      return {{administrator_.token, administrator_.cookie}};
    default:
      return {administrator_, Caller::kAdministrator};
  }
}

AttackMaker::Identity AttackMaker::IdentityFor(const Attack& attack) {
  Identity identity = ClaimedIdentity();
  const bool has_right = identity.caller != Caller::kNobody;
  switch (attack.door) {
    case Door::kAdminPort:
      // Whoever may sign out would: the session is needed to the end.
      if (has_right && attack.row->is_front) return {{identity.session.cookie, dice_.Hex(64)}};
      return identity;
    case Door::kMeshNode0:
      return {identity.session, Caller::kNode0};
    case Door::kMeshNode1:
      return {identity.session, Caller::kOtherNode};
    case Door::kMeshNobody:
    case Door::kMeshStranger:
      break;
  }
  return {identity.session};
}

Body AttackMaker::BodyFor(const Attack& attack, bool is_proper) {
  if (IsSigningIn(*attack.row) && (is_proper || dice_.OneIn(2))) {
    const bool is_in_vain = attack.door != Door::kAdminPort || attack.form == Form::kRefused;
    return is_in_vain ? bodies_.RightSignIn() : bodies_.WrongSignIn();
  }
  return is_proper ? bodies_.Proper(*attack.row, attack.mark)
                   : bodies_.Hostile(*attack.row, attack.mark);
}

void AttackMaker::AddBody(Attack& attack, const std::string& header, const std::string& text) {
  if (dice_.OneIn(8)) {
    attack.bytes = header + "Transfer-Encoding: chunked\r\n\r\n" + Chunk(text);
    if (attack.is_complete) attack.bytes += "0\r\n\r\n";
    return;
  }
  // It waits for what never comes.
  const std::size_t told = text.size() + (attack.is_complete ? 0 : 1 + dice_.Below(5000));
  attack.bytes = header + "Content-Length: " + std::to_string(told) + "\r\n\r\n" + text;
}

// As AddBody, but about the length of it not always the truth.
void AttackMaker::Spoil(Attack& attack, std::string header, const std::string& text) {
  const bool lies = dice_.OneIn(50);
  attack.is_complete = !dice_.OneIn(50);
  if (lies) header += "Content-Length: 3\r\n";
  if (lies || !attack.is_complete) {
    attack.form = Form::kRefused;
    attack.is_clean = false;
  }
  AddBody(attack, header, text);
}

Attack AttackMaker::Next() {
  const bool is_proper = dice_.OneIn(3);
  Attack attack;
  attack.door = dice_.Pick(kDoors);
  attack.row = &dice_.Pick(rows_);
  attack.mark = "m" + std::to_string(++number_);
  const Identity identity = IdentityFor(attack);
  attack.caller = identity.caller;
  const Piece method = is_proper ? Piece{"POST"} : Method();
  const Piece path = is_proper ? Piece{"/webapi/" + attack.row->Name()} : Path(*attack.row);
  const Piece more = is_proper ? Piece{} : MoreHeaders();
  attack.form = std::max({method.form, path.form, more.form});
  attack.is_clean = more.text.empty();
  const Body body = BodyFor(attack, is_proper);
  attack.form = std::max(attack.form, body.form);
  std::string header = method.text + " " + path.text + " HTTP/1.1\r\nHost: router.test\r\n" +
                       SessionHeaders(identity.session);
  if (!body.type.empty()) header += "Content-Type: " + body.type + "\r\n";
  header += more.text;
  if (is_proper) {
    AddBody(attack, header, body.text);
  } else {
    Spoil(attack, std::move(header), body.text);
  }
  return attack;
}

}  // namespace kalo::hostile
