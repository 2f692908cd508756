#include "tests/hostile/attack.h"

#include <array>
#include <string_view>

#include "tests/hostile/rows.h"

namespace kalo::hostile {
namespace {

constexpr std::array<const char*, 16> kMethods = {
    "POST", "POST", "POST", "POST",  "POST",    "POST",  "POST", "POST",
    "GET",  "PUT",  "HEAD", "PATCH", "OPTIONS", "TRACE", "post", "DELETE"};

// Ways to write a path that another part of a server might read differently.
constexpr std::array<const char*, 10> kPrefixes = {
    "/webapi/", "/webapi//",       "//webapi/",  "/webapi/./",   "/x/../webapi/",
    "/WEBAPI/", "/webapi/%2e%2e/", "/%77ebapi/", "/webapi/..;/", "https://router.test/webapi/"};
constexpr std::array<const char*, 6> kSuffixes = {"/", "%00", "?a=b", "#x", "/../start", ";x"};

// Names of files and fields.
constexpr std::array<std::string_view, 12> kNames = {
    "../../etc/passwd",     "/etc/kalo/users.json", "..\\..\\boot.ini", "kalo_m1_file_tmp",
    "kalo_m1%5ffile_tmp",   "KALO_M1_FILE_TMP",     "patch_file_tmp",   "kalo_m1_file\0_tmp",
    "kalo_m1_file_tmp\r\n", "%70atch_file_tmp",     "patch_file_tmp[]", "con\x01trol"};

constexpr std::array<const char*, 8> kTypes = {"application/json",
                                               "application/json; charset=utf-16",
                                               "text/plain",
                                               "application/x-www-form-urlencoded",
                                               "multipart/form-data; boundary=b",
                                               "multipart/form-data",
                                               "multipart/mixed; boundary=b",
                                               ""};

constexpr std::array<const char*, 8> kHeaders = {
    "X-Forwarded-For: 127.0.0.1\r\n",   "Host: router.test\r\nHost: other\r\n",
    "Content-Encoding: gzip\r\n",       "Expect: 100-continue\r\n",
    "X-HTTP-Method-Override: POST\r\n", "Connection: close\r\n",
    "Transfer-Encoding: identity\r\n",  "X-KALO-User: admin\r\n"};

std::string Hex(std::mt19937& random, std::size_t digits) {
  std::string text;
  while (text.size() < digits) text += "0123456789abcdef"[random() % 16];
  return text;
}

std::string SessionHeaders(const std::string& cookie, const std::string& token) {
  std::string headers;
  if (!cookie.empty()) headers += "Cookie: kalo_session=" + cookie + "\r\n";
  if (!token.empty()) headers += "X-KALO-Token: " + token + "\r\n";
  return headers;
}

std::string Json(const std::string& mark, std::string_view more) {
  return R"({"mark":")" + mark + "\"" + std::string(more) + "}";
}

// As a client would send it that means well.
std::string GoodForm(const std::string& mark) {
  const std::string part = "--b\r\nContent-Disposition: form-data; name=\"";
  return part + "mark\"\r\n\r\n" + mark + "\r\n" + part +
         "kalo_m1_file\"; filename=\"../../m1.pat\"\r\n\r\npatch\r\n--b--\r\n";
}

std::string Chunked(const std::string& text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string size;
  for (std::size_t left = text.size(); left > 0; left /= 16) size.insert(0, 1, kDigits[left % 16]);
  return (text.empty() ? "" : size + "\r\n" + text + "\r\n") + "0\r\n\r\n";
}

}  // namespace

AttackMaker::AttackMaker(unsigned seed, Session administrator, Session guest)
    : random_(seed), administrator_(std::move(administrator)), guest_(std::move(guest)) {}

std::string AttackMaker::OddName() {
  return std::string(Pick(kNames));
}

std::string AttackMaker::Path(bool& is_plain) {
  const Row& row = Pick(kRows);
  is_plain = !Chance(4);
  std::string path = is_plain ? kPrefixes[0] : Pick(kPrefixes);
  path += std::string(row.api) + "/" + std::to_string(row.version) + "/" + row.method;
  if (!is_plain && Chance(2)) path += Pick(kSuffixes);
  if (!is_plain && Chance(20)) path.append(random_() % 20000, 'a');
  return path;
}

// Who the request says that it is.
std::string AttackMaker::Identity(bool& is_administrator) {
  is_administrator = false;
  std::string almost = administrator_.cookie;
  switch (random_() % 10) {
    case 0:
      return "";
    case 1:
      return SessionHeaders(Hex(random_, 64), Hex(random_, 64));
    case 2:
      almost.back() = almost.back() == '0' ? '1' : '0';
      return SessionHeaders(almost, administrator_.token);
    case 3:
      return SessionHeaders(administrator_.cookie, "");
    case 4:
      return SessionHeaders(administrator_.cookie, Hex(random_, 64));
    case 5:
      return SessionHeaders(administrator_.cookie, guest_.token);
    case 6:
      return SessionHeaders(guest_.cookie, guest_.token);
    case 7:
      return SessionHeaders(guest_.cookie, administrator_.token);
    case 8:
      return SessionHeaders("", administrator_.token);
    default:
      is_administrator = true;
      return SessionHeaders(administrator_.cookie, administrator_.token);
  }
}

std::string AttackMaker::Form(const std::string& mark, const std::string& boundary) {
  const std::string line = "--" + boundary + "\r\n";
  const std::string field = "Content-Disposition: form-data; name=\"";
  std::string form = line + field + "mark\"\r\n\r\n" + mark + "\r\n";
  form += line + field + OddName() + "\"\r\n\r\n/etc/kalo/users.json\r\n";
  form += line + field + (Chance(2) ? "kalo_m1_file" : OddName()) + "\"; filename=\"" + OddName() +
          "\"\r\n\r\n" + std::string(random_() % 3000, 'p') + "\r\n";
  if (Chance(4)) return form;  // no end
  return form + "--" + boundary + "--\r\n";
}

AttackMaker::Body AttackMaker::MakeBody(const std::string& mark) {
  Body body;
  body.type = Pick(kTypes);
  switch (random_() % 11) {
    case 0:
      body.text = Json(mark, R"(,"kalo_m1_file_tmp":"/etc/kalo/users.json")");
      break;
    case 1:
      body.text = Json(mark, R"(,"patch\u005ffile_tmp":"/etc/kalo/users.json")");
      break;
    case 2:
      body.text = Json(mark, R"(,"patch%5Ffile_tmp":"/etc/kalo/users.json")");
      break;
    case 3:
      body.text = Json(mark, R"(,"mark":"twice","patch_file_tmp":["/etc/passwd"])");
      break;
    case 4:
      body.text = std::string(random_() % 3000, '[');
      break;
    case 5:
      body.text = "\xff\xfe{}" + Hex(random_, random_() % 100);
      break;
    case 6:
      body.text = "mark=" + mark + "&kalo_m1_file_tmp=/etc/kalo/users.json";
      break;
    case 7:
      body = {"application/json", Json(mark, ""), "", false};
      break;
    case 8:
      body = {"multipart/form-data; boundary=b", GoodForm(mark), "", false};
      break;
    default:
      body.text = Form(mark, Chance(8) ? "other" : "b");
      break;
  }
  if (Chance(60)) body.text.append(std::size_t{1} << 20, ' ');
  if (Chance(3)) body.more_headers = Pick(kHeaders);
  body.chunked = Chance(8);
  return body;
}

Attack AttackMaker::Next() {
  constexpr std::array<Door, 8> kDoors = {Door::kAdminPort,    Door::kAdminPort, Door::kAdminPort,
                                          Door::kAdminPort,    Door::kAdminPort, Door::kMeshNobody,
                                          Door::kMeshStranger, Door::kMeshNode1};
  Attack attack;
  attack.door = Pick(kDoors);
  attack.mark = "m" + std::to_string(++number_);
  bool is_plain = false;
  bool is_administrator = false;
  const std::string path = Path(is_plain);
  const std::string method = Pick(kMethods);
  const std::string identity = Identity(is_administrator);
  const Body body = MakeBody(attack.mark);
  attack.may_reach = is_administrator && attack.door == Door::kAdminPort;
  std::string header = method + " " + path + " HTTP/1.1\r\nHost: router.test\r\n" + identity;
  if (!body.type.empty()) header += "Content-Type: " + body.type + "\r\n";
  header += body.more_headers;
  if (Chance(100)) header += "X-Long: " + std::string(random_() % 70000, 'h') + "\r\n";
  std::size_t told = body.text.size();
  if (Chance(50)) {
    told += 1 + random_() % 5000;  // it waits for what never comes
    attack.is_complete = false;
  }
  const bool lies = Chance(50);
  if (lies) header += "Content-Length: 3\r\n";
  attack.is_clean = attack.is_complete && !lies && body.more_headers.empty();
  if (body.chunked) {
    header += "Transfer-Encoding: chunked\r\n";
    attack.bytes = header + "\r\n" + Chunked(body.text);
  } else {
    attack.bytes = header + "Content-Length: " + std::to_string(told) + "\r\n\r\n" + body.text;
  }
  return attack;
}

}  // namespace kalo::hostile
