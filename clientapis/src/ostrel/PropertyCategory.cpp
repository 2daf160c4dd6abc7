#include "ostrel/PropertyCategory.h"

#include <new>

#include "zel/AssertionFailure.h"

namespace ostrel5 {

// Constructors allocate with nothrow: a failed allocation leaves the pointer
// null, and the assertions below are what then stop the caller.

PropertyCategory::PropertyCategory(PropertyCategory_ENUM row)
    : m_propertyCategoryImp(new (std::nothrow) zel::PropertyCategoryImp(row)) {}

PropertyCategory::PropertyCategory(char const *text)
    : m_propertyCategoryImp(new (std::nothrow) zel::PropertyCategoryImp(
          zel::PropertyCategoryImp::createFromString(text))) {}

PropertyCategory::PropertyCategory(zel::String const &text)
    : m_propertyCategoryImp(new (std::nothrow) zel::PropertyCategoryImp(
          zel::PropertyCategoryImp::createFromString(text))) {}

PropertyCategory::PropertyCategory(zel::PropertyCategoryImp const &imp)
    : m_propertyCategoryImp(new (std::nothrow) zel::PropertyCategoryImp(imp)) {}

PropertyCategory::PropertyCategory(PropertyCategory const &other)
    : SharedAll::ApiWrapper(other),
      m_propertyCategoryImp(other.m_propertyCategoryImp
                                ? new (std::nothrow)
                                      zel::PropertyCategoryImp(*other.m_propertyCategoryImp)
                                : nullptr) {}

PropertyCategory::~PropertyCategory() { delete m_propertyCategoryImp; }

PropertyCategory &PropertyCategory::operator=(PropertyCategory const &rhs) {
  ZEL_ASSERT(m_propertyCategoryImp);
  ZEL_ASSERT(rhs.m_propertyCategoryImp);
  *m_propertyCategoryImp = *rhs.m_propertyCategoryImp;
  return *this;
}

PropertyCategory PropertyCategory::operator|(PropertyCategory const &rhs) const {
  ZEL_ASSERT(m_propertyCategoryImp);
  ZEL_ASSERT(rhs.m_propertyCategoryImp);
  return PropertyCategory(*m_propertyCategoryImp | *rhs.m_propertyCategoryImp);
}

PropertyCategory &PropertyCategory::operator|=(PropertyCategory const &rhs) {
  ZEL_ASSERT(m_propertyCategoryImp);
  ZEL_ASSERT(rhs.m_propertyCategoryImp);
  *m_propertyCategoryImp |= *rhs.m_propertyCategoryImp;
  return *this;
}

bool PropertyCategory::operator==(PropertyCategory const &rhs) const {
  ZEL_ASSERT(m_propertyCategoryImp);
  ZEL_ASSERT(rhs.m_propertyCategoryImp);
  return *m_propertyCategoryImp == *rhs.m_propertyCategoryImp;
}

bool PropertyCategory::operator!=(PropertyCategory const &rhs) const {
  ZEL_ASSERT(m_propertyCategoryImp);
  ZEL_ASSERT(rhs.m_propertyCategoryImp);
  return *m_propertyCategoryImp != *rhs.m_propertyCategoryImp;
}

bool PropertyCategory::isCapable(PropertyCategory const &rhs) const {
  ZEL_ASSERT(m_propertyCategoryImp);
  ZEL_ASSERT(rhs.m_propertyCategoryImp);
  return m_propertyCategoryImp->isCapable(*rhs.m_propertyCategoryImp);
}

zel::String PropertyCategory::toString() const {
  ZEL_ASSERT(m_propertyCategoryImp);
  return m_propertyCategoryImp->toString(0, false);
}

zel::String PropertyCategory::stringValue() const { return toString(); }

PropertyCategory::PropertyCategory_ENUM PropertyCategory::enumValue() const {
  ZEL_ASSERT(m_propertyCategoryImp);
  if (m_propertyCategoryImp->count() != 1)
    return PropertyCategory_ENUM::SENTINEL_ROW;
  return static_cast<PropertyCategory_ENUM>(m_propertyCategoryImp->bits().next(0));
}

zel::PropertyCategoryImp const &PropertyCategory::imp() const {
  ZEL_ASSERT(m_propertyCategoryImp);
  return *m_propertyCategoryImp;
}

unsigned int PropertyCategory::constantCount() { return zel::PropertyCategoryImp::ROW_COUNT; }

PropertyCategory PropertyCategory::getConstantByIndex(unsigned int index) {
  return PropertyCategory(static_cast<PropertyCategory_ENUM>(
      index < zel::PropertyCategoryImp::ROW_COUNT ? index : zel::PropertyCategoryImp::SENTINEL));
}

PropertyCategory PropertyCategory::getConstantByString(char const *text, bool caseSensitive) {
  return PropertyCategory(static_cast<PropertyCategory_ENUM>(
      zel::PropertyCategoryImp::rowByString(text, caseSensitive)));
}

PropertyCategory PropertyCategory::getConstantByString(zel::String const &text,
                                                       bool caseSensitive) {
  return getConstantByString(text.getLowerByteString(), caseSensitive);
}

#define OSTREL5_PC_DEFINE_ROW(name)                                                                \
  PropertyCategory PropertyCategory::name() {                                                      \
    return PropertyCategory(PropertyCategory_ENUM::name);                                          \
  }
#define OSTREL5_PC_DEFINE_NAMED(name, text) OSTREL5_PC_DEFINE_ROW(name)
ZEL_PROPERTY_CATEGORY_ROWS(OSTREL5_PC_DEFINE_ROW, OSTREL5_PC_DEFINE_NAMED)
#undef OSTREL5_PC_DEFINE_ROW
#undef OSTREL5_PC_DEFINE_NAMED

} // namespace ostrel5
