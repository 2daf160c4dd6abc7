// Module, Test, TestParameter and Version over modules and tests that each test
// puts into the process-wide mirror.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>

#include "ostrel/Device.h"
#include "ostrel/Module.h"
#include "ostrel/Test.h"
#include "ostrel/Value.h"
#include "ostrel/Version.h"
#include "zel/Exception.h"
#include "zel/IDeviceImp.h"
#include "zel/ModuleImp.h"
#include "zel/StateManager.h"
#include "zel/TestImp.h"
#include "zel/VersionImp.h"

using namespace ostrel5;

namespace {

using Row = zel::CapabilityImp::Row;

zel::StateManager &mirror() { return zel::StateManager::instance(); }

boost::shared_ptr<zel::ModuleImp> makeModule(char const *guid) {
  auto module = boost::make_shared<zel::ModuleImp>(zel::String(guid));
  module->setLocalizedName("Storage diagnostics")
      .setLocalizedDescription("Tests disks")
      .setCompany("Zelmont")
      .setBuildDate("2026-11-01")
      .setVersion(zel::VersionImp(5, 2, "1234", 7))
      .setType(zel::ModuleTypeImp::DIAG)
      .setSupportedCapabilities(zel::CapabilityImp(Row::HardDrive) | zel::CapabilityImp(Row::SSD));
  return module;
}

boost::shared_ptr<zel::TestImp> makeTest(char const *module, char const *key, unsigned int kind) {
  return boost::make_shared<zel::TestImp>(zel::String(module), zel::String(key), kind,
                                          zel::String(key) + " name", zel::String(key) + " text");
}

template <class List> std::vector<std::string> guids(List const &list) {
  std::vector<std::string> out;
  for (unsigned int i = 0; i < list.size(); ++i)
    out.push_back(list[i].guid().str());
  return out;
}

class ModuleModel : public ::testing::Test {
protected:
  void SetUp() override { mirror().clear(); }
  void TearDown() override { mirror().clear(); }
};

TEST_F(ModuleModel, ModulesAreEqualByGuidAlone) {
  auto first = makeModule("mod.storage");
  auto second = makeModule("mod.storage");
  second->setLocalizedName("Another name").setVersion(zel::VersionImp(9, 9, "", 9));
  Module a(first), b(second), c(makeModule("mod.memory"));
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a != b);
  EXPECT_TRUE(a != c);
  EXPECT_FALSE(a == c);
  EXPECT_TRUE(a.version() == Version(5, 2, "1234", 7));
  EXPECT_TRUE(a.type() == ModuleType::DIAG());
  EXPECT_TRUE(a.supportedCapabilities() ==
              (DeviceCapability::HardDrive() | DeviceCapability::SSD()));
}

TEST_F(ModuleModel, TestsAndBenchmarksKeepTheMirrorsOrder) {
  auto module = makeModule("mod.storage");
  mirror().addModule(module);
  // Kinds in mixed order; kind 7 is one that this client does not know.
  std::vector<std::pair<char const *, unsigned int>> const offered = {
      {"b1", 1}, {"t1", 0}, {"future", 7}, {"t2", 0}, {"b2", 1}};
  for (auto const &entry : offered) {
    auto test = makeTest("mod.storage", entry.first, entry.second);
    mirror().addTest(test);
    mirror().associate(module, test);
  }
  auto disk = boost::make_shared<zel::IDeviceImp>(zel::String("disk0"), zel::String("Disk"),
                                                  zel::CapabilityImp(Row::HardDrive));
  mirror().addDevice(disk);
  mirror().associate(module, disk);

  Module handle(module);
  EXPECT_EQ((std::vector<std::string>{"mod.storage::t1", "mod.storage::t2"}),
            guids(handle.tests()));
  EXPECT_EQ((std::vector<std::string>{"mod.storage::b1", "mod.storage::b2"}),
            guids(handle.benchmarks()));
  EXPECT_EQ((std::vector<std::string>{"disk0"}), guids(handle.devices()));

  // The unknown kind is in neither list but reads as a benchmark.
  ostrel5::Test future(mirror().testByGuid("mod.storage::future"));
  EXPECT_EQ(ostrel5::Test::BENCHMARK, future.type());

  EXPECT_EQ(0u, Module(makeModule("mod.unknown")).tests().size());
}

TEST_F(ModuleModel, TestKindsRunOneAboveTheFrameworksAndFlagsAreForwarded) {
  EXPECT_EQ(1, static_cast<int>(ostrel5::Test::TEST));
  EXPECT_EQ(2, static_cast<int>(ostrel5::Test::BENCHMARK));
  EXPECT_EQ(ostrel5::Test::TEST, ostrel5::Test(makeTest("m", "a", 0)).type());
  EXPECT_EQ(ostrel5::Test::BENCHMARK, ostrel5::Test(makeTest("m", "b", 1)).type());
  EXPECT_EQ(ostrel5::Test::BENCHMARK, ostrel5::Test(makeTest("m", "c", 2)).type());

  // Flags are read from the shared object at each call.
  auto imp = makeTest("mod.storage", "surface", 0);
  ostrel5::Test test(imp);
  EXPECT_TRUE(test.isEnabled());
  EXPECT_FALSE(test.isInteractive());
  imp->setEnabled(false).setInteractive(true);
  EXPECT_FALSE(test.isEnabled());
  EXPECT_TRUE(test.isInteractive());
}

TEST_F(ModuleModel, TestRelationsComeFromTheMirror) {
  auto module = makeModule("mod.storage");
  auto test = makeTest("mod.storage", "quick", 0);
  auto disk = boost::make_shared<zel::IDeviceImp>(zel::String("disk0"), zel::String("Disk"),
                                                  zel::CapabilityImp(Row::HardDrive));
  ostrel5::Test handle(test);
  EXPECT_FALSE(handle.module().isValid());
  EXPECT_FALSE(handle.firstDevice().isValid());
  EXPECT_EQ(0u, handle.devices().size());

  mirror().addModule(module);
  mirror().addTest(test);
  mirror().addDevice(disk);
  mirror().associate(module, test);
  mirror().associate(test, disk);
  EXPECT_EQ("mod.storage", handle.module().guid());
  EXPECT_TRUE(handle.firstDevice() == Device(disk));
  EXPECT_EQ((std::vector<std::string>{"disk0"}), guids(handle.devices()));
}

TEST_F(ModuleModel, EmptyTestAssertsOnGetImp) {
  try {
    ostrel5::Test().getImp();
    ADD_FAILURE() << "no assertion";
  } catch (zel::StructuredException const &e) {
    EXPECT_EQ(7u, e.getCode());
    EXPECT_EQ("Assertion failed: !!m_imp", e.getText());
  }
  ostrel5::Test bound(makeTest("m", "k", 0));
  EXPECT_EQ(bound.getImp().get(), bound.getImp().get());
}

class Parameters : public ModuleModel {
protected:
  void SetUp() override {
    ModuleModel::SetUp();
    m_imp = makeTest("mod.storage", "surface", 0);
    m_imp->addParameter(zel::ParameterImp("Label", zel::DataTypeImp::STRING, zel::ValueImp("none"),
                                          "Label name", "Label text", 2));
    m_imp->addParameter(
        zel::ParameterImp("Passes", zel::DataTypeImp::UINT32, zel::ValueImp(1u), "Passes", "", 1));
    m_test = ostrel5::Test(m_imp);
  }

  boost::shared_ptr<zel::TestImp> m_imp;
  ostrel5::Test m_test;
};

TEST_F(Parameters, AreListedInOrderAndFoundWithoutRegardToCase) {
  TestParameterList list = m_test.parameters();
  ASSERT_EQ(2u, list.size());
  EXPECT_EQ("Label", list[0].key());
  EXPECT_EQ("Passes", list[1].key());

  EXPECT_EQ("Passes", m_test.parameter("PASSES").key());
  EXPECT_FALSE(m_test.parameter("Speed").isValid());
}

TEST_F(Parameters, SetValueConvertsToTheDeclaredType) {
  TestParameter label = m_test.parameter("Label");
  EXPECT_TRUE(label.setValue(Value(5), false));
  EXPECT_TRUE(label.value().getType() == DataType::STRING());
  EXPECT_EQ("5", label.value().toString());
  EXPECT_TRUE(label.valueSource() == ParameterSource::CLIENT());

  TestParameter passes = m_test.parameters()[1];
  EXPECT_TRUE(passes.setValue(Value("42"), true));
  EXPECT_TRUE(passes.value().getType() == DataType::UINT32());
  EXPECT_EQ(42u, passes.value().toUint32());
  // The handle shares the test's own parameter object.
  EXPECT_EQ(42u, m_test.parameter("passes").value().toUint32());
}

TEST_F(Parameters, AValueThatDoesNotFitThrowsAndChangesNothing) {
  TestParameter passes = m_test.parameter("Passes");
  EXPECT_THROW(passes.setValue(Value("many"), false), zel::TypeMismatch);
  EXPECT_THROW(passes.setValue(Value(-3), false), zel::TypeMismatch);
  EXPECT_EQ(1u, passes.value().toUint32());
  EXPECT_TRUE(passes.valueSource() == ParameterSource::NOTSET());
}

TEST(VersionValue, TextRoundTripAndComparison) {
  Version const versions[] = {Version(5, 2, "1234", 7), Version(1, 0, "", 0),
                              Version(10, 4, "2024.06", 3), Version()};
  for (Version const &v : versions) {
    Version back(v.toString());
    EXPECT_TRUE(back == v) << v.toString();
  }
  Version v(5, 2, "1234", 7);
  EXPECT_EQ("5.2.1234.7", v.toString());
  EXPECT_TRUE(v != Version(5, 2, "1234", 8));
  EXPECT_TRUE(v != Version(5, 2, "1235", 7));
  EXPECT_TRUE(Version(zel::String("not a version")) == Version());
  EXPECT_TRUE(Version(zel::VersionImp(5, 2, "1234", 7)) == v);
}

TEST(VersionValue, CopiesAreDeepAndSelfAssignmentKeepsTheValue) {
  Version v(3, 1, "build", 4);
  Version &alias = v;
  v = alias;
  EXPECT_EQ("3.1.build.4", v.toString());

  Version copy(v);
  Version assigned;
  assigned = v;
  v = Version(9, 9, "x", 9);
  EXPECT_EQ("3.1.build.4", copy.toString());
  EXPECT_EQ("3.1.build.4", assigned.toString());
}

TEST(VersionValue, EngineVersionComesFromTheSettings) {
  ::setenv("OSTREL_Engine_Version", "6.1.77.3", 1);
  EXPECT_TRUE(Version::engineVersion() == Version(6, 1, "77", 3));
  ::unsetenv("OSTREL_Engine_Version");
  EXPECT_TRUE(Version::engineVersion() == Version(zel::String("5.0.0")));
}

} // namespace
