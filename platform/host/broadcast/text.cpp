#include "text.h"

#include <iconv.h>

#include <cerrno>
#include <map>

namespace lumio::broadcast {

namespace {

constexpr const char *kBasicPlane = "UTF-16BE";
constexpr const char *kReplacement = "\xef\xbf\xbd"; // U+FFFD
constexpr std::uint8_t kLineBreak = 0x8a;
constexpr std::uint8_t kEuro = 0xa4; // in the default table only

struct Table {
  std::string encoding; // iconv's name; empty if there is none
  std::size_t selector; // bytes that name the table
};

std::string Iso8859(unsigned part) {
  return part == 0 || part > 15 || part == 12 ? "" : "ISO-8859-" + std::to_string(part);
}

// The first byte of a text names its table unless it is a character.
Table TableOf(Bytes text) {
  switch (text[0]) {
  case 0x10:
    return {text.size() < 3 ? "" : Iso8859(text.Get16(1)), 3};
  case 0x11:
    return {kBasicPlane, 1};
  case 0x12:
    return {"EUC-KR", 1};
  case 0x13:
    return {"GB2312", 1};
  case 0x14:
    return {"BIG5", 1};
  case 0x15:
    return {"UTF-8", 1};
  default:
    if (text[0] >= 0x20) {
      return {"ISO_6937", 0};
    }
    return {text[0] >= 0x01 && text[0] <= 0x0b ? Iso8859(text[0] + 4U) : "", 1};
  }
}

// A converter to UTF-8. Each thread has its own converter for each table, because threads cannot share one.
class Converter {
public:
  explicit Converter(const std::string &encoding)
      : iconv_(iconv_open("UTF-8", encoding.c_str())), unit_(encoding == kBasicPlane ? 2 : 1) {}
  ~Converter() {
    if (IsThere()) {
      iconv_close(iconv_);
    }
  }
  Converter(const Converter &) = delete;
  Converter &operator=(const Converter &) = delete;

  bool IsThere() const { return reinterpret_cast<std::intptr_t>(iconv_) != -1; }

  void Append(std::string &to, Bytes from) {
    char *in = reinterpret_cast<char *>(const_cast<std::uint8_t *>(from.data()));
    std::size_t in_left = from.size();
    iconv(iconv_, nullptr, nullptr, nullptr, nullptr);
    bool flushed = false;
    while (!flushed) {
      char room[256];
      char *out = room;
      std::size_t out_left = sizeof room;
      flushed = in_left == 0; // a character that could still combine is held back until the end
      const std::size_t result = iconv(iconv_, flushed ? nullptr : &in, &in_left, &out, &out_left);
      to.append(room, sizeof room - out_left);
      if (result == static_cast<std::size_t>(-1) && errno != E2BIG && !flushed) {
        to += kReplacement;
        const std::size_t skipped = errno == EINVAL ? in_left : std::min(unit_, in_left);
        in += skipped;
        in_left -= skipped;
      }
    }
  }

private:
  iconv_t iconv_;
  std::size_t unit_; // bytes of the shortest character
};

Converter &ConverterOf(const std::string &encoding) {
  thread_local std::map<std::string, Converter> converters;
  return converters.try_emplace(encoding, encoding).first->second;
}

// In tables with one or two bytes per character, control codes are single bytes.
void AppendWithControls(std::string &to, Bytes text, Converter &converter, bool is_default) {
  std::size_t start = 0;
  const auto flush = [&](std::size_t end) {
    if (end > start) {
      converter.Append(to, text.First(end).From(start));
    }
    start = end + 1;
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::uint8_t byte = text[i];
    if (byte < 0x20 || (byte >= 0x7f && byte <= 0x9f)) {
      flush(i);
      to += byte == kLineBreak ? "\n" : "";
    } else if (byte == kEuro && is_default) {
      flush(i);
      to += "\xe2\x82\xac";
    }
  }
  flush(text.size());
}

// In the other tables they are the characters U+E080 to U+E09F. Also removes those below a space and U+007F to U+009F.
std::string WithoutControls(const std::string &text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = [&](std::size_t k) { return i + k < text.size() ? static_cast<unsigned char>(text[i + k]) : 0U; };
    if (byte(0) == 0xee && byte(1) == 0x82 && byte(2) < 0xa0) {
      result += byte(2) == kLineBreak ? "\n" : "";
      i += 2;
    } else if (byte(0) == 0xc2 && byte(1) < 0xa0) {
      i += 1;
    } else if (byte(0) >= 0x20 && byte(0) != 0x7f) {
      result += text[i];
    }
  }
  return result;
}

} // namespace

std::string DecodeText(Bytes text) {
  if (text.empty()) {
    return "";
  }
  const Table table = TableOf(text);
  if (table.encoding.empty() || !ConverterOf(table.encoding).IsThere()) {
    return kReplacement;
  }
  Converter &converter = ConverterOf(table.encoding);
  const Bytes characters = text.From(table.selector);
  std::string result;
  if (table.encoding == kBasicPlane || table.encoding == "UTF-8") {
    converter.Append(result, characters);
    return WithoutControls(result);
  }
  AppendWithControls(result, characters, converter, table.selector == 0);
  return result;
}

std::string ValidUtf8(const std::string &text) {
  std::string result;
  ConverterOf("UTF-8").Append(result, Bytes(reinterpret_cast<const std::uint8_t *>(text.data()), text.size()));
  return result;
}

} // namespace lumio::broadcast
