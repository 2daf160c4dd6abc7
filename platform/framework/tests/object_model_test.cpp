// The object-model classes the mirror holds: the rules callers rely on
// (identity, case-blind parameters, declared types, child properties, text
// forms that other code parses) and their encodings.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "ObjectEncoding.h"
#include "zel/Exception.h"
#include "zel/IAlertImp.h"
#include "zel/IDeviceImp.h"
#include "zel/IndicatorRunImp.h"
#include "zel/ModuleImp.h"
#include "zel/TestImp.h"
#include "zel/VersionImp.h"

using namespace zel;

namespace {

template <class T> T roundTrip(T const &value) {
  T back;
  encoding::decode(encoding::encode(value), back);
  return back;
}

boost::shared_ptr<PropertyImp> prop(char const *key, ValueImp const &v,
                                    std::initializer_list<char const *> children = {}) {
  boost::shared_ptr<PropertyImp> p(new PropertyImp(key, v));
  for (char const *c : children)
    p->addChildKey(c);
  return p;
}

/// A value encoded and decoded through the field writer and reader, which
/// carry the mirror's states, instead of the archive itself.
template <class T> struct FieldsOut { T const &value; };
template <class T> struct FieldsIn { T &value; };
template <class T> void save(OutputArchive &ar, FieldsOut<T> const &f) {
  encoding::FieldWriter<OutputArchive> writer(ar);
  writer(f.value);
  writer.flush();
}
template <class T> void load(InputArchive &, FieldsIn<T> &f) {
  encoding::FieldReader reader(*encoding::DecodeContext::current());
  reader(f.value);
}

/// `value`'s bytes in the byte order that is not this machine's.
template <class T> std::string foreign(T value) {
  std::string b(reinterpret_cast<char const *>(&value), sizeof value);
  return std::string(b.rbegin(), b.rend());
}

} // namespace

TEST(VersionImp, TextFormReadsBackAndShortFormsAreAccepted) {
  struct Case {
    char const *text;
    bool ok;
    unsigned major, minor;
    char const *build;
    unsigned revision;
  } const cases[] = {
      {"5.0.1234.7", true, 5, 0, "1234", 7},
      {"5.0.2024.06.1", true, 5, 0, "2024.06", 1},
      {"5.0..1", true, 5, 0, "", 1},
      {"  7.2.beta-3.0 ", true, 7, 2, "beta-3", 0},
      {"5", true, 5, 0, "", 0},
      {"5.1", true, 5, 1, "", 0},
      {"5.1.rc", true, 5, 1, "rc", 0},
      {"", false, 0, 0, "", 0},
      {"x.1", false, 0, 0, "", 0},
      {"5.1.b.x", false, 0, 0, "", 0},
      {"5.99999999999.1.1", false, 0, 0, "", 0},
      {"-1.0.0.0", false, 0, 0, "", 0},
  };
  for (Case const &c : cases) {
    VersionImp v(9, 9, "keep", 9);
    EXPECT_EQ(VersionImp::parse(c.text, v), c.ok) << c.text;
    if (c.ok)
      EXPECT_EQ(v, VersionImp(c.major, c.minor, c.build, c.revision)) << c.text;
    else
      EXPECT_EQ(v, VersionImp(9, 9, "keep", 9)) << c.text;
  }
  for (VersionImp const &v : {VersionImp(), VersionImp(4294967295u, 1, "a.b.c", 4294967295u),
                              VersionImp(1, 2, "", 3), VersionImp(0, 0, "x y", 0)})
    EXPECT_EQ(VersionImp(v.toString()), v) << v.toString();
  EXPECT_EQ(VersionImp("junk"), VersionImp());
}

TEST(TestImp, GuidAgreesWithModuleAndKeyAndParametersAreCaseBlind) {
  TestImp t("mod-1", "Memory", 0, "Memory test", "");
  EXPECT_EQ(t.guid(), TestImp::guid("mod-1", "Memory"));
  EXPECT_EQ(t.type(), 0u);
  t.setKeyInModule("Cache");
  EXPECT_EQ(t.guid(), TestImp::guid("mod-1", "Cache"));

  t.addParameter(ParameterImp("Passes", DataTypeImp::UINT32, ValueImp(1u)));
  t.addParameter(ParameterImp("Pattern", DataTypeImp::STRING, ValueImp("walk")));
  ASSERT_TRUE(t.parameter("passes"));
  EXPECT_EQ(t.parameter("PASSES")->key(), "Passes");
  EXPECT_FALSE(t.parameter("passes2"));
  // Re-adding under another spelling replaces in place.
  t.addParameter(ParameterImp("PASSES", DataTypeImp::UINT32, ValueImp(3u)));
  ASSERT_EQ(t.parameters().size(), 2u);
  EXPECT_EQ(t.parameters()[0]->value(), ValueImp(3u));

  // Copies are deep: changing the copy's parameter leaves the original.
  TestImp copy(t);
  copy.parameter("passes")->setValue(ValueImp(9u));
  EXPECT_EQ(t.parameter("passes")->value(), ValueImp(3u));
  EXPECT_NE(copy, t);
}

TEST(ParameterImp, DeclaredTypeDecidesAndAMisfitChangesNothing) {
  ParameterImp p("Passes", DataTypeImp::UINT32, ValueImp(1u));
  EXPECT_EQ(p.valueSource(), ParameterSourceImp::NOTSET);
  p.setValue(ValueImp("42"), ParameterSourceImp::CLIENT);
  EXPECT_EQ(p.value(), ValueImp(42u));
  EXPECT_EQ(p.valueSource(), ParameterSourceImp::CLIENT);
  p.setValue(ValueImp(7)); // INT32 7 becomes UINT32 7
  EXPECT_EQ(p.value(), ValueImp(7u));
  EXPECT_THROW(p.setValue(ValueImp("many"), ParameterSourceImp::SETTINGSFILE), TypeMismatch);
  EXPECT_EQ(p.value(), ValueImp(7u));
  EXPECT_EQ(p.valueSource(), ParameterSourceImp::CLIENT);
  std::unique_ptr<ParameterImp> c(p.clone());
  EXPECT_EQ(*c, p);
}

TEST(IDeviceImp, ChildPropertiesLiveUnderTheirOwnKeys) {
  IDeviceImp d("dev", "Disk", CapabilityImp(CapabilityImp::Row::ALL));
  d.setProperty(prop("Group", ValueImp("g"), {"A", "B"}));
  d.setProperty(prop("A", ValueImp(1)));
  d.setProperty(prop("B", ValueImp(2)));
  d.setProperty(prop("Top", ValueImp(3)));
  EXPECT_EQ(d.propertyCount(), 4u);
  EXPECT_EQ(d.topPropertyCount(), 2u);
  Array<boost::shared_ptr<PropertyImp>> kids = d.property("Group")->children(d);
  ASSERT_EQ(kids.size(), 2u);
  EXPECT_EQ(kids[1]->key(), "B");

  // Replacing keeps the place; the old object keeps its old value.
  boost::shared_ptr<PropertyImp> oldA = d.property("A");
  d.setProperty(prop("A", ValueImp(10)));
  EXPECT_EQ(d.properties()[1]->value(), ValueImp(10));
  EXPECT_EQ(oldA->value(), ValueImp(1));

  EXPECT_TRUE(d.removeProperty("Group"));
  EXPECT_FALSE(d.removeProperty("Group"));
  EXPECT_EQ(d.topPropertyCount(), 3u);        // A and B are top now
  EXPECT_EQ(d.property("Top")->key(), "Top"); // index survives the removal
}

// Copies share their property table until one of them changes it: no
// change may ever show through another copy, and a merge keeps what is equal.
TEST(IDeviceImp, CopiesAreIndependentAndMergeTakesWhatDiffers) {
  IDeviceImp d("dev", "Disk", CapabilityImp("HardDrive"));
  for (int i = 0; i < 100; ++i) // past the index's first capacity
    d.setProperty(prop(String::format("K%d", i).c_str(), ValueImp(i)));
  IDeviceImp copy(d);
  IDeviceImp assigned("other", "Other", CapabilityImp());
  assigned = d;
  copy.setProperty(prop("K1", ValueImp(-1)));
  EXPECT_TRUE(copy.removeProperty("K2"));
  assigned.clearProperties();
  d.setProperty(prop("New", ValueImp(7)));
  EXPECT_EQ(d.propertyCount(), 101u);
  EXPECT_EQ(d.property("K1")->value(), ValueImp(1));
  EXPECT_TRUE(d.hasProperty("K2"));
  EXPECT_EQ(copy.propertyCount(), 99u);
  EXPECT_EQ(copy.property("K1")->value(), ValueImp(-1));
  EXPECT_FALSE(copy.hasProperty("New"));
  EXPECT_EQ(copy.property("K99")->value(), ValueImp(99)); // index survives the removal
  EXPECT_EQ(assigned.propertyCount(), 0u);

  // K3 equal by content (kept), K4 changed (replaced in place), K5 missing
  // (stays), Fresh new (appended and reported).
  IDeviceImp incoming("dev", "Disk", CapabilityImp("HardDrive"));
  incoming.setProperty(prop("Fresh", ValueImp(1)));
  incoming.setProperty(prop("K4", ValueImp(40)));
  incoming.setProperty(prop("K3", ValueImp(3)));
  boost::shared_ptr<PropertyImp> k3 = d.property("K3");
  Array<IDeviceImp::PropertyPair> differing;
  d.differingValues(incoming, differing);
  ASSERT_EQ(differing.size(), 1u);
  EXPECT_EQ(differing[0].first, d.property("K4"));
  EXPECT_EQ(differing[0].second, incoming.property("K4"));
  IDeviceImp before(d);
  Array<boost::shared_ptr<PropertyImp>> added;
  d.mergeProperties(incoming, &added);
  ASSERT_EQ(added.size(), 1u);
  EXPECT_EQ(added[0], incoming.property("Fresh"));
  EXPECT_EQ(d.property("K3"), k3);
  EXPECT_EQ(d.properties()[4], incoming.property("K4"));
  EXPECT_TRUE(d.hasProperty("K5"));
  EXPECT_EQ(d.properties()[101]->key(), "Fresh");
  EXPECT_EQ(before.property("K4")->value(), ValueImp(4)); // the copy made before the merge
  EXPECT_FALSE(before.hasProperty("Fresh"));
  added.clear();
  d.mergeProperties(incoming, &added);
  d.mergeProperties(d, &added);
  EXPECT_TRUE(added.isEmpty());
}

// Copies taken and changed on other threads while the original changes:
// each thread only ever sees its own copy's values.
TEST(IDeviceImp, CopiesOnOtherThreadsSeeOnlyTheirOwnChanges) {
  IDeviceImp d("dev", "Disk", CapabilityImp("HardDrive"));
  for (int i = 0; i < 20; ++i)
    d.setProperty(prop(String::format("K%d", i).c_str(), ValueImp(0)));
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  std::vector<std::thread> copiers;
  for (int t = 0; t < 2; ++t)
    copiers.emplace_back([&, t] {
      while (!stop.load()) {
        IDeviceImp copy(d);
        ValueImp seen = copy.property("K1")->value();
        copy.setProperty(prop("K2", ValueImp(-t)));
        for (int k = 0; k < 20; ++k)
          if (copy.property("K1")->value() != seen || copy.topPropertyCount() != 20u ||
              copy.property("K2")->value() != ValueImp(-t))
            ++wrong;
      }
    });
  IDeviceImp update("dev", "Disk", CapabilityImp("HardDrive"));
  for (int round = 1; round <= 2000; ++round) {
    d.setProperty(prop("K1", ValueImp(round)));
    update.setProperty(prop("K3", ValueImp(round)));
    d.mergeProperties(update, nullptr);
  }
  stop = true;
  for (auto &t : copiers)
    t.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(d.property("K1")->value(), ValueImp(2000));
  EXPECT_EQ(d.property("K2")->value(), ValueImp(0));
  EXPECT_EQ(d.property("K3")->value(), ValueImp(2000));
}

TEST(IDeviceImp, PropertiesByCategoryAndTextForm) {
  IDeviceImp d("dev", "Disk", CapabilityImp("HardDrive"));
  PropertyImp perf("Speed", ValueImp(100u));
  perf.setCategory(PropertyCategoryImp(PropertyCategoryImp::Row::PerformanceMeasurement));
  PropertyImp internal("Secret", ValueImp("x"));
  internal.setCategory(PropertyCategoryImp(PropertyCategoryImp::Row::Internal));
  d.addProperty(perf).addProperty(internal);
  auto byCat =
      d.getProperties(PropertyCategoryImp(PropertyCategoryImp::Row::PerformanceMeasurement));
  ASSERT_EQ(byCat.size(), 1u);
  EXPECT_EQ(byCat[0]->key(), "Speed");
  EXPECT_EQ(d.getProperties(PropertyCategoryImp::ALL()).size(), 2u);

  String brief = d.toString(0, 0xf20);
  EXPECT_NE(brief.find("Disk"), String::npos);
  EXPECT_NE(brief.find("Speed = 100"), String::npos);
  EXPECT_EQ(brief.find("Secret"), String::npos);
  EXPECT_NE(d.toString(0, 0xffffff).find("Secret"), String::npos);
  EXPECT_NE(d.toString(0, 0xffffff).find("[dev]"), String::npos);
}

TEST(TipImp, TextFormFollowsTheThreeLineShape) {
  TipImp tip("T1", TipTypeImp::TEXT_TIP, LocalizedString("k", "Re-seat the cable"),
             LocalizedString("c", "Check: power first"));
  String text = tip.toString(0, false);
  Array<String> lines;
  std::size_t start = 0;
  for (std::size_t nl; (nl = text.find('\n', start)) != String::npos; start = nl + 1)
    lines.append(text.substring(start, nl - start));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].substring(lines[0].find('-') + 1).trim(), "Re-seat the cable");
  std::size_t second = lines[2].find(':', lines[2].find(':') + 1);
  EXPECT_EQ(lines[2].substring(second + 1).trim(), "Check: power first");
  EXPECT_EQ(tip.toString(0, true).find("property key"), String::npos);
}

TEST(ModuleImp, ParametersTipsAndResolve) {
  ModuleImp m("libOstrel");
  m.setVersion(VersionImp(5, 0, "1", 2)).setCompany("Zelmont");
  m.addParameter(ParameterImp("Level", DataTypeImp::UINT32, ValueImp(1u)));
  m.addParameter(ParameterImp("Mode", DataTypeImp::STRING, ValueImp("fast")));
  m.addTip(TipImp("a", TipTypeImp::TEXT_TIP, {}, {}))
      .addTip(TipImp("b", TipTypeImp::URL_TIP, {}, {}));
  EXPECT_EQ(m.firstParameter()->key(), "Level");
  EXPECT_EQ(m.nextParameter()->key(), "Mode");
  EXPECT_EQ(m.nextParameter(), nullptr);
  EXPECT_EQ(m.parameters().size(), 2u);
  Array<TipImp *> tips;
  EXPECT_EQ(m.getTips("b", tips), 1u);

  std::unique_ptr<ModuleImp> copy(m.clone());
  EXPECT_TRUE(*copy == m);
  EXPECT_NE(copy->parameter("Level"), m.parameter("Level")); // own objects
  copy->setCompany("Other");
  EXPECT_FALSE(*copy == m);

  ModuleImp bare("libOstrel");
  bare.resolve(m);
  EXPECT_EQ(bare.company(), "Zelmont");
  EXPECT_EQ(bare.version(), m.version());
  EXPECT_EQ(bare.tipCount(), 2u);
  EXPECT_TRUE(bare.parameter("Mode"));
}

TEST(Encoding, EveryObjectTypeSurvivesARoundTrip) {
  ModuleImp m("mod");
  m.setLocalizedName("Mod").setVersion(VersionImp(1, 2, "b", 3)).setType(ModuleTypeImp::SYSINFO);
  m.setState(ModuleState::ENUMERATED).setSupportedCapabilities(CapabilityImp("PCI|USB"));
  m.addParameter(ParameterImp("P", DataTypeImp::DOUBLE, ValueImp(1.5, DataTypeImp::DOUBLE)));
  m.registerLibrary("lib.so").addModuleEnumerationRequirement("other", true);
  m.addTip(TipImp("t", TipTypeImp::HTML_TIP, {"k", "title"}, {"", "body"}, {"", "more"}));
  EXPECT_TRUE(roundTrip(m) == m);

  TestImp t("mod", "key", 1, "Bench", "text");
  t.setInteractive(true).setDestructive(true).setEnabled(false);
  t.setDisabledOperatingSystems(OperatingSystemSet("linux"));
  t.setDeviceCapabilitiesSupported(CapabilityImp("HardDrive"));
  t.addParameter(ParameterImp("Q", DataTypeImp::STRINGARRAY, ValueImp(Array<String>{"a", "b"})));
  EXPECT_EQ(roundTrip(t), t);

  IAlertImp a("al-1", "Crash", AlertTypeImp::APPLICATION_CRASH, {"", "Title"}, {"", "Msg"});
  a.setDeviceGuid("dev").setTimeTriggered(-5).setTimeIsReal(false);
  a.addValue("ApplicationName", "x").addValue("ApplicationName", "y");
  IAlertImp aBack = roundTrip(a);
  EXPECT_EQ(aBack, a);
  String out;
  EXPECT_TRUE(aBack.getValue("ApplicationName", out, 1));
  EXPECT_EQ(out, "y");
  EXPECT_FALSE(aBack.getValue("ApplicationName", out, 2));

  IndicatorRunImp run(IndicatorImp("ind", "mod", "temp", "Temperature"));
  run.setPaused(true, 30);
  EXPECT_EQ(roundTrip(run), run);
  EXPECT_NE(IndicatorRunImp(run.indicator()).guid(), run.guid()); // fresh GUID per run
  EXPECT_TRUE(run.indicator().isFreeIndicator());
}

// Whatever goes through the field writer and reader must be exactly the
// archive's bytes both ways: cache files and states written one way are
// read the other.
TEST(Encoding, FieldWriterAndReaderMatchTheArchiveByteForByte) {
  IDeviceImp d("dev", "Disk", CapabilityImp("HardDrive|SATA"), "parent");
  d.setOsLocator("/dev/sda").setHwLocator("pci0:1").setDescription("d");
  d.setDeviceState(DeviceStateImp::DISABLED);
  Table table(2, 2);
  table.setCellSpans(0, 0, 1, 2);
  table.setCell(0, 0, ZELValue("head"), true);
  table.setCell(1, 0, ZELValue(3)).setIdentifierString("id");
  table.setCell(1, 1, ZELValue(2.5));
  Array<ValueImp> values{ValueImp(4000000000u),
                         ValueImp(-7),
                         ValueImp(18446744073709551615ull),
                         ValueImp(-9000000000ll),
                         ValueImp(0.1, DataTypeImp::DOUBLE),
                         ValueImp("caf\xC3\xA9"),
                         ValueImp(true),
                         ValueImp(45.5, DataTypeImp::PERCENT),
                         ValueImp(Array<String>{"a", "", "c"}),
                         ValueImp(Array<unsigned int>{1, 2}),
                         ValueImp(Array<int>{-1, 0}),
                         ValueImp(DiscreteMeasurement(3.3, "V")),
                         ValueImp(table),
                         ValueImp(Array<DiscreteMeasurement>{{1, "rpm"}, {2, ""}}),
                         ValueImp(NonDiscreteMeasurement(1, 3, 2, "C")),
                         ValueImp(LocalizedString("k", "text")),
                         ValueImp(Array<LocalizedString>{{"a", "A"}, {"b", "B"}}),
                         ValueImp()};
  for (std::size_t i = 0; i < values.size(); ++i) {
    auto p = prop(String::format("P%zu", i).c_str(), values[i], {"P1"});
    p->setLocalizedName("name").setModuleGuid("mod").setWillBeDiscoveredLater(i % 2 == 0);
    PropertyCategoryImp::Bits rows;
    rows.insert(static_cast<unsigned>(i) % 29);
    rows.insert(28);
    p->setCategory(PropertyCategoryImp(rows));
    d.setProperty(p);
  }
  ModuleImp m("mod");
  m.setVersion(VersionImp(1, 2, "b", 3)).setSupportedCapabilities(CapabilityImp("PCI|USB"));
  m.addParameter(ParameterImp("P", DataTypeImp::DOUBLE, ValueImp(1.5, DataTypeImp::DOUBLE)));
  m.addTip(TipImp("t", TipTypeImp::HTML_TIP, {"k", "title"}, {"", "body"}, {"", "more"}));
  TestImp t("mod", "key", 1, "Bench", "text");
  t.setDisabledOperatingSystems(OperatingSystemSet("linux")).setInteractive(true);
  IAlertImp a("al-1", "Crash", AlertTypeImp::APPLICATION_CRASH, {"", "Title"}, {"", "Msg"});
  a.setDeviceGuid("dev").setTimeTriggered(-5).addValue("ApplicationName", "x");
  IndicatorRunImp run(IndicatorImp("ind", "mod", "temp", "Temperature"));
  run.setPaused(true, 30);

  auto check = [](auto const &value, char const *what) {
    using T = std::decay_t<decltype(value)>;
    String bytes = encoding::encode(value);
    EXPECT_EQ(encoding::encode(FieldsOut<T>{value}), bytes) << what;
    T back;
    FieldsIn<T> in{back};
    encoding::decode(bytes, in);
    EXPECT_EQ(encoding::encode(back), bytes) << what;
    for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
      T partial;
      FieldsIn<T> into{partial};
      EXPECT_THROW(encoding::decode(bytes.data(), cut, into), BadInput) << what << " cut " << cut;
    }
  };
  check(d, "device");
  check(m, "module");
  check(t, "test");
  check(a, "alert");
  check(run, "indicator run");

  // Input from a machine of the other byte order: the archive swaps every
  // number, and so must the reader. A flag byte, then a size tag and two
  // 32-bit numbers; a text; a DOUBLE value (row, then the number).
  std::string order(1, static_cast<char>(cereal::portable_binary_detail::is_little_endian() ^ 1));
  std::string numbers = order + foreign<std::uint64_t>(2) + foreign<std::uint32_t>(7) +
                        foreign<std::uint32_t>(0x01020304);
  std::string text = order + foreign<std::uint64_t>(3) + "abc";
  std::string number =
      order + foreign<std::uint32_t>(ValueImp(2.5, DataTypeImp::DOUBLE).type().enumValue()) +
      foreign<double>(2.5);
  Array<unsigned int> viaArchive, viaReader;
  encoding::decode(numbers.data(), numbers.size(), viaArchive);
  FieldsIn<Array<unsigned int>> numbersIn{viaReader};
  encoding::decode(numbers.data(), numbers.size(), numbersIn);
  EXPECT_EQ(viaArchive, (Array<unsigned int>{7, 0x01020304}));
  EXPECT_EQ(viaReader, viaArchive);
  String textBack;
  FieldsIn<String> textIn{textBack};
  encoding::decode(text.data(), text.size(), textIn);
  EXPECT_EQ(textBack, "abc");
  ValueImp valueArchive, valueReader;
  encoding::decode(number.data(), number.size(), valueArchive);
  FieldsIn<ValueImp> valueIn{valueReader};
  encoding::decode(number.data(), number.size(), valueIn);
  EXPECT_EQ(valueArchive, ValueImp(2.5, DataTypeImp::DOUBLE));
  EXPECT_EQ(valueReader, valueArchive);
}

TEST(Encoding, HostileObjectsAreRejected) {
  // A device whose property table repeats a key.
  IDeviceImp d("dev", "D", CapabilityImp());
  d.setProperty(prop("K", ValueImp(1)));
  String bytes = encoding::encode(d);
  String key = encoding::encode(String("K")).substring(1); // without the archive's flag byte
  std::size_t at = bytes.rfind(key);
  ASSERT_NE(at, String::npos);
  // Append a second copy of the property and bump the count (last u32 before it).
  String propBytes = bytes.substring(at);
  String doubled = bytes + propBytes;
  std::size_t countAt = at - 4;
  doubled = doubled.substring(0, countAt) + String("\x02\x00\x00\x00", 4) +
            doubled.substring(countAt + 4);
  IDeviceImp back;
  EXPECT_THROW(encoding::decode(doubled, back), BadInput);

  // A value whose type row is past the table.
  String v = encoding::encode(ValueImp(5u));
  v = v.substring(0, 1) + String("\x63\x00\x00\x00", 4) + v.substring(5);
  ValueImp vb;
  EXPECT_THROW(encoding::decode(v, vb), BadInput);
}
