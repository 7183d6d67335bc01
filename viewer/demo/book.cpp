#include "book.h"

#include <fstream>
#include <stdexcept>

namespace {

constexpr char kHead[] = R"(<!DOCTYPE html>
<html lang="en">
<meta charset="utf-8">
<title>An evening of television</title>
<style>
  body { margin: 0; padding: 2rem; background: #11151f; color: #d6dce6; font: 16px/1.45 "Open Sans", sans-serif }
  h1 { font-weight: 300; color: #fff }
  main { display: flex; gap: 1.5rem; overflow-x: auto; padding-bottom: 1rem; align-items: flex-start }
  section { flex: 0 0 40rem; background: #1a2030; border-radius: 12px; overflow: hidden }
  img { display: block; width: 100% }
  h2, h3, ul, pre { margin: 0; padding: .6rem 1.2rem }
  h2 { font-size: 1.1rem; color: #fff }
  h3 { font-size: .85rem; color: #5caaff; padding-bottom: 0 }
  ul { list-style: none }
  li::before { content: "\2713\00a0\00a0"; color: #7ad692 }
  li.failed, li.failed::before { color: #ff5454 }
  li.failed::before { content: "\2717\00a0\00a0" }
  pre { white-space: pre-wrap; font-size: .8rem; color: #a8b3c4 }
</style>
<h1>An evening of television</h1>
<main>
)";

std::string Escaped(const std::string &text) {
  std::string escaped;
  for (const char character : text) {
    switch (character) {
    case '&':
      escaped += "&amp;";
      break;
    case '<':
      escaped += "&lt;";
      break;
    case '>':
      escaped += "&gt;";
      break;
    default:
      escaped += character;
    }
  }
  return escaped;
}

void Write(std::ostream &page, const Scene &scene) {
  page << "<section>\n";
  if (!scene.picture.empty()) {
    page << "<img src=\"" << scene.picture << "\" alt=\"\">\n";
  }
  page << "<h2>" << Escaped(scene.heading) << "</h2>\n";
  if (!scene.keys.empty()) {
    page << "<h3>Keys</h3>\n<pre>";
    for (const std::string &key : scene.keys) {
      page << Escaped(key) << "\n";
    }
    page << "</pre>\n";
  }
  page << "<h3>Expected</h3>\n<ul>\n";
  for (const auto &[what, happened] : scene.expected) {
    page << (happened ? "<li>" : "<li class=\"failed\">") << Escaped(what) << "</li>\n";
  }
  page << "</ul>\n</section>\n";
}

} // namespace

void WritePage(const std::string &file, const Book &book) {
  std::ofstream page(file);
  page << kHead;
  for (const Scene &scene : book) {
    Write(page, scene);
  }
  page << "</main>\n</html>\n";
  if (!page.flush()) {
    throw std::runtime_error("cannot write " + file);
  }
}
