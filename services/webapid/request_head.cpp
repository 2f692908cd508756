#include "services/webapid/request_head.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <functional>

namespace kalo::webapid {
namespace {

bool IsTokenCharacter(char c) {
  constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         kMarks.find(c) != std::string_view::npos;
}

bool IsToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), IsTokenCharacter);
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

bool IsControl(char c) {
  return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f;
}

/// Walks over a head from its first line to its end.
class Walk {
 public:
  Walk(const char* begin, const char* end) : at_(begin), end_(end) {}

  void TakeLineEnd() {
    good_ = good_ && end_ - at_ >= 2 && at_[0] == '\0' && at_[1] == '\0';
    if (good_) at_ += 2;
  }

  void TakeHeader(std::string_view name, std::string_view value) {
    // Comparing addresses: the strings may lie anywhere.
    const std::less<> is_before;
    const char* after_colon = name.data() + name.size() + 1;
    good_ = good_ && name.data() == at_ && IsToken(name) && !is_before(value.data(), after_colon) &&
            !is_before(end_, value.data() + value.size()) &&
            std::all_of(after_colon, value.data(), IsBlank) &&
            std::none_of(value.begin(), value.end(), IsControl);
    if (!good_) return;
    if (strncasecmp(name.data(), MHD_HTTP_HEADER_HOST, name.size() + 1) == 0) ++hosts_;
    at_ = value.data() + value.size();
    TakeLineEnd();
  }

  [[nodiscard]] bool HasEndedWell() {
    TakeLineEnd();
    return good_ && at_ == end_ && hosts_ <= 1;
  }

 private:
  const char* at_;
  const char* end_;
  int hosts_ = 0;
  bool good_ = true;
};

}  // namespace

bool IsHeadWellFormed(MHD_Connection* connection, const RequestLine& line) {
  const MHD_ConnectionInfo* info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_REQUEST_HEADER_SIZE);
  const std::string_view method = line.method;
  const std::string_view version = line.version;
  if (info == nullptr || line.target.data() != method.data() + method.size() + 1 ||
      version.data() != line.target.data() + line.target.size() + 1) {
    return false;
  }
  Walk walk(version.data() + version.size(), method.data() + info->header_size);
  walk.TakeLineEnd();
  const auto take = [](void* self, MHD_ValueKind, const char* name, std::size_t name_size,
                       const char* value, std::size_t value_size) {
    static_cast<Walk*>(self)->TakeHeader({name, name_size}, {value, value_size});
    return MHD_YES;
  };
  MHD_get_connection_values_n(connection, MHD_HEADER_KIND, take, &walk);
  return walk.HasEndedWell();
}

}  // namespace kalo::webapid
