// Key=value files: the first line of the input is a key and a value to set in the rest.

#include "fuzz/fuzz_target.h"
#include "host/core/key_value_text.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  const std::string input = TextOf(data, size);
  const std::size_t line = std::min(input.find('\n'), input.size());
  const std::size_t equal = std::min(input.find('='), line);
  const std::string key = input.substr(0, equal);
  const std::string value = equal < line ? input.substr(equal + 1, line - equal - 1) : "";
  kalo::KeyValueText text(line < input.size() ? input.substr(line + 1) : "");
  const std::string before = text.Text();
  const auto other = text.Get("step");
  if (!text.Set(key, value)) {
    Require(text.Text() == before, "what is refused changes nothing");
    return 0;
  }
  Require(text.Get(key) == value, "what is set is read");
  if (key != "step") Require(text.Get("step") == other, "other keys stay");
  const std::string once = text.Text();
  Require(text.Set(key, value) && text.Text() == once, "setting it again changes nothing");
  Require(text.Remove(key) && !text.Get(key), "what is removed is gone");
  if (key != "step") Require(text.Get("step") == other, "other keys stay when one is removed");
  return 0;
}
