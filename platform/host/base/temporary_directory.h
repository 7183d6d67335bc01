#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace lumio {

// A new directory below the directory for temporary files (TMPDIR). The destructor removes it with all its content.
class TemporaryDirectory {
public:
  // Throws std::system_error.
  TemporaryDirectory() : path_(std::filesystem::temp_directory_path() / "lumio-XXXXXX") {
    if (!mkdtemp(path_.data())) {
      throw std::system_error(errno, std::generic_category(), "Cannot create " + path_);
    }
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;

  const std::string &Path() const { return path_; }
  std::string operator/(const std::string &name) const { return path_ + "/" + name; }

private:
  std::string path_;
};

} // namespace lumio
