#include "tests/hostile/bodies.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace kalo::hostile {
namespace {

constexpr const char* kJson = "application/json";
constexpr const char* kUrlEncoded = "application/x-www-form-urlencoded";

// Names of files and fields.
constexpr std::array<std::string_view, 12> kNames = {
    "../../etc/passwd",     "/etc/kalo/users.json", "..\\..\\boot.ini", "kalo_m1_file_tmp",
    "kalo_m1%5ffile_tmp",   "KALO_M1_FILE_TMP",     "patch_file_tmp",   "kalo_m1_file\0_tmp",
    "kalo_m1_file_tmp\r\n", "%70atch_file_tmp",     "patch_file_tmp[]", "con\x01trol"};

constexpr std::array<const char*, 8> kTypes = {kJson,
                                               "application/json; charset=utf-16",
                                               "text/plain",
                                               kUrlEncoded,
                                               kFormType,
                                               "multipart/form-data",
                                               "multipart/mixed; boundary=edge",
                                               ""};

// In JSON, as are the names below.
constexpr std::array<const char*, 12> kWrongPasswords = {R"("")",
                                                         R"("correct hors")",
                                                         R"("correct horse ")",
                                                         R"("Correct horse")",
                                                         R"("correct horse\u0000")",
                                                         R"("correct horse\nadmin0")",
                                                         R"("' OR '1'='1")",
                                                         R"("*")",
                                                         R"(["correct horse"])",
                                                         R"({"correct horse":true})",
                                                         "true",
                                                         "null"};
constexpr std::array<const char*, 8> kWrongUsers = {R"("ADMIN0")",
                                                    R"("admin0 ")",
                                                    R"("admin0\u0000")",
                                                    R"("../admin0")",
                                                    R"(["admin0"])",
                                                    R"({"admin0":1})",
                                                    R"("")",
                                                    "0"};

bool ReadsAsForm(std::string_view type) {
  return type == kUrlEncoded || type == kFormType;
}

std::string Json(const std::string& mark, std::string_view more) {
  return R"({"mark":")" + mark + "\"" + std::string(more) + "}";
}

std::string SignIn(const std::string& user, const std::string& password, std::string_view more) {
  return R"({"user":)" + user + R"(,"password":)" + password + std::string(more) + "}";
}

std::string Quoted(const std::string& text) {
  return "\"" + text + "\"";
}

}  // namespace

std::string GoodForm(const std::string& mark, const std::string& file) {
  const std::string part = std::string(kFormLine) + "Content-Disposition: form-data; name=\"";
  return part + "mark\"\r\n\r\n" + mark + "\r\n" + part +
         "kalo_m1_file\"; filename=\"../../m1.pat\"\r\n\r\n" + file + "\r\n--edge--\r\n";
}

std::string BodyMaker::OddName() {
  return std::string(dice_.Pick(kNames));
}

std::string BodyMaker::TriedUser() {
  return kTriedUserPrefix + std::to_string(dice_.Below(kTriedUsers));
}

Body BodyMaker::Proper(const KnownRow& row, const std::string& mark) {
  if (row.files && dice_.OneIn(2)) return {kFormType, GoodForm(mark, "patch")};
  return {kJson, Json(mark, "")};
}

Body BodyMaker::RightSignIn() {
  return {kJson, SignIn(Quoted(TriedUser()), Quoted(kRightPassword), "")};
}

Body BodyMaker::WrongSignIn() {
  const std::string user = TriedUser();
  const std::string good = SignIn(Quoted(user), Quoted(kRightPassword), "");
  switch (dice_.Below(12)) {
    case 0:
      return {kJson, SignIn(dice_.Pick(kWrongUsers), Quoted(kRightPassword), "")};
    case 1:
      return {kJson, SignIn(Quoted(user), Quoted(kRightPassword), R"(,"groups":["x"])")};
    case 2:
      return {kJson, SignIn(Quoted(user), R"("")", R"(,"password":"correct horse")")};
    case 3:
      return {kJson, good + std::string(std::size_t{20} << 10, ' ')};
    case 4:
      return {kUrlEncoded, "user=" + user + "&password=correct+horse"};
    case 5:
      return {"text/plain", good};
    default:
      return {kJson, SignIn(Quoted(user), dice_.Pick(kWrongPasswords), "")};
  }
}

// Each of them is refused as JSON; what it is as a form is less sure.
Body BodyMaker::HostileJson(const std::string& mark) {
  Body body{dice_.Pick(kTypes), "", Form::kRefused};
  if (ReadsAsForm(body.type)) body.form = Form::kOdd;
  switch (dice_.Below(7)) {
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
      body.text = std::string(1 + dice_.Below(3000), '[');
      break;
    case 5:
      body.text = "\xff\xfe{}" + dice_.Hex(dice_.Below(100));
      break;
    default:
      body.text = "mark=" + mark + "&kalo_m1_file_tmp=/etc/kalo/users.json";
      if (body.type == kUrlEncoded) body.form = Form::kRefused;
      break;
  }
  return body;
}

Body BodyMaker::HostileForm(const std::string& mark, const std::string& boundary) {
  const std::string line = "--" + boundary + "\r\n";
  const std::string field = "Content-Disposition: form-data; name=\"";
  Body body{dice_.Pick(kTypes), line + field + "mark\"\r\n\r\n" + mark + "\r\n", Form::kRefused};
  if (ReadsAsForm(body.type)) body.form = Form::kOdd;
  body.text += line + field + OddName() + "\"\r\n\r\n/etc/kalo/users.json\r\n";
  body.text += line + field + (dice_.OneIn(2) ? "kalo_m1_file" : OddName()) + "\"; filename=\"" +
               OddName() + "\"\r\n\r\n" + std::string(dice_.Below(3000), 'p') + "\r\n";
  // A form in which its own line never stands is an empty one.
  const bool has_end = !dice_.OneIn(4);
  if (has_end) body.text += "--" + boundary + "--\r\n";
  if (!has_end && body.text.starts_with(kFormLine) && body.type == kFormType) {
    body.form = Form::kRefused;
  }
  return body;
}

Body BodyMaker::Hostile(const KnownRow& row, const std::string& mark) {
  Body body;
  switch (dice_.Below(10)) {
    case 0:
    case 1:
      body = HostileForm(mark, dice_.OneIn(8) ? "other" : "edge");
      break;
    case 2:
    case 3:
    case 4:
      body = Proper(row, mark);
      break;
    case 5:
      body = {kFormType, GoodForm(mark, "patch"), row.files ? Form::kProper : Form::kRefused};
      break;
    default:
      body = HostileJson(mark);
      break;
  }
  if (dice_.OneIn(60)) {
    body.text.append(std::size_t{1} << 20, ' ');
    body.form = std::max(body.form, ReadsAsForm(body.type) ? Form::kOdd : Form::kRefused);
  }
  return body;
}

}  // namespace kalo::hostile
