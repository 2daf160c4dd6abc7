// Tests of the public catalogue classes ostrel5::DeviceCapability and
// ostrel5::PropertyCategory: every accessor against its row, the look-ups,
// value semantics of the owned implementation object, and the operators.

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <vector>

#include "ostrel/DeviceCapability.h"
#include "ostrel/PropertyCategory.h"

using ostrel5::DeviceCapability;
using ostrel5::PropertyCategory;
using CapEnum = DeviceCapability::DeviceCapability_ENUM;
using CatEnum = PropertyCategory::PropertyCategory_ENUM;

namespace {

std::string flipCase(std::string s) {
  for (char &c : s)
    c = std::isupper(static_cast<unsigned char>(c)) ? char(std::tolower(c)) : char(std::toupper(c));
  return s;
}

struct Accessor {
  char const *name;
  DeviceCapability (*get)();
};

// Every accessor, generated from the row list, with the name it was declared
// under.
std::vector<Accessor> const &capabilityAccessors() {
  static std::vector<Accessor> const accessors = {
#define CAP_ACCESSOR_ROW(name, level) {#name, &DeviceCapability::name},
#define CAP_ACCESSOR_NAMED(name, text, level) {#name, &DeviceCapability::name},
      ZEL_CAPABILITY_ROWS(CAP_ACCESSOR_ROW, CAP_ACCESSOR_NAMED)
#undef CAP_ACCESSOR_ROW
#undef CAP_ACCESSOR_NAMED
  };
  return accessors;
}

struct CategoryAccessor {
  char const *name;
  PropertyCategory (*get)();
};

std::vector<CategoryAccessor> const &categoryAccessors() {
  static std::vector<CategoryAccessor> const accessors = {
#define CAT_ACCESSOR_ROW(name) {#name, &PropertyCategory::name},
#define CAT_ACCESSOR_NAMED(name, text) {#name, &PropertyCategory::name},
      ZEL_PROPERTY_CATEGORY_ROWS(CAT_ACCESSOR_ROW, CAT_ACCESSOR_NAMED)
#undef CAT_ACCESSOR_ROW
#undef CAT_ACCESSOR_NAMED
  };
  return accessors;
}

TEST(DeviceCapability, EveryAccessorNamesItsRow) {
  auto const &accessors = capabilityAccessors();
  ASSERT_EQ(accessors.size(), DeviceCapability::constantCount());
  ASSERT_EQ(DeviceCapability::constantCount(), 298u);
  ASSERT_EQ(DeviceCapability::allPrimitiveCapabilitiesCount(), 298u);
  for (unsigned r = 0; r < accessors.size(); ++r) {
    DeviceCapability c = accessors[r].get();
    std::string text = c.toString().str();
    SCOPED_TRACE(accessors[r].name);
    EXPECT_EQ(static_cast<unsigned>(c.enumValue()), r);
    EXPECT_EQ(c.stringValue(), c.toString());
    EXPECT_EQ(c.primitiveCapabilityCount(), 1u);
    EXPECT_EQ(c.priorityLevel(), zel::CapabilityImp::rowLevel(r));
    EXPECT_TRUE(c == DeviceCapability::getConstantByIndex(r));
    EXPECT_TRUE(c == DeviceCapability::getFromAllPrimitiveCapabilities(r));
    EXPECT_TRUE(c == DeviceCapability(static_cast<CapEnum>(r)));
    // string -> row, both modes, both argument types
    EXPECT_TRUE(DeviceCapability::getConstantByString(text.c_str(), true) == c);
    EXPECT_TRUE(DeviceCapability::getConstantByString(zel::String(text), true) == c);
    EXPECT_TRUE(DeviceCapability::getConstantByString(flipCase(text).c_str(), false) == c);
    EXPECT_TRUE(DeviceCapability::getConstantByString(zel::String(flipCase(text)), false) == c);
    // the accessor's name is searched only where it is also the string
    bool regular = text == accessors[r].name;
    EXPECT_EQ(DeviceCapability::getConstantByString(accessors[r].name, true) == c, regular);
    // the text form reads back
    EXPECT_TRUE(DeviceCapability(zel::String(text)) == c);
  }
}

TEST(DeviceCapability, IrregularRowsAndSentinel) {
  DeviceCapability sentinel = DeviceCapability::getConstantByIndex(298);
  EXPECT_TRUE(DeviceCapability::getConstantByString("3DNOW", true) == DeviceCapability::AMD3DNOW());
  EXPECT_TRUE(DeviceCapability::getConstantByString("3DNOWEXT", true) ==
              DeviceCapability::AMD3DNOWEXT());
  EXPECT_TRUE(DeviceCapability::getConstantByString("AMD3DNOW", true) == sentinel);
  EXPECT_TRUE(DeviceCapability::getConstantByString("AMD3DNOW", false) == sentinel);
  EXPECT_TRUE(DeviceCapability::getConstantByString("ALL", false) == DeviceCapability::ALL());
  EXPECT_TRUE(DeviceCapability::getConstantByString("ALL", true) == sentinel);
  EXPECT_EQ(DeviceCapability::ALL().toString(), "All");

  EXPECT_TRUE(DeviceCapability::getConstantByString("no such thing", false) == sentinel);
  EXPECT_TRUE(DeviceCapability::getConstantByString("", true) == sentinel);
  EXPECT_TRUE(DeviceCapability::getConstantByString(static_cast<char const *>(nullptr), true) ==
              sentinel);
  EXPECT_TRUE(DeviceCapability::getConstantByIndex(299) == sentinel);
  EXPECT_TRUE(DeviceCapability::getConstantByIndex(0xFFFFFFFFu) == sentinel);
  EXPECT_TRUE(DeviceCapability(CapEnum::SENTINEL_ROW) == sentinel);
  EXPECT_EQ(sentinel.enumValue(), CapEnum::SENTINEL_ROW);
  EXPECT_EQ(static_cast<unsigned>(sentinel.enumValue()), DeviceCapability::constantCount());
  EXPECT_EQ(sentinel.toString(), "");
  EXPECT_TRUE(sentinel != DeviceCapability::INVALID());
}

TEST(DeviceCapability, ValueSemantics) {
  DeviceCapability a = DeviceCapability::PCI();
  DeviceCapability b = DeviceCapability::USB();
  DeviceCapability u = a | b;
  EXPECT_EQ(a.toString(), "PCI"); // operands untouched
  EXPECT_EQ(b.toString(), "USB");
  EXPECT_EQ(u.toString(), "PCI|USB");
  EXPECT_NE(u.getImp(), a.getImp());

  DeviceCapability copy(u);
  EXPECT_NE(copy.getImp(), u.getImp()); // a copy owns its own object
  copy = DeviceCapability::SSD();       // assigns into the existing object
  EXPECT_EQ(u.toString(), "PCI|USB");
  EXPECT_EQ(copy.toString(), "SSD");

  zel::CapabilityImp *before = copy.getImp();
  copy = u;
  EXPECT_EQ(copy.getImp(), before);
  EXPECT_TRUE(copy == u);
  EXPECT_TRUE(DeviceCapability::Optical() == DeviceCapability::Optical());
  EXPECT_FALSE(DeviceCapability::Optical() != DeviceCapability::Optical());

  DeviceCapability fromImp(*u.getImp());
  EXPECT_TRUE(fromImp == u);
  EXPECT_EQ(DeviceCapability::UnknownIcon(), "Unknown");
  EXPECT_EQ(&DeviceCapability::UnknownIcon(), &DeviceCapability::UnknownIcon());
}

// A subclass reaches the protected constructor; only its first string counts.
class NamedCapability : public DeviceCapability {
public:
  NamedCapability(zel::String const &text)
      : DeviceCapability(text, zel::String("display name"), 42, zel::String("icon")) {}
};

TEST(DeviceCapability, SetOperations) {
  DeviceCapability drive = DeviceCapability(zel::String("Optical | cdrom ,DVD"));
  EXPECT_TRUE(drive ==
              (DeviceCapability::Optical() | DeviceCapability::CDROM() | DeviceCapability::DVD()));
  EXPECT_TRUE(drive.isCapable(DeviceCapability::Optical()));
  EXPECT_FALSE(DeviceCapability::Optical().isCapable(drive));
  EXPECT_TRUE(drive.isCapable(DeviceCapability::ALL()));
  EXPECT_FALSE(drive.isCapable(DeviceCapability::INVALID()));
  EXPECT_TRUE(drive.intersect(DeviceCapability::DVD() | DeviceCapability::PCI()));
  EXPECT_FALSE(drive.intersect(DeviceCapability::PCI()));
  EXPECT_TRUE(drive.getHighestPriorityCapabilities() == DeviceCapability::DVD());
  EXPECT_EQ(drive.priorityLevel(), 80);
  EXPECT_EQ(drive.primitiveCapabilityCount(), 3u);
  EXPECT_TRUE(drive.getPrimitiveCapability(0) == DeviceCapability::Optical());
  EXPECT_TRUE(drive.getPrimitiveCapability(2) == DeviceCapability::DVD());
  EXPECT_TRUE(drive.getPrimitiveCapability(3) == DeviceCapability::getConstantByIndex(298));
  EXPECT_EQ(drive.enumValue(), CapEnum::SENTINEL_ROW); // not a single row
  EXPECT_EQ(drive.iconName(), "DVD");
  EXPECT_FALSE(drive.localizedDescription().isEmpty());

  EXPECT_TRUE(DeviceCapability(zel::String("Optical|Nonsense")) == DeviceCapability::INVALID());
  EXPECT_TRUE(NamedCapability("SSD|NVME") == (DeviceCapability::SSD() | DeviceCapability::NVME()));
}

TEST(PropertyCategory, EveryAccessorNamesItsRow) {
  auto const &accessors = categoryAccessors();
  ASSERT_EQ(accessors.size(), 29u);
  ASSERT_EQ(PropertyCategory::constantCount(), 29u);
  for (unsigned r = 0; r < accessors.size(); ++r) {
    PropertyCategory c = accessors[r].get();
    std::string text = c.toString().str();
    SCOPED_TRACE(accessors[r].name);
    EXPECT_EQ(static_cast<unsigned>(c.enumValue()), r);
    EXPECT_EQ(text, r == 0 ? "All" : r == 1 ? "Invalid" : accessors[r].name);
    EXPECT_TRUE(c == PropertyCategory::getConstantByIndex(r));
    EXPECT_TRUE(PropertyCategory::getConstantByString(text.c_str(), true) == c);
    EXPECT_TRUE(PropertyCategory::getConstantByString(zel::String(flipCase(text)), false) == c);
    EXPECT_TRUE(PropertyCategory(text.c_str()) == c);
    EXPECT_TRUE(PropertyCategory(zel::String(text)) == c);
  }
  PropertyCategory sentinel = PropertyCategory::getConstantByIndex(29);
  EXPECT_TRUE(PropertyCategory::getConstantByIndex(1000) == sentinel);
  EXPECT_TRUE(PropertyCategory::getConstantByString("Nothing", false) == sentinel);
  EXPECT_TRUE(PropertyCategory::getConstantByString("ALL", true) == sentinel);
  EXPECT_TRUE(PropertyCategory::getConstantByString("ALL", false) == PropertyCategory::ALL());
  EXPECT_EQ(sentinel.enumValue(), CatEnum::SENTINEL_ROW);
  EXPECT_EQ(sentinel.toString(), "");
}

TEST(PropertyCategory, OperatorsAndValueSemantics) {
  PropertyCategory key = PropertyCategory::Key();
  PropertyCategory group = PropertyCategory::Group();
  PropertyCategory both = key | group;
  EXPECT_EQ(key.toString(), "Key");
  EXPECT_EQ(group.toString(), "Group");
  EXPECT_EQ(both.toString(), "Key|Group");

  PropertyCategory left = PropertyCategory::Internal();
  PropertyCategory right = PropertyCategory::Summary();
  PropertyCategory &result = (left |= right);
  EXPECT_EQ(&result, &left);
  EXPECT_EQ(left.toString(), "Internal|Summary");
  EXPECT_EQ(right.toString(), "Summary"); // only the left operand changes

  EXPECT_TRUE(both.isCapable(group));
  EXPECT_FALSE(group.isCapable(both));
  EXPECT_TRUE(both != key);
  PropertyCategory copy(both);
  EXPECT_NE(&copy.imp(), &both.imp());
  copy = PropertyCategory::Model();
  EXPECT_EQ(both.toString(), "Key|Group");
  EXPECT_TRUE(PropertyCategory(both.imp()) == both);
  EXPECT_TRUE(PropertyCategory("Key, bogus") == PropertyCategory::INVALID());
  EXPECT_TRUE(PropertyCategory("") == PropertyCategory(zel::PropertyCategoryImp()));
}

} // namespace
