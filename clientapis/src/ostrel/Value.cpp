#include "ostrel/Value.h"

#include "ostrel/Table.h"
#include "zel/Exception.h"
#include "zel/ValueImp.h"

namespace ostrel5 {

unsigned int VALUE_NOT_SET() { return 0xFFFFFFFFu; }

zel::String const &VALUE_NOT_SET_STRING() {
  static zel::String const notSet("-1");
  return notSet;
}

struct Value::Block {
  typedef zel::SharedResource<zel::PointerStorage<zel::ValueImp, 0, 3>, 1> Holder;
  explicit Block(zel::ValueImp *imp) : value(imp) {}
  explicit Block(Holder const &shared) : value(shared) {}
  Holder value;
};

Value::Value(zel::ValueImp *adopted) : m_imp(new Block(adopted)) {}

Value::Value() : Value(new zel::ValueImp()) {}
Value::Value(zel::ValueImp const &imp) : Value(new zel::ValueImp(imp)) {}
Value::Value(int value) : Value(new zel::ValueImp(value)) {}
Value::Value(long value) : Value(new zel::ValueImp(value)) {}
Value::Value(unsigned int value) : Value(new zel::ValueImp(value)) {}
Value::Value(unsigned long value) : Value(new zel::ValueImp(value)) {}
Value::Value(unsigned long long value) : Value(new zel::ValueImp(value)) {}
Value::Value(bool value) : Value(new zel::ValueImp(value)) {}
Value::Value(char const *text) : Value(new zel::ValueImp(text)) {}
Value::Value(zel::String const &text) : Value(new zel::ValueImp(text)) {}
Value::Value(double value) : Value(new zel::ValueImp(value, zel::DataTypeImp::DOUBLE)) {}

Value::Value(char const *const *texts, int count) : m_imp(nullptr) {
  zel::Array<zel::String> items;
  for (int i = 0; i < count; ++i)
    items.append(zel::String(texts[i]));
  m_imp = new Block(new zel::ValueImp(items));
}

Value::Value(unsigned int *const values, int count) : m_imp(nullptr) {
  zel::Array<unsigned int> items;
  for (int i = 0; i < count; ++i)
    items.append(values[i]);
  m_imp = new Block(new zel::ValueImp(items));
}

Value::Value(Value const &other) : m_imp(new Block(other.m_imp->value)) {}

Value &Value::operator=(Value const &other) {
  if (this != &other) {
    Block *fresh = new Block(other.m_imp->value);
    delete m_imp;
    m_imp = fresh;
  }
  return *this;
}

Value::~Value() { delete m_imp; }

DataType Value::getType() const { return DataType(m_imp->value->type()); }

int Value::toInt32() const { return static_cast<int>(m_imp->value->value()); }

unsigned int Value::toUint32() const { return static_cast<unsigned int>(m_imp->value->value()); }

unsigned long long Value::toUint64() const {
  return static_cast<unsigned long long>(m_imp->value->value());
}

double Value::toDouble() const {
  try {
    return m_imp->value->valueDouble();
  } catch (zel::TypeMismatch const &) {
    return zel::String::strToReal64(toString());
  }
}

bool Value::toBool() const {
  try {
    return m_imp->value->valueBool();
  } catch (zel::TypeMismatch const &) {
    return zel::String::strToBoolean(toString());
  }
}

zel::String Value::toString() const { return m_imp->value->toString(true); }

Table Value::toTable() const { return Table(m_imp->value->valueTable()); }

zel::Array<zel::String> Value::toZELStringArray() const { return toString().tokenize(","); }

unsigned int Value::stringCount() const {
  zel::ValueImp const &imp = *m_imp->value;
  try {
    if (imp.type() == zel::DataTypeImp::LOCALIZEDSTRINGARRAY)
      return imp.localizedStringArraySize();
    return imp.stringArraySize();
  } catch (zel::TypeMismatch const &) {
    return toString().length() > 1 ? 1 : 0;
  }
}

zel::String Value::stringAtIndex(unsigned int index) const {
  zel::ValueImp const &imp = *m_imp->value;
  try {
    if (imp.type() == zel::DataTypeImp::LOCALIZEDSTRINGARRAY)
      return imp.getLocalizedStringInArray(index).text();
    return imp.getStringInArray(index);
  } catch (zel::TypeMismatch const &) {
    return toString();
  }
}

unsigned int Value::uint32Count() const {
  try {
    return m_imp->value->Uint32ArraySize();
  } catch (zel::TypeMismatch const &) {
    return 0;
  }
}

unsigned int Value::uint32AtIndex(unsigned int index) const {
  try {
    return m_imp->value->getUint32InArray(index);
  } catch (zel::TypeMismatch const &) {
    return 0;
  }
}

bool Value::operator==(Value const &other) const { return *m_imp->value == *other.m_imp->value; }

bool Value::operator!=(Value const &other) const { return *m_imp->value != *other.m_imp->value; }

} // namespace ostrel5
