#include "zel/CapabilityImp.h"

#include <algorithm>
#include <mutex>

#include "CatalogueText.h"
#include "zel/FileSystem.h"
#include "zel/Logger.h"
#include "zel/Resource.h"
#include "zel/ZELLocale.h"

namespace zel {

namespace {

using catalogue::RowInfo;

constexpr RowInfo kRows[] = {
#define ZEL_CAP_INFO_ROW(name, level) {#name, #name, level, sizeof(#name) - 1},
#define ZEL_CAP_INFO_NAMED(name, text, level) {#name, text, level, sizeof(text) - 1},
    ZEL_CAPABILITY_ROWS(ZEL_CAP_INFO_ROW, ZEL_CAP_INFO_NAMED)
#undef ZEL_CAP_INFO_ROW
#undef ZEL_CAP_INFO_NAMED
};
static_assert(sizeof(kRows) / sizeof(kRows[0]) == CapabilityImp::ROW_COUNT,
              "row table and row enumeration disagree");

Logger &logger() {
  static Logger &log = LogFactory::getLogger("zel.CapabilityImp");
  return log;
}

struct IconFolder {
  std::mutex lock;
  String folder;
};

IconFolder &iconFolder() {
  static IconFolder *folder = new IconFolder; // lives to the end of the process
  return *folder;
}

} // namespace

CapabilityImp::CapabilityImp(String const &text)
    : CapabilityImp(fromString(text.data(), text.length())) {}

CapabilityImp::CapabilityImp(char const *text)
    : CapabilityImp(fromString(text, text ? std::strlen(text) : 0)) {}

CapabilityImp CapabilityImp::fromString(char const *text, std::size_t length, String *unknownName) {
  Bits bits;
  String unknown;
  bool ok = catalogue::parseNames(kRows, ROW_COUNT, text, length, unknown,
                                  [&bits](unsigned row) { bits.insert(row); });
  if (unknownName)
    *unknownName = unknown;
  if (ok)
    return CapabilityImp(bits);
  ZEL_LOG(logger(), 3,
          "Unknown capability name \"" + unknown + "\" in \"" + String(text, length) +
              "\": the set is INVALID");
  return INVALID();
}

int CapabilityImp::priorityLevel() const noexcept {
  int best = -1;
  bool any = false;
  for (unsigned r = m_bits.next(0); r < Bits::BITS; r = m_bits.next(r + 1)) {
    int level = rowLevel(r);
    if (!any || level > best)
      best = level;
    any = true;
  }
  return best;
}

CapabilityImp CapabilityImp::capsWithHighestPriority() const noexcept {
  int best = priorityLevel();
  Bits out;
  for (unsigned r = m_bits.next(0); r < Bits::BITS; r = m_bits.next(r + 1))
    if (rowLevel(r) == best)
      out.insert(r);
  return CapabilityImp(out);
}

void CapabilityImp::setIconResourceBasePath(String const &folder) {
  IconFolder &f = iconFolder();
  std::lock_guard<std::mutex> guard(f.lock);
  f.folder = folder;
}

String CapabilityImp::iconResourceBasePath() {
  IconFolder &f = iconFolder();
  std::lock_guard<std::mutex> guard(f.lock);
  return f.folder;
}

String CapabilityImp::iconName() const {
  // Members by falling level, then by row: the most specific capability
  // draws the icon, and among equals the earlier row.
  unsigned members[ROW_COUNT];
  unsigned n = 0;
  for (unsigned r = m_bits.next(0); r < ROW_COUNT; r = m_bits.next(r + 1))
    members[n++] = r;
  std::stable_sort(members, members + n,
                   [](unsigned a, unsigned b) { return rowLevel(a) > rowLevel(b); });
  String folder = iconResourceBasePath();
  static char const *const kExtensions[] = {".png", ".svg", ".ico"};
  for (unsigned i = 0; i < n; ++i) {
    String name(kRows[members[i]].text);
    if (folder.isEmpty())
      return name;
    for (char const *ext : kExtensions)
      if (FileSystem::isFile(FileSystem::joinPath(folder, name + ext)))
        return name;
  }
  return String(unknownIconName());
}

String CapabilityImp::description() const { return description(ZELLocale::getGlobalLocale()); }

String CapabilityImp::description(ZELLocale const &locale) const {
  String out;
  for (unsigned r = m_bits.next(0); r < ROW_COUNT; r = m_bits.next(r + 1)) {
    String text;
    if (!Resource::getString("capabilities", kRows[r].text, text, locale) || text.isEmpty())
      text = kRows[r].text;
    if (!out.isEmpty())
      out += ", ";
    out += text;
  }
  return out;
}

String CapabilityImp::toString(unsigned indent, bool verbose) const {
  String text = catalogue::writeNames(kRows, ROW_COUNT, m_bits);
  if (indent == 0 && !verbose)
    return text;
  String out(std::size_t(indent) * 2, ' ');
  out += text;
  if (verbose)
    out += " [level " + String::fromInt(priorityLevel()) + "]";
  return out;
}

char const *CapabilityImp::rowString(unsigned row) noexcept {
  return row < ROW_COUNT ? kRows[row].text : "";
}

char const *CapabilityImp::rowAccessorName(unsigned row) noexcept {
  return row < ROW_COUNT ? kRows[row].accessor : "";
}

int CapabilityImp::rowLevel(unsigned row) noexcept {
  return row < ROW_COUNT ? kRows[row].level : 0;
}

unsigned CapabilityImp::rowByString(char const *text, bool caseSensitive) noexcept {
  if (text == nullptr)
    return SENTINEL;
  return catalogue::findRow(kRows, ROW_COUNT, text, std::strlen(text), caseSensitive);
}

unsigned CapabilityImp::rowByString(char const *text, std::size_t length,
                                    bool caseSensitive) noexcept {
  return catalogue::findRow(kRows, ROW_COUNT, text, length, caseSensitive);
}

} // namespace zel
