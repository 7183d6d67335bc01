// Keeps what was expected in each scene of an evening, whether it was met, and the keys and the picture of the scene.
#pragma once

#include <string>
#include <vector>

struct Scene {
  std::string heading;
  std::vector<std::string> keys;                      // and what happened to them
  std::vector<std::pair<std::string, bool>> expected; // and whether it was met
  std::string picture;                                // the name of its file, beside the page; empty if there is none
};

using Book = std::vector<Scene>;

// Writes a web page that shows the evening as a strip of scenes. Throws std::runtime_error.
void WritePage(const std::string &file, const Book &book);
