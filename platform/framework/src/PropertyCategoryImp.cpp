#include "zel/PropertyCategoryImp.h"

#include "CatalogueText.h"
#include "zel/Logger.h"

namespace zel {

namespace {

using catalogue::RowInfo;

constexpr RowInfo kRows[] = {
#define ZEL_PC_INFO_ROW(name) {#name, #name, 0, sizeof(#name) - 1},
#define ZEL_PC_INFO_NAMED(name, text) {#name, text, 0, sizeof(text) - 1},
    ZEL_PROPERTY_CATEGORY_ROWS(ZEL_PC_INFO_ROW, ZEL_PC_INFO_NAMED)
#undef ZEL_PC_INFO_ROW
#undef ZEL_PC_INFO_NAMED
};
static_assert(sizeof(kRows) / sizeof(kRows[0]) == PropertyCategoryImp::ROW_COUNT,
              "row table and row enumeration disagree");

Logger &logger() {
  static Logger &log = LogFactory::getLogger("zel.PropertyCategoryImp");
  return log;
}

} // namespace

PropertyCategoryImp PropertyCategoryImp::createFromString(char const *text) {
  return fromString(text, text ? std::strlen(text) : 0);
}

PropertyCategoryImp PropertyCategoryImp::createFromString(String const &text) {
  return fromString(text.data(), text.length());
}

PropertyCategoryImp PropertyCategoryImp::fromString(char const *text, std::size_t length,
                                                    String *unknownName) {
  Bits bits;
  String unknown;
  bool ok = catalogue::parseNames(kRows, ROW_COUNT, text, length, unknown,
                                  [&bits](unsigned row) { bits.insert(row); });
  if (unknownName)
    *unknownName = unknown;
  if (ok)
    return PropertyCategoryImp(bits);
  ZEL_LOG(logger(), 3,
          "Unknown property category name \"" + unknown + "\" in \"" + String(text, length) +
              "\": the set is INVALID");
  return INVALID();
}

String PropertyCategoryImp::toString(unsigned indent, bool) const {
  String text = catalogue::writeNames(kRows, ROW_COUNT, m_bits);
  if (indent == 0)
    return text;
  return String(std::size_t(indent) * 2, ' ') + text;
}

char const *PropertyCategoryImp::rowString(unsigned row) noexcept {
  return row < ROW_COUNT ? kRows[row].text : "";
}

char const *PropertyCategoryImp::rowAccessorName(unsigned row) noexcept {
  return row < ROW_COUNT ? kRows[row].accessor : "";
}

unsigned PropertyCategoryImp::rowByString(char const *text, bool caseSensitive) noexcept {
  if (text == nullptr)
    return SENTINEL;
  return catalogue::findRow(kRows, ROW_COUNT, text, std::strlen(text), caseSensitive);
}

} // namespace zel
