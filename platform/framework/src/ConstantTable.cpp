#include "zel/ConstantTable.h"

#include "zel/Resource.h"
#include "zel/ZELLocale.h"

namespace zel {

namespace {
inline unsigned char foldAscii(unsigned char c) noexcept {
  return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c - 'A' + 'a') : c;
}
} // namespace

bool constantTextEqualNoCase(char const *a, char const *b) noexcept {
  auto const *x = reinterpret_cast<unsigned char const *>(a ? a : "");
  auto const *y = reinterpret_cast<unsigned char const *>(b ? b : "");
  for (;; ++x, ++y) {
    if (foldAscii(*x) != foldAscii(*y))
      return false;
    if (*x == 0)
      return true;
  }
}

String localizedConstantText(char const *family, char const *name, char const *fallback) {
  if (!name || !*name)
    return String(fallback);
  String key = String(family) + "." + name;
  String text;
  if (Resource::getString("constants", key.c_str(), text, ZELLocale::getGlobalLocale()))
    return text;
  return String(fallback);
}

} // namespace zel
