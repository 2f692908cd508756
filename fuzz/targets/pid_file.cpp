// A process id file that nobody holds names no process, whatever it says.

#include "fuzz/fuzz_target.h"
#include "platform/core/process.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  PutInput(kInputFile, TextOf(data, size));
  Require(KLIBCReadPidFile(kInputFile) <= 0, "nobody holds it");
  return 0;
}
