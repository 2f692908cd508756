#include "tests/hostile/files.h"

#include <filesystem>
#include <functional>
#include <system_error>

#include "tests/hostile/rows.h"
#include "tests/services/webapid/server_fixture.h"

namespace kalo::hostile {
namespace {

namespace fs = std::filesystem;

std::string Describe(const fs::directory_entry& entry) {
  std::error_code ignored;
  if (entry.is_symlink(ignored)) return "-> " + fs::read_symlink(entry.path(), ignored).string();
  const fs::file_status status = entry.symlink_status(ignored);
  std::string text = std::to_string(static_cast<int>(status.type())) + " " +
                     std::to_string(static_cast<unsigned>(status.permissions()));
  if (!fs::is_regular_file(status)) return text;
  const std::string content = test::ReadTestFile(entry.path());
  text += " " + std::to_string(content.size());
  text += " " + std::to_string(std::hash<std::string>()(content));
  return text + " " + std::to_string(entry.last_write_time(ignored).time_since_epoch().count());
}

}  // namespace

// The build folder is others' as well, and lies below /tmp when the tree does.
std::map<std::string, std::string> Files() {
  std::map<std::string, std::string> files;
  for (const char* folder : {"/etc/kalo", "/run", "/tmp", "/var/lib", "/volume1", "/usr/kalo"}) {
    std::error_code ignored;
    for (fs::recursive_directory_iterator entry(folder, ignored), end; entry != end;
         entry.increment(ignored)) {
      const std::string path = entry->path();
      if (path == BUILD) {
        entry.disable_recursion_pending();
      } else if (path.starts_with("/var/lib/kalo/sessions/")) {
        files[path] = "a session";
      } else if (path != kReached) {
        files[path] = Describe(*entry);
      }
    }
  }
  return files;
}

}  // namespace kalo::hostile
