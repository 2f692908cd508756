#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/core/unique_fd.h"

namespace kalo::test {

/// An empty folder, gone with everything in it afterwards. Files are written and read plainly,
/// without the code under test.
class Folder {
 public:
  Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder();

  [[nodiscard]] std::string Path(const std::string& name = "") const;
  void Write(const std::string& name, const std::string& contents) const;
  [[nodiscard]] std::string Read(const std::string& name) const;
  /// @return the names in it, sorted.
  [[nodiscard]] std::vector<std::string> Names() const;

 private:
  std::filesystem::path path_;
};

/// A small tmpfs on a folder while this lives.
class SmallTmpfs {
 public:
  explicit SmallTmpfs(const std::string& path);
  SmallTmpfs(const SmallTmpfs&) = delete;
  SmallTmpfs& operator=(const SmallTmpfs&) = delete;
  ~SmallTmpfs();

  /// Fills the rest of its space by a file "filler".
  void Fill() const;
  void MakeReadOnly() const;

 private:
  std::string path_;
};

/// A forked process that runs a function and ends with its result; killed if it lives too long.
class Child {
 public:
  explicit Child(const std::function<int()>& body);
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child();

  void Kill();
  /// @return as WaitForExit.
  int Wait();

 private:
  pid_t pid_;
};

/// A pipe, both ends close-on-exec.
struct Pipe {
  Pipe();
  /// Waits for one byte or the end of the other side.
  void WaitForByte() const;
  void SendByte() const;
  /// Closes our writing end and reads until everybody else closed theirs.
  std::string ReadAll();

  UniqueFd read_end;
  UniqueFd write_end;
};

}  // namespace kalo::test
