// A reply of the mesh service: some bytes make a message, others read it. Whatever is read of
// whatever came: no crash, no endless loop, and a reader that says whether all was there.

#include <sys/socket.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <memory>

#include "fuzz/fuzz_target.h"
#include "host/core/unique_fd.h"
#include "host/mesh/reply_reader.h"

namespace {

constexpr int kMostElements = 200;

struct Unref {
  void operator()(sd_bus* bus) const { sd_bus_unref(bus); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, Unref>;
using Message = std::unique_ptr<sd_bus_message, Unref>;

// Takes the input apart, byte by byte; an input that has ended goes on with zeros.
class Bytes {
 public:
  explicit Bytes(std::string_view text) : rest_(text) {}
  unsigned Next() {
    if (rest_.empty()) return 0;
    const auto byte = static_cast<unsigned char>(rest_.front());
    rest_.remove_prefix(1);
    return byte;
  }
  std::string Text() {
    std::string text(rest_.substr(0, Next() % 16));
    rest_.remove_prefix(std::min(rest_.size(), text.size()));
    return text;
  }
  [[nodiscard]] bool AtEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

// A bus that never hears an answer: messages can be made on it, not sent.
Bus MakeBus(int fd) {
  sd_bus* bus = nullptr;
  kalo::fuzz::Require(sd_bus_new(&bus) >= 0, "there is a bus");
  Bus made(bus);
  kalo::fuzz::Require(sd_bus_set_fd(bus, fd, fd) >= 0 && sd_bus_start(bus) >= 0, "it starts");
  return made;
}

void AppendBasic(sd_bus_message* message, Bytes& bytes) {
  switch (bytes.Next() % 5) {
    case 0:
      sd_bus_message_append(message, "q", static_cast<std::uint16_t>(bytes.Next()));
      break;
    case 1:
      sd_bus_message_append(message, "u", bytes.Next() * 0x01010101U);
      break;
    case 2:
      sd_bus_message_append(message, "i", static_cast<std::int32_t>(bytes.Next()) - 128);
      break;
    case 3:
      sd_bus_message_append(message, "b", static_cast<int>(bytes.Next() % 2));
      break;
    default:
      sd_bus_message_append(message, "s", bytes.Text().c_str());
  }
}

void AppendArray(sd_bus_message* message, Bytes& bytes) {
  sd_bus_message_open_container(message, 'a', "(ub)");
  for (unsigned count = bytes.Next() % 5; count > 0; --count) {
    sd_bus_message_append(message, "(ub)", bytes.Next(), static_cast<int>(bytes.Next() % 2));
  }
  sd_bus_message_close_container(message);
}

void ReadOne(kalo::mesh::ReplyReader& reader, unsigned what, int& elements) {
  switch (what % 7) {
    case 0:
      (void)reader.Code();
      break;
    case 1:
      (void)reader.Unsigned();
      break;
    case 2:
      (void)reader.Integer();
      break;
    case 3:
      (void)reader.Boolean();
      break;
    case 4:
      (void)reader.Text();
      break;
    case 5:
      reader.ForEach("(ub)", [&] {
        (void)reader.Unsigned();
        (void)reader.Boolean();
        ++elements;
      });
      break;
    default:
      reader.ForEach("{u(us)}", [&] {
        (void)reader.Unsigned();
        reader.Inside("us", [&] { (void)reader.Text(); });
        ++elements;
      });
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::array<int, 2> pair{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair.data()) != 0)
    return 0;
  const kalo::UniqueFd peer(pair[1]);
  const Bus bus = MakeBus(pair[0]);
  const std::string text = kalo::fuzz::TextOf(data, size);
  Bytes bytes(text);
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_signal(bus.get(), &made, "/kalo", "kalo.Test", "Reply") < 0) return 0;
  const Message message(made);
  for (unsigned parts = bytes.Next() % 8; parts > 0; --parts) {
    if (bytes.Next() % 4 == 0) {
      AppendArray(made, bytes);
    } else {
      AppendBasic(made, bytes);
    }
  }
  if (sd_bus_message_seal(made, 1, 0) < 0 || sd_bus_message_rewind(made, 1) < 0) return 0;
  kalo::mesh::ReplyReader reader(made);
  int elements = 0;
  while (!bytes.AtEnd()) {
    const bool was_ok = reader.Ok();
    ReadOne(reader, bytes.Next(), elements);
    kalo::fuzz::Require(was_ok || !reader.Ok(), "what went wrong stays wrong");
  }
  kalo::fuzz::Require(elements <= kMostElements, "no element is read twice");
  return 0;
}
