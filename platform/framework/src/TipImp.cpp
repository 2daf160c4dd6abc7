#include "zel/TipImp.h"

namespace zel {

namespace {

void group(String &out, String const &pad, char const *opening, TipImp const &tip,
           char const *label, LocalizedString const &text) {
  out += pad + opening + " - " + tip.title().text() + "\n";
  out += pad + "Key: " + tip.key() + "\n";
  out += pad + label + ": " + tip.type().toString() + ": " + text.text() + "\n";
}

} // namespace

String TipImp::toString(unsigned int indent, bool verbose) const {
  String pad(indent * 2, ' ');
  String out;
  group(out, pad, "Tip", *this, "Content", m_content);
  if (verbose)
    group(out, pad, "Tip (extended)", *this, "Extended", m_contentEx);
  return out;
}

TipArray TipArray::deepCopy() const {
  TipArray out;
  for (auto const &tip : *this)
    out.addTip(tip ? *tip : TipImp());
  return out;
}

bool TipArray::sameContent(TipArray const &other) const {
  if (size() != other.size())
    return false;
  for (std::size_t i = 0; i < size(); ++i) {
    TipImp const *a = (*this)[i].get();
    TipImp const *b = other[i].get();
    if (a != b && (!a || !b || *a != *b))
      return false;
  }
  return true;
}

} // namespace zel
