#pragma once

#include <string>

#include "tests/hostile/dice.h"
#include "tests/hostile/known_rows.h"

namespace kalo::hostile {

/// What is wrong with a request, or a part of it, besides who sends it. In order: the worst part of
/// a request is what the whole is.
enum class Form {
  kProper,   ///< nothing
  kOdd,      ///< the server may take it or leave it
  kRefused,  ///< nobody may get by with it
};

struct Body {
  std::string type;
  std::string text;
  Form form = Form::kProper;
};

/// Copies of the administrator, whose names are tried; each with this password.
inline constexpr int kTriedUsers = 8;
inline constexpr const char* kTriedUserPrefix = "admin";
inline constexpr const char* kRightPassword = "correct horse";

/// The type of forms, and the line between their parts. Of one character it would not do: the
/// server's library reads no such form.
inline constexpr const char* kFormType = "multipart/form-data; boundary=edge";
inline constexpr const char* kFormLine = "--edge\r\n";

/// @return a form as a client would send it that means well: a field and a file.
[[nodiscard]] std::string GoodForm(const std::string& mark, const std::string& file);

/// Makes what requests carry.
class BodyMaker {
 public:
  /// @param dice borrowed; outlives this object
  explicit BodyMaker(Dice& dice) : dice_(dice) {}

  /// As a client would send it that means well.
  [[nodiscard]] Body Proper(const KnownRow& row, const std::string& mark);
  /// Whatever a client should not send.
  [[nodiscard]] Body Hostile(const KnownRow& row, const std::string& mark);
  /// A try to sign in with wrong words, or with the right ones in a way that does not count.
  [[nodiscard]] Body WrongSignIn();
  /// A try to sign in with the right words.
  [[nodiscard]] Body RightSignIn();

 private:
  [[nodiscard]] Body HostileJson(const std::string& mark);
  [[nodiscard]] Body HostileForm(const std::string& mark, const std::string& boundary);
  [[nodiscard]] std::string OddName();
  [[nodiscard]] std::string TriedUser();

  Dice& dice_;
};

}  // namespace kalo::hostile
