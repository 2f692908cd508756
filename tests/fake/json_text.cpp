#include "tests/fake/json_text.h"

#include <json/reader.h>
#include <json/writer.h>

#include <sstream>
#include <stdexcept>

namespace fake {

std::string ToText(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

Json::Value FromText(const std::string& text) {
  Json::Value value;
  std::istringstream stream(text);
  std::string errors;
  if (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &errors)) {
    throw std::invalid_argument(errors);
  }
  return value;
}

}  // namespace fake
