#include "host/core/strict_json.h"

#include <json/reader.h>
#include <json/writer.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <sstream>

namespace kalo {
namespace {

constexpr int kDeepest = 64;

struct Sequence {
  std::size_t length;
  unsigned char second_low;  // bounds of the second byte; they exclude overlong and surrogates
  unsigned char second_high;
};

Sequence SequenceOf(unsigned char lead) {
  if (lead < 0x80) return {1, 0, 0};
  if (lead < 0xC2) return {0, 0, 0};
  if (lead < 0xE0) return {2, 0x80, 0xBF};
  if (lead == 0xE0) return {3, 0xA0, 0xBF};
  if (lead == 0xED) return {3, 0x80, 0x9F};
  if (lead < 0xF0) return {3, 0x80, 0xBF};
  if (lead == 0xF0) return {4, 0x90, 0xBF};
  if (lead < 0xF4) return {4, 0x80, 0xBF};
  if (lead == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

// Making a reader or a writer takes the library longer than reading or writing what is usual here.
// They hold nothing between two documents; each thread has its own.
Json::CharReader& StrictReader() {
  thread_local const std::unique_ptr<Json::CharReader> reader([] {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = kDeepest;
    builder["skipBom"] = false;
    return builder.newCharReader();
  }());
  return *reader;
}

Json::StreamWriter& CompactWriter() {
  thread_local const std::unique_ptr<Json::StreamWriter> writer([] {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return builder.newStreamWriter();
  }());
  return *writer;
}

}  // namespace

bool IsUtf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const Sequence sequence = SequenceOf(static_cast<unsigned char>(text[i]));
    if (sequence.length == 0 || sequence.length > text.size() - i) return false;
    for (std::size_t k = 1; k < sequence.length; ++k) {
      const auto byte = static_cast<unsigned char>(text[i + k]);
      const unsigned char low = k == 1 ? sequence.second_low : 0x80;
      const unsigned char high = k == 1 ? sequence.second_high : 0xBF;
      if (byte < low || byte > high) return false;
    }
    i += sequence.length;
  }
  return true;
}

std::optional<Json::Value> ParseStrictJson(std::string_view text) {
  if (!IsUtf8(text)) return std::nullopt;
  try {
    Json::Value value;
    // Nesting above the limit comes out as an exception, not as false.
    if (!StrictReader().parse(text.data(), text.data() + text.size(), &value, nullptr)) {
      return std::nullopt;
    }
    return value;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::string WriteJson(const Json::Value& value) {
  // A stream of its own for each text would be made for longer than it is written to.
  thread_local std::ostringstream text;
  text.str({});
  CompactWriter().write(value, &text);
  return text.str();
}

}  // namespace kalo
