#include "ostrel/Tip.h"

#include "zel/AssertionFailure.h"
#include "zel/TipImp.h"

namespace ostrel5 {

Tip::~Tip() = default;

zel::String const &Tip::key() const {
  ZEL_ASSERT(m_pImp);
  return m_pImp->key();
}

TipType Tip::type() const {
  ZEL_ASSERT(m_pImp);
  return TipType(m_pImp->type());
}

zel::String Tip::title() const {
  ZEL_ASSERT(m_pImp);
  return m_pImp->title().text();
}

zel::String Tip::text() const {
  ZEL_ASSERT(m_pImp);
  return m_pImp->content().text();
}

zel::String Tip::extended_text() const {
  ZEL_ASSERT(m_pImp);
  return m_pImp->contentEx().text();
}

zel::String Tip::toString(unsigned int indent, bool verbose) const {
  ZEL_ASSERT(m_pImp);
  return m_pImp->toString(indent, verbose);
}

zel::TipImp const *Tip::getImp() const {
  ZEL_ASSERT(m_pImp);
  return m_pImp;
}

} // namespace ostrel5
