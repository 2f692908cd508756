#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <string>

namespace kalo::mesh {

/// Reads a reply value by value. A value that cannot be read is empty, and so is every later one;
/// Ok() tells at the end whether all came.
class ReplyReader {
 public:
  /// @param message borrowed
  explicit ReplyReader(sd_bus_message* message) : message_(message) {}

  [[nodiscard]] std::uint16_t Code();
  [[nodiscard]] std::uint32_t Unsigned();
  [[nodiscard]] std::int32_t Integer();
  [[nodiscard]] bool Boolean();
  [[nodiscard]] std::string Text();

  /// Calls `read` once for each element of an array.
  /// @param element the element's type: "(ub)", or "{u(ssi)}" for a map, whose entry it opens
  template <typename Read>
  void ForEach(const char* element, Read read) {
    Enter(SD_BUS_TYPE_ARRAY, element);
    const char type = element[0] == '{' ? SD_BUS_TYPE_DICT_ENTRY : SD_BUS_TYPE_STRUCT;
    const std::string contents = Contents(element);
    while (EnterNext(type, contents.c_str())) {
      read();
      Leave();
    }
    Leave();
  }
  /// Calls `read` inside a structure.
  template <typename Read>
  void Inside(const char* contents, Read read) {
    Enter(SD_BUS_TYPE_STRUCT, contents);
    read();
    Leave();
  }

  [[nodiscard]] bool Ok() const { return ok_; }

 private:
  // Text between the brackets.
  static std::string Contents(const std::string& element) {
    return element.substr(1, element.size() - 2);
  }
  void Basic(char type, void* value);
  void Enter(char type, const char* contents);
  // @return false at the end of the container.
  bool EnterNext(char type, const char* contents);
  void Leave();

  sd_bus_message* message_;
  bool ok_ = true;
};

}  // namespace kalo::mesh
