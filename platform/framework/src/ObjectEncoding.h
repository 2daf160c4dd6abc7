#pragma once
// Encodings of the object model (devices, properties, modules, tests,
// parameters, versions, tips, alerts, indicators) and of the vocabulary
// values they hold (ValueImp, Table, ZELValue, the capability and category
// sets, constant rows), in the framework's binary encoding (Encoding.h).
//
// Everything goes through the public accessors and setters, field by field
// in a fixed order; a reader checks every row number, count and range, and
// rebuilds the object through its constructors, so a decoded object always
// satisfies the object's own rules.

#include <cstdint>

#include <boost/make_shared.hpp>

#include "Encoding.h"
#include "PropertyTable.h"
#include "zel/AlertTypeImp.h"
#include "zel/CapabilityImp.h"
#include "zel/DataTypeImp.h"
#include "zel/DeviceStateImp.h"
#include "zel/IAlertImp.h"
#include "zel/IDeviceImp.h"
#include "zel/IndicatorImp.h"
#include "zel/IndicatorRunImp.h"
#include "zel/ModuleImp.h"
#include "zel/ModuleState.h"
#include "zel/ModuleTypeImp.h"
#include "zel/OperatingSystem.h"
#include "zel/ParameterImp.h"
#include "zel/ParameterSourceImp.h"
#include "zel/PropertyCategoryImp.h"
#include "zel/PropertyImp.h"
#include "zel/Table.h"
#include "zel/TestImp.h"
#include "zel/TipImp.h"
#include "zel/TipTypeImp.h"
#include "zel/ValueImp.h"
#include "zel/VersionImp.h"
#include "zel/ZELValue.h"

namespace zel {
namespace encoding {

/// A constant row: its number, checked against the table on the way in.
template <class A, class C> void saveConstant(A &ar, C const &c) {
  ar(static_cast<std::uint32_t>(c.enumValue()));
}
template <class A, class C> C loadConstant(A &ar) {
  std::uint32_t row = loadRow(ar, C::constantCount());
  return C::getConstantByIndex(row);
}

/// A fixed row set as its words.
template <class A, class Bits> void saveBits(A &ar, Bits const &b) {
  for (unsigned i = 0; i < Bits::WORDS; ++i)
    ar(static_cast<std::uint64_t>(b.word(i)));
}
template <class A, class Bits> Bits loadBits(A &ar) {
  Bits b;
  for (unsigned i = 0; i < Bits::WORDS; ++i) {
    std::uint64_t w = 0;
    ar(w);
    for (; w != 0; w &= w - 1) { // each member once, lowest first
      unsigned row = i * 64 + static_cast<unsigned>(__builtin_ctzll(w));
      if (row >= Bits::BITS)
        throw BadInput("encoded row set has a member past its catalogue");
      b.insert(row);
    }
  }
  return b;
}

template <class A> std::uint32_t loadSize(A &ar, std::size_t minBytesEach) {
  std::uint32_t n = 0;
  ar(n);
  checkCount(n, minBytesEach);
  return n;
}

} // namespace encoding

// ---- vocabulary -----------------------------------------------------------------

template <class A> void save(A &ar, CapabilityImp const &c) { encoding::saveBits(ar, c.bits()); }
template <class A> void load(A &ar, CapabilityImp &c) {
  c = CapabilityImp(encoding::loadBits<A, CapabilityImp::Bits>(ar));
}
template <class A> void save(A &ar, PropertyCategoryImp const &c) {
  encoding::saveBits(ar, c.bits());
}
template <class A> void load(A &ar, PropertyCategoryImp &c) {
  c = PropertyCategoryImp(encoding::loadBits<A, PropertyCategoryImp::Bits>(ar));
}

template <class A> void save(A &ar, OperatingSystemSet const &s) { ar(s.toString()); }
template <class A> void load(A &ar, OperatingSystemSet &s) {
  String text;
  ar(text);
  s = OperatingSystemSet(text);
}

template <class A> void save(A &ar, ZELValue const &v) {
  ar(static_cast<std::uint8_t>(v.kind()));
  switch (v.kind()) {
  case ZELValue::EMPTY:
    break;
  case ZELValue::INT32:
  case ZELValue::INT64:
    ar(static_cast<std::int64_t>(v.asInt64()));
    break;
  case ZELValue::UINT32:
  case ZELValue::UINT64:
    ar(static_cast<std::uint64_t>(v.asUInt64()));
    break;
  case ZELValue::DOUBLE:
    ar(v.asDouble());
    break;
  case ZELValue::BOOLEAN:
    ar(v.asBool());
    break;
  case ZELValue::STRING:
    ar(v.asString());
    break;
  }
}
template <class A> void load(A &ar, ZELValue &v) {
  std::uint8_t kind = 0;
  ar(kind);
  switch (kind) {
  case ZELValue::EMPTY:
    v = ZELValue();
    return;
  case ZELValue::INT32: {
    std::int64_t i = 0;
    ar(i);
    if (i < INT32_MIN || i > INT32_MAX)
      throw BadInput("encoded INT32 cell out of range");
    v = ZELValue(static_cast<int>(i));
    return;
  }
  case ZELValue::INT64: {
    std::int64_t i = 0;
    ar(i);
    v = ZELValue(static_cast<long long>(i));
    return;
  }
  case ZELValue::UINT32: {
    std::uint64_t u = 0;
    ar(u);
    if (u > UINT32_MAX)
      throw BadInput("encoded UINT32 cell out of range");
    v = ZELValue(static_cast<unsigned int>(u));
    return;
  }
  case ZELValue::UINT64: {
    std::uint64_t u = 0;
    ar(u);
    v = ZELValue(static_cast<unsigned long long>(u));
    return;
  }
  case ZELValue::DOUBLE: {
    double d = 0;
    ar(d);
    v = ZELValue(d);
    return;
  }
  case ZELValue::BOOLEAN: {
    bool b = false;
    ar(b);
    v = ZELValue(b);
    return;
  }
  case ZELValue::STRING: {
    String s;
    ar(s);
    v = ZELValue(s);
    return;
  }
  default:
    throw BadInput("encoded table cell of unknown kind");
  }
}

/// A table: shape, then each cell (anchor, spans, flags, value) in index order.
template <class A> void save(A &ar, Table const &t) {
  ar(static_cast<std::uint16_t>(t.rows()), static_cast<std::uint16_t>(t.columns()));
  std::uint32_t n = t.getCellCount();
  ar(n);
  for (std::uint32_t i = 0; i < n; ++i) {
    unsigned short r = 0, c = 0;
    t.getCellPosition(i, r, c);
    Table::Cell const &cell = t.getCell(r, c);
    ar(static_cast<std::uint16_t>(r), static_cast<std::uint16_t>(c),
       static_cast<std::uint16_t>(cell.getRowSpan()), static_cast<std::uint16_t>(cell.getColSpan()),
       cell.isHeader(), static_cast<std::uint8_t>(cell.getAlignment()));
    ar(cell.getIdentifierString());
    ar(cell.getValue());
  }
}
template <class A> void load(A &ar, Table &t) {
  std::uint16_t rows = 0, cols = 0;
  ar(rows, cols);
  std::uint32_t n = encoding::loadSize(ar, 12);
  std::uint64_t positions = std::uint64_t(rows) * cols;
  // A table's positions are bounded by what its cells can cover: merged
  // cells aside, every position is a cell of at least 12 encoded bytes.
  if (positions > (std::uint64_t(1) << 22) || n > positions)
    throw BadInput("encoded table shape does not fit its cells");
  try {
    Table out(rows, cols);
    for (std::uint32_t i = 0; i < n; ++i) {
      std::uint16_t r = 0, c = 0, rs = 0, cs = 0;
      bool header = false;
      std::uint8_t align = 0;
      String id;
      ZELValue value;
      ar(r, c, rs, cs, header, align);
      ar(id);
      ar(value);
      if (r >= rows || c >= cols || rs == 0 || cs == 0 || align > Table::ALIGN_RIGHT ||
          std::uint32_t(r) + rs > rows || std::uint32_t(c) + cs > cols)
        throw BadInput("encoded table cell lies outside its table");
      if (rs != 1 || cs != 1)
        out.setCellSpans(r, c, rs, cs);
      Table::Cell &cell = out.setCell(r, c, value, header);
      cell.setAlignment(static_cast<Table::CELL_DATA_ALIGNMENT>(align));
      cell.setIdentifierString(id);
    }
    if (out.getCellCount() != n)
      throw BadInput("encoded table cells do not cover the table");
    t = std::move(out);
  } catch (Table::Exception const &e) {
    throw BadInput(String("encoded table is malformed: ") + e.what());
  }
}

template <class A> void save(A &ar, DiscreteMeasurement const &m) { ar(m.value(), m.unit()); }
template <class A> void load(A &ar, DiscreteMeasurement &m) {
  double v = 0;
  String unit;
  ar(v, unit);
  m = DiscreteMeasurement(v, unit);
}
template <class A> void save(A &ar, LocalizedString const &s) { ar(s.key(), s.text()); }
template <class A> void load(A &ar, LocalizedString &s) {
  String key, text;
  ar(key, text);
  s = LocalizedString(key, text);
}

/// A value: its DataType row, then what that type holds.
template <class A> void save(A &ar, ValueImp const &v) {
  std::uint32_t type = v.type().enumValue();
  ar(type);
  if (!v.hasData())
    return;
  switch (type) {
  case DataTypeImp::UINT32:
  case DataTypeImp::INT32:
  case DataTypeImp::UINT64:
  case DataTypeImp::INT64:
    ar(static_cast<std::int64_t>(v.value()));
    break;
  case DataTypeImp::DOUBLE:
  case DataTypeImp::PERCENT:
    ar(v.valueDouble());
    break;
  case DataTypeImp::STRING:
    ar(v.valueString());
    break;
  case DataTypeImp::BOOLEAN:
    ar(v.valueBool());
    break;
  case DataTypeImp::STRINGARRAY:
    ar(v.valueStringArray());
    break;
  case DataTypeImp::UINT32ARRAY:
    ar(v.valueUint32Array());
    break;
  case DataTypeImp::INT32ARRAY:
    ar(v.valueInt32Array());
    break;
  case DataTypeImp::DISCRETEMEASUREMENT:
    ar(v.valueDiscreteMeasurement());
    break;
  case DataTypeImp::TABLE: {
    encoding::DepthGuard depth;
    ar(v.valueTable());
    break;
  }
  case DataTypeImp::DISCRETEMEASUREMENTARRAY:
    ar(v.valueDiscreteMeasurementArray());
    break;
  case DataTypeImp::NONDISCRETEMEASUREMENT: {
    NonDiscreteMeasurement const &m = v.valueNonDiscreteMeasurement();
    ar(m.minimum(), m.maximum(), m.average(), m.unit());
    break;
  }
  case DataTypeImp::LOCALIZEDSTRING:
    ar(v.valueLocalizedString());
    break;
  case DataTypeImp::LOCALIZEDSTRINGARRAY:
    ar(v.valueLocalizedStringArray());
    break;
  default:
    break;
  }
}
template <class A> void load(A &ar, ValueImp &v) {
  std::uint32_t type = encoding::loadRow(ar, DataTypeImp::constantCount());
  switch (type) {
  case DataTypeImp::UINT32: {
    std::int64_t i = 0;
    ar(i);
    if (i < 0 || i > static_cast<std::int64_t>(UINT32_MAX))
      throw BadInput("encoded UINT32 out of range");
    v = ValueImp(static_cast<unsigned int>(i));
    return;
  }
  case DataTypeImp::INT32: {
    std::int64_t i = 0;
    ar(i);
    if (i < INT32_MIN || i > INT32_MAX)
      throw BadInput("encoded INT32 out of range");
    v = ValueImp(static_cast<int>(i));
    return;
  }
  case DataTypeImp::UINT64: {
    std::int64_t i = 0;
    ar(i);
    v = ValueImp(static_cast<unsigned long long>(i));
    return;
  }
  case DataTypeImp::INT64: {
    std::int64_t i = 0;
    ar(i);
    v = ValueImp(static_cast<long long>(i));
    return;
  }
  case DataTypeImp::DOUBLE:
  case DataTypeImp::PERCENT: {
    double d = 0;
    ar(d);
    v = ValueImp(d, DataTypeImp::getConstantByIndex(type));
    return;
  }
  case DataTypeImp::STRING: {
    String s;
    ar(s);
    v = ValueImp(std::move(s));
    return;
  }
  case DataTypeImp::BOOLEAN: {
    bool b = false;
    ar(b);
    v = ValueImp(b);
    return;
  }
  case DataTypeImp::STRINGARRAY: {
    Array<String> a;
    ar(a);
    v = ValueImp(a);
    return;
  }
  case DataTypeImp::UINT32ARRAY: {
    Array<unsigned int> a;
    ar(a);
    v = ValueImp(a);
    return;
  }
  case DataTypeImp::INT32ARRAY: {
    Array<int> a;
    ar(a);
    v = ValueImp(a);
    return;
  }
  case DataTypeImp::DISCRETEMEASUREMENT: {
    DiscreteMeasurement m;
    ar(m);
    v = ValueImp(m);
    return;
  }
  case DataTypeImp::TABLE: {
    encoding::DepthGuard depth;
    Table t;
    ar(t);
    v = ValueImp(t);
    return;
  }
  case DataTypeImp::DISCRETEMEASUREMENTARRAY: {
    Array<DiscreteMeasurement> a;
    ar(a);
    v = ValueImp(a);
    return;
  }
  case DataTypeImp::NONDISCRETEMEASUREMENT: {
    double mn = 0, mx = 0, avg = 0;
    String unit;
    ar(mn, mx, avg, unit);
    v = ValueImp(NonDiscreteMeasurement(mn, mx, avg, unit));
    return;
  }
  case DataTypeImp::LOCALIZEDSTRING: {
    LocalizedString s;
    ar(s);
    v = ValueImp(s);
    return;
  }
  case DataTypeImp::LOCALIZEDSTRINGARRAY: {
    Array<LocalizedString> a;
    ar(a);
    v = ValueImp(a);
    return;
  }
  default: // the sentinel: no data
    v = ValueImp();
    return;
  }
}

// ---- object model ------------------------------------------------------------------

template <class A> void save(A &ar, VersionImp const &v) {
  ar(static_cast<std::uint32_t>(v.major()), static_cast<std::uint32_t>(v.minor()), v.buildid(),
     static_cast<std::uint32_t>(v.revision()));
}
template <class A> void load(A &ar, VersionImp &v) {
  std::uint32_t major = 0, minor = 0, revision = 0;
  String build;
  ar(major, minor, build, revision);
  v = VersionImp(major, minor, build, revision);
}

template <class A> void save(A &ar, TipImp const &t) {
  ar(t.key());
  encoding::saveConstant(ar, t.type());
  ar(t.title(), t.content(), t.contentEx());
}
template <class A> void load(A &ar, TipImp &t) {
  String key;
  ar(key);
  TipTypeImp type = encoding::loadConstant<A, TipTypeImp>(ar);
  LocalizedString title, content, contentEx;
  ar(title, content, contentEx);
  t = TipImp(key, type, title, content, contentEx);
}
template <class A> void save(A &ar, TipArray const &tips) {
  ar(static_cast<std::uint32_t>(tips.size()));
  for (auto const &tip : tips)
    ar(tip ? *tip : TipImp());
}
template <class A> void load(A &ar, TipArray &tips) {
  std::uint32_t n = encoding::loadSize(ar, 20);
  TipArray out;
  for (std::uint32_t i = 0; i < n; ++i) {
    TipImp tip;
    ar(tip);
    out.addTip(tip);
  }
  tips = std::move(out);
}

/// Properties and devices through their private fields. A mirror's cache
/// holds hundreds of thousands of properties: decoding builds each one in
/// place instead of from decoded temporaries (which would copy every text
/// once more), and encoding walks a device's property table through one
/// reference to it instead of a copied array.
struct EncodingAccess {
  /// `p` is a fresh object; a failure leaves it to be thrown away.
  template <class A> static void loadInto(A &ar, PropertyImp &p) {
    ar(p.m_key);
    p.m_type = encoding::loadConstant<A, DataTypeImp>(ar);
    ar(p.m_name, p.m_description, p.m_value, p.m_category, p.m_moduleGuid, p.m_childKeys,
       p.m_later);
  }

  template <class A> static void save(A &ar, IDeviceImp const &d) {
    ar(d.guid(), d.name(), d.description(), d.osLocator(), d.hwLocator(), d.deviceType(),
       d.capabilities(), d.parentGuid());
    encoding::saveConstant(ar, d.deviceState());
    IDeviceImp::Table table = d.tableSnapshot(); // never changed while shared
    std::uint32_t n = table ? static_cast<std::uint32_t>(table->items.size()) : 0;
    ar(n);
    for (std::uint32_t i = 0; i < n; ++i)
      ar(*table->items[i]);
  }

  /// `d` is a fresh device; a failure leaves it to be thrown away.
  template <class A> static void load(A &ar, IDeviceImp &d) {
    ar(d.m_guid, d.m_name, d.m_description, d.m_osLocator, d.m_hwLocator, d.m_deviceType,
       d.m_capabilities, d.m_parentGuid);
    DeviceStateImp state = encoding::loadConstant<A, DeviceStateImp>(ar);
    std::uint32_t n = encoding::loadSize(ar, 16);
    IDeviceImp::Table table;
    if (n) {
      table.reset(new detail::PropertyTable());
      table->items.reserve(n); // n is bounded by the bytes left (loadSize)
      table->index.reserve(n);
      for (std::uint32_t i = 0; i < n; ++i) {
        boost::shared_ptr<PropertyImp> p = boost::make_shared<PropertyImp>();
        loadInto(ar, *p);
        if (!table->insert(p))
          throw BadInput("encoded device holds a property key twice");
      }
    }
    rwlock::write_guard guard(d.m_lock);
    d.m_state = state;
    d.m_table.swap(table);
  }
};

template <class A> void save(A &ar, PropertyImp const &p) {
  ar(p.key());
  encoding::saveConstant(ar, p.type());
  ar(p.localizedName(), p.localizedDescription(), p.value(), p.category(), p.moduleGuid(),
     p.getChildrenKeys(), p.willBeDiscoveredLater());
}
template <class A> void load(A &ar, PropertyImp &p) {
  PropertyImp out;
  EncodingAccess::loadInto(ar, out);
  p = std::move(out);
}

/// A device without its children (the mirror links those by GUID).
template <class A> void save(A &ar, IDeviceImp const &d) { EncodingAccess::save(ar, d); }
/// Decoded straight into the target (a device is big; the caller gives a
/// fresh one, and a failure leaves it to be thrown away).
template <class A> void load(A &ar, IDeviceImp &d) { EncodingAccess::load(ar, d); }

template <class A> void save(A &ar, ParameterImp const &p) {
  ar(p.key(), p.localizedName(), p.localizedDescription(),
     static_cast<std::uint32_t>(p.priority()));
  encoding::saveConstant(ar, p.type());
  ar(p.value());
  encoding::saveConstant(ar, p.valueSource());
}
template <class A> void load(A &ar, ParameterImp &p) {
  String key, name, description;
  std::uint32_t priority = 0;
  ValueImp value;
  ar(key, name, description, priority);
  DataTypeImp type = encoding::loadConstant<A, DataTypeImp>(ar);
  ar(value);
  ParameterSourceImp source = encoding::loadConstant<A, ParameterSourceImp>(ar);
  ParameterImp out;
  out.setKey(key).setLocalizedName(name).setLocalizedDescription(description);
  out.setPriority(priority).setType(type).setRawValue(value, source);
  p = std::move(out);
}

template <class A> void save(A &ar, TestImp const &t) {
  ar(t.moduleGuid(), t.keyInModule(), static_cast<std::uint32_t>(t.type()), t.localizedName(),
     t.localizedDescription(), t.customerErrorCode(), t.helpConcept());
  ar(t.isInteractive(), t.createsOwnGUI(), t.isDestructive(), t.supportsParallelTesting(),
     t.isEnabled());
  ar(t.deviceCapabilitiesSupported(), t.disabledOperatingSystems());
  ar(static_cast<std::uint32_t>(t.parameters().size()));
  for (auto const &p : t.parameters())
    ar(*p);
  ar(t.tips());
}
template <class A> void load(A &ar, TestImp &t) {
  String module, key, name, description, code, help;
  std::uint32_t type = 0;
  bool interactive = false, ownGUI = false, destructive = false, parallel = false, enabled = true;
  CapabilityImp caps;
  OperatingSystemSet os;
  ar(module, key, type, name, description, code, help);
  ar(interactive, ownGUI, destructive, parallel, enabled);
  ar(caps, os);
  TestImp out(module, key, type, name, description);
  out.setCustomerErrorCode(code).setHelpConcept(help).setInteractive(interactive);
  out.setCreatesOwnGUI(ownGUI).setDestructive(destructive).setSupportsParallelTesting(parallel);
  out.setEnabled(enabled).setDeviceCapabilitiesSupported(caps).setDisabledOperatingSystems(os);
  std::uint32_t n = encoding::loadSize(ar, 20);
  for (std::uint32_t i = 0; i < n; ++i) {
    ParameterImp p;
    ar(p);
    out.addParameter(p);
  }
  TipArray tips;
  ar(tips);
  for (auto const &tip : tips)
    out.addTip(*tip);
  t = std::move(out);
}

template <class A> void save(A &ar, ModuleImp const &m) {
  ar(m.guid(), m.localizedName(), m.localizedDescription(), m.helpConcept(), m.version(),
     m.buildDate(), m.company(), m.path());
  encoding::saveConstant(ar, m.type());
  ar(m.supportedCapabilities(nullptr));
  encoding::saveConstant(ar, m.state());
  ar(static_cast<std::uint32_t>(m.clientID()), m.enumReceived(), m.enumTestsCallbackRegistered(),
     static_cast<std::int32_t>(m.index()));
  ar(static_cast<std::uint32_t>(m.parameterList().size()));
  for (auto const &p : m.parameterList())
    ar(*p);
  ar(m.tips(), m.librariesList(), m.localizedLibrariesList(), m.enumerationRequirements(),
     m.enumerationCompletionRequirements());
}
template <class A> void load(A &ar, ModuleImp &m) {
  String guid, name, description, help, buildDate, company, path;
  VersionImp version;
  CapabilityImp caps;
  std::uint32_t clientID = 0;
  std::int32_t index = 0;
  bool enumReceived = false, enumCallback = false;
  ar(guid, name, description, help, version, buildDate, company, path);
  ModuleTypeImp type = encoding::loadConstant<A, ModuleTypeImp>(ar);
  ar(caps);
  ModuleState state = encoding::loadConstant<A, ModuleState>(ar);
  ar(clientID, enumReceived, enumCallback, index);
  ModuleImp out(guid);
  out.setLocalizedName(name).setLocalizedDescription(description).setHelpConcept(help);
  out.setVersion(version).setBuildDate(buildDate).setCompany(company).setPath(path);
  out.setType(type).setSupportedCapabilities(caps).setState(state).setClientID(clientID);
  out.setEnumReceived(enumReceived).setEnumTestsCallbackRegistered(enumCallback).setIndex(index);
  std::uint32_t n = encoding::loadSize(ar, 20);
  for (std::uint32_t i = 0; i < n; ++i) {
    ParameterImp p;
    ar(p);
    out.addParameter(p);
  }
  TipArray tips;
  Array<String> libraries, localized, requirements, completion;
  ar(tips, libraries, localized, requirements, completion);
  for (auto const &tip : tips)
    out.addTip(*tip);
  for (String const &s : libraries)
    out.registerLibrary(s);
  for (String const &s : localized)
    out.registerLocalizedLibrary(s);
  for (String const &s : requirements)
    out.addModuleEnumerationRequirement(s, false);
  for (String const &s : completion)
    out.addModuleEnumerationRequirement(s, true);
  m = std::move(out);
}

/// An alert; its device travels as a GUID (the mirror re-points it).
template <class A> void save(A &ar, IAlertImp const &a) {
  ar(a.guid(), a.key());
  encoding::saveConstant(ar, a.type());
  ar(a.title(), a.message(), a.deviceGuid(), a.tips(), static_cast<std::int64_t>(a.timeTriggered()),
     a.timeIsReal());
  ar(static_cast<std::uint32_t>(a.valueKeys().size()));
  for (String const &k : a.valueKeys())
    ar(k, a.values(k));
}
template <class A> void load(A &ar, IAlertImp &a) {
  String guid, key, deviceGuid;
  LocalizedString title, message;
  TipArray tips;
  std::int64_t time = 0;
  bool real = true;
  ar(guid, key);
  AlertTypeImp type = encoding::loadConstant<A, AlertTypeImp>(ar);
  ar(title, message, deviceGuid, tips, time, real);
  IAlertImp out(guid, key, type, title, message);
  out.setDeviceGuid(deviceGuid).setTimeTriggered(time).setTimeIsReal(real);
  for (auto const &tip : tips)
    out.addTip(*tip);
  std::uint32_t n = encoding::loadSize(ar, 8);
  for (std::uint32_t i = 0; i < n; ++i) {
    String k;
    Array<String> values;
    ar(k, values);
    out.setValues(k, values);
  }
  a = out;
}

template <class A> void save(A &ar, IndicatorImp const &i) {
  ar(i.guid(), i.moduleGuid(), i.key(), i.localizedName(), i.localizedDescription(), i.deviceGuid(),
     static_cast<std::uint32_t>(i.interval()));
}
template <class A> void load(A &ar, IndicatorImp &i) {
  String guid, module, key, name, description, device;
  std::uint32_t interval = 0;
  ar(guid, module, key, name, description, device, interval);
  IndicatorImp out(guid, module, key, name, device);
  out.setLocalizedDescription(description).setInterval(interval);
  i = std::move(out);
}

template <class A> void save(A &ar, IndicatorRunImp const &r) {
  ar(r.guid(), r.indicator(), r.isPaused(), static_cast<std::uint32_t>(r.idleTime()),
     static_cast<std::int64_t>(r.startTime()));
}
template <class A> void load(A &ar, IndicatorRunImp &r) {
  String guid;
  IndicatorImp indicator;
  bool paused = false;
  std::uint32_t idle = 0;
  std::int64_t start = 0;
  ar(guid, indicator, paused, idle, start);
  IndicatorRunImp out;
  out.setGuid(guid).setIndicator(indicator).setPaused(paused, idle).setStartTime(start);
  r = std::move(out);
}

} // namespace zel
