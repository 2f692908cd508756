#include "programs/kalo-mesh/failure.h"

#include <array>

#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {
namespace {

struct Hint {
  int code;
  const char* next;
};

constexpr std::array kHints = {
    Hint{117, "Look into the system log of node 0 (/var/log/messages) for the cause."},
    Hint{403, "Check the parameters against docs/web-api.md."},
    Hint{1001, "Hand in patches of one and the same version for all models."},
    Hint{1002, "Every node of the handed-in models runs this version or a newer one already."},
    Hint{1003, "Hand in one intact, signed patch for every model of the mesh (kalo-mesh nodes)."},
    Hint{5202, "Wait until the automatic update has ended, then try again."},
    Hint{5209, "The nodes install all the same: see kalo-mesh nodes."},
    Hint{5221, "The patch is damaged or not signed by the maker of this node: get it again."},
    Hint{5223, "The node runs this version or a newer one already."},
    Hint{5224, "Make room on the node's storage, then upload again."},
    Hint{7003, "Sign in with kalo-mesh login."},
    Hint{7004, "Sign in again with kalo-mesh login."},
    Hint{7005, "Sign in again with kalo-mesh login."},
    Hint{7008, "Try again in a moment."},
    Hint{7012, "Check user name and password."},
    Hint{7013, "Wait before the next try; too many wrong passwords came from here."},
    Hint{9001, "Upload patches first, or wait until the running update or transfer has ended."},
    Hint{9002, "A node gave no usable answer: see kalo-mesh nodes which one is offline."},
};

std::string Describe(int code, const std::string& sentence) {
  std::string text =
      "refused by the server: " + Printable(sentence) + " (" + std::to_string(code) + ")";
  for (const Hint& hint : kHints) {
    if (hint.code == code) text += std::string("\n  ") + hint.next;
  }
  return text;
}

}  // namespace

Refusal::Refusal(int code, const std::string& sentence)
    : Failure(kRefused, Describe(code, sentence)), code_(code) {}

}  // namespace kalo::cli
