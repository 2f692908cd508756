// A process id file names nothing but a living process, and only by its plain number.

#include <filesystem>

#include "fuzz/fuzz_target.h"
#include "platform/core/process.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  const std::string text = TextOf(data, size);
  PutInput(kInputFile, text);
  const int pid = KLIBCReadPidFile(kInputFile);
  if (pid <= 0) return 0;
  const std::string number = std::to_string(pid);
  const std::size_t at = text.find(number);
  Require(at != std::string::npos && text.find_first_not_of("0 \t\r\n") >= at &&
              text.find_first_not_of(" \t\r\n", at + number.size()) == std::string::npos,
          "the file holds that number alone");
  Require(std::filesystem::exists("/proc/" + number), "the process lives");
  return 0;
}
