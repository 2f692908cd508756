#include "services/webapid/request.h"

#include <strings.h>

#include <charconv>
#include <utility>

namespace kalo::webapid {
namespace {

std::string Value(MHD_Connection* connection, MHD_ValueKind kind, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, kind, name);
  return value == nullptr ? "" : value;
}

}  // namespace

std::string Request::Header(const char* name) const {
  return Value(connection_, MHD_HEADER_KIND, name);
}

std::string Request::Cookie(const char* name) const {
  return Value(connection_, MHD_COOKIE_KIND, name);
}

std::optional<std::uint64_t> Request::ContentLength() const {
  const std::string text = Header(MHD_HTTP_HEADER_CONTENT_LENGTH);
  std::uint64_t length = 0;
  const char* end = text.data() + text.size();
  if (text.empty() || std::from_chars(text.data(), end, length).ptr != end) return std::nullopt;
  return length;
}

bool Request::TellsItsEnd() const {
  struct Count {
    int lengths = 0;
    int encodings = 0;
  } count;
  const auto look = [](void* found, MHD_ValueKind, const char* name, const char*) {
    auto& numbers = *static_cast<Count*>(found);
    if (strcasecmp(name, MHD_HTTP_HEADER_CONTENT_LENGTH) == 0) ++numbers.lengths;
    if (strcasecmp(name, MHD_HTTP_HEADER_TRANSFER_ENCODING) == 0) ++numbers.encodings;
    return MHD_YES;
  };
  MHD_get_connection_values(connection_, MHD_HEADER_KIND, look, &count);
  if (count.encodings == 0) return count.lengths <= 1;
  return count.encodings == 1 && count.lengths == 0 &&
         strcasecmp(Header(MHD_HTTP_HEADER_TRANSFER_ENCODING).c_str(), "chunked") == 0;
}

// There may be several such fields, each with several words.
bool Request::IsLast(std::string_view version) const {
  bool ends = version != MHD_HTTP_VERSION_1_1;
  const auto look = [](void* result, MHD_ValueKind, const char* name, const char* value) {
    if (strcasecmp(name, MHD_HTTP_HEADER_CONNECTION) == 0 &&
        (value == nullptr || strcasecmp(value, "keep-alive") != 0)) {
      *static_cast<bool*>(result) = true;
    }
    return MHD_YES;
  };
  MHD_get_connection_values(connection_, MHD_HEADER_KIND, look, &ends);
  return ends;
}

void Request::Answer(Reply reply) {
  if (reply_) return;
  reply_ = std::move(reply);
  uploads.reset();
  if (std::exchange(suspended_, false)) MHD_resume_connection(connection_);
}

void Request::Suspend() {
  suspended_ = true;
  MHD_suspend_connection(connection_);
}

}  // namespace kalo::webapid
