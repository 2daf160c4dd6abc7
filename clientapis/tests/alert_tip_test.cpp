// Alerts and tips as the client sees them: handles on the mirror's objects.

#include <gtest/gtest.h>

#include "ostrel/Alert.h"
#include "ostrel/Module.h"
#include "ostrel/Tip.h"
#include "zel/Exception.h"
#include "zel/IAlertImp.h"
#include "zel/ModuleImp.h"
#include "zel/StateManager.h"

using namespace ostrel5;

namespace {

zel::TipImp cableTip() {
  return zel::TipImp("Cable", zel::TipTypeImp::getConstantByIndex(1), {"t.cable", "Check the cable"},
                     {"c.cable", "Plug the cable in firmly."}, {"x.cable", "Both ends."});
}

template <class F> std::string assertionOf(F const &call) {
  try {
    call();
  } catch (zel::StructuredException const &e) {
    return e.getText().c_str();
  }
  return "no assertion";
}

TEST(AlertTipTest, EmptyHandlesAssertOnUse) {
  Alert alert;
  EXPECT_FALSE(alert.isValid());
  EXPECT_EQ(assertionOf([&] { alert.key(); }), "Assertion failed: m_imp");
  EXPECT_EQ(assertionOf([&] { alert.tip(0); }), "Assertion failed: m_imp");
  Tip tip;
  EXPECT_FALSE(tip.isValid());
  EXPECT_EQ(assertionOf([&] { tip.title(); }), "Assertion failed: m_pImp");
  EXPECT_EQ(assertionOf([&] { tip.getImp(); }), "Assertion failed: m_pImp");
  Tip copy = tip; // copying an empty tip is fine
  EXPECT_FALSE(copy.isValid());
}

TEST(AlertTipTest, AlertsReadTheMirrorsObjectWithDeviceValuesAndTips) {
  zel::StateManager mirror;
  zel::StateManager::DevicePtr disk(
      new zel::IDeviceImp("disk0", "Disk", zel::CapabilityImp("HardDrive")));
  mirror.addDevice(disk);
  zel::IAlertImp imp("a1", "DiskHot", zel::AlertTypeImp::HARDWARE_ISSUE, {"k.t", "Disk is hot"},
                     {"k.m", "The disk reached 71 °C."});
  imp.addValue("ApplicationName", "smartd").addValue("ApplicationName", "udisks");
  imp.addTip(cableTip());
  mirror.addAlert(imp, disk.get());

  AlertList alerts(mirror.getAlerts());
  ASSERT_EQ(alerts.size(), 1u);
  Alert const alert = alerts[0];
  EXPECT_EQ(alert.guid(), "a1");
  EXPECT_EQ(alert.key(), "DiskHot");
  EXPECT_EQ(alert.title(), "Disk is hot");
  EXPECT_EQ(alert.message(), "The disk reached 71 °C.");
  EXPECT_EQ(alert.type().imp(), zel::AlertTypeImp::HARDWARE_ISSUE);
  ASSERT_TRUE(alert.device().isValid());
  EXPECT_EQ(alert.device().guid(), "disk0");

  zel::String value("untouched");
  EXPECT_TRUE(alert.getValue(AlertValueKey::APPLICATION_NAME(), value, 1));
  EXPECT_EQ(value, "udisks");
  EXPECT_FALSE(alert.getValue(AlertValueKey::APPLICATION_NAME(), value, 2));
  EXPECT_EQ(value, "udisks");

  ASSERT_EQ(alert.tipCount(), 1u);
  Tip const tip = alert.tip(0);
  EXPECT_EQ(tip.key(), "Cable");
  EXPECT_EQ(tip.title(), "Check the cable");
  EXPECT_EQ(tip.text(), "Plug the cable in firmly.");
  EXPECT_EQ(tip.extended_text(), "Both ends.");
  EXPECT_EQ(tip.getImp(), mirror.alertByGuid("a1")->tip(0));
}

TEST(AlertTipTest, ModuleTipsPointAtTheModulesOwnTips) {
  boost::shared_ptr<zel::ModuleImp> imp(new zel::ModuleImp("mod"));
  imp->addTip(cableTip());
  Module module(imp);
  ASSERT_EQ(module.tipCount(), 1u);
  EXPECT_EQ(module.tip(0).getImp(), imp->tip(0));
  EXPECT_EQ(module.tip(0).text(), "Plug the cable in firmly.");
}

} // namespace
