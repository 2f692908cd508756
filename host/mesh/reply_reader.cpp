#include "host/mesh/reply_reader.h"

namespace kalo::mesh {

void ReplyReader::Basic(char type, void* value) {
  if (ok_) ok_ = sd_bus_message_read_basic(message_, type, value) > 0;
}

std::uint16_t ReplyReader::Code() {
  std::uint16_t value = 0;
  Basic(SD_BUS_TYPE_UINT16, &value);
  return value;
}

std::uint32_t ReplyReader::Unsigned() {
  std::uint32_t value = 0;
  Basic(SD_BUS_TYPE_UINT32, &value);
  return value;
}

std::int32_t ReplyReader::Integer() {
  std::int32_t value = 0;
  Basic(SD_BUS_TYPE_INT32, &value);
  return value;
}

bool ReplyReader::Boolean() {
  int value = 0;
  Basic(SD_BUS_TYPE_BOOLEAN, &value);
  return value != 0;
}

std::string ReplyReader::Text() {
  const char* value = nullptr;
  Basic(SD_BUS_TYPE_STRING, static_cast<void*>(&value));
  return value != nullptr ? value : "";
}

void ReplyReader::Enter(char type, const char* contents) {
  if (ok_) ok_ = sd_bus_message_enter_container(message_, type, contents) > 0;
}

bool ReplyReader::EnterNext(char type, const char* contents) {
  if (!ok_) return false;
  const int result = sd_bus_message_enter_container(message_, type, contents);
  if (result < 0) ok_ = false;
  return result > 0;
}

void ReplyReader::Leave() {
  if (ok_) ok_ = sd_bus_message_exit_container(message_) >= 0;
}

}  // namespace kalo::mesh
