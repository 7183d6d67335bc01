#include "theme.h"

#include <filesystem>
#include <system_error>

std::string FindTheme() {
  namespace fs = std::filesystem;
  std::error_code ignored;
  const fs::path directory = fs::read_symlink("/proc/self/exe", ignored).parent_path();
  const fs::path built = directory / "lumio-viewer.edj";
  return fs::exists(built, ignored) ? built : directory.parent_path() / "share" / "lumio-viewer" / "lumio-viewer.edj";
}
