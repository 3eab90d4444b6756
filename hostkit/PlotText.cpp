#include "hostkit/PlotText.h"

#include <glib.h>

#include <array>
#include <charconv>
#include <memory>

namespace vidloom {

std::string readableText(const std::string& text) {
  const std::unique_ptr<char, decltype(&g_free)> valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), g_free);
  std::string result = valid.get();
  for (char& c : result) {
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') c = ' ';
  }
  // U+FFFE and U+FFFF are no characters of XML.
  for (const char* const nonCharacter : {"\ufffe", "\uffff"}) {
    for (size_t at = 0; (at = result.find(nonCharacter, at)) != std::string::npos;) result.replace(at, 3, "\ufffd");
  }
  return result;
}

std::string xmlText(const std::string& text) {
  std::string result;
  for (const char c : readableText(text)) {
    if (c == '&') {
      result += "&amp;";
    } else if (c == '<') {
      result += "&lt;";
    } else if (c == '>') {
      result += "&gt;";
    } else {
      result += c;
    }
  }
  return result;
}

std::string plotFont(double sizePixels, bool isBold) { return (isBold ? "Sans Bold " : "Sans ") + plotNumber(sizePixels, 2); }

std::string plotNumber(double value, int mostDecimals) {
  std::array<char, 400> digits{};  // the largest double has 309 before the point
  const char* const end =
      std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed, mostDecimals).ptr;
  std::string text(digits.data(), static_cast<size_t>(end - digits.data()));
  if (text.find('.') != std::string::npos) {
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
  }
  return text == "-0" ? "0" : text;
}

}  // namespace vidloom
