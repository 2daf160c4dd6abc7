// The client core against the real in-process engine (libMorvain, loaded by
// the client library itself) serving a small simulated machine.
//
// The machine: a system with a processor and a disk; one device source that
// works and one that fails on the first enumeration only; a storage module
// with a test and a benchmark; one alert; and a timeline that heats the
// processor, then plugs in a USB stick.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ostrel/EnumerationObserver.h"
#include "ostrel/PropertyObserver.h"
#include "ostrel/Value.h"
#include "ostrel/ostrelMain.h"
#include "zel/Logger.h"
#include "zel/Resource.h"
#include "zel/StateManager.h"

using namespace ostrel5;
using Clock = std::chrono::steady_clock;

namespace {

char const MACHINE[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<Machine name="client spine">
  <Sources>
    <DeviceSource name="PCI bus"/>
    <DeviceSource name="IPMI" fail="the BMC did not answer" failTimes="1"/>
    <TestSource name="Diagnostic modules"/>
  </Sources>
  <Devices>
    <Device id="system" type="System" name="Spine box">
      <Device id="cpu0" type="CPU" name="Processor">
        <Property key="Cores" type="UINT32" value="4"/>
        <Property key="Temperature" type="UINT32" value="45"/>
      </Device>
      <Device id="disk0" type="HardDrive" name="Disk"/>
    </Device>
  </Devices>
  <Modules>
    <Module id="storage" name="Storage">
      <Test key="Quick" capabilities="HardDrive"/>
      <Benchmark key="Read" devices="disk0"/>
    </Module>
  </Modules>
  <Alerts>
    <Alert id="boot" key="SlowBoot" type="OS_STARTUP_TIME" title="Slow start"/>
  </Alerts>
  <Timeline>
    <At ms="300">
      <SetProperty device="cpu0"><Property key="Temperature" type="UINT32" value="71"/></SetProperty>
    </At>
    <At ms="400">
      <Device id="usb0" parent="system" type="USB" name="Stick"/>
    </At>
  </Timeline>
</Machine>
)";

template <class Predicate> bool waitUntil(Predicate predicate, int milliseconds = 10000) {
  auto const deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  while (!predicate()) {
    if (Clock::now() > deadline)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

class Recorder : public EnumerationObserver, public PropertyObserver {
public:
  std::vector<std::string> events() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_events;
  }
  bool saw(std::string const &line) {
    for (std::string const &event : events())
      if (event == line)
        return true;
    return false;
  }
  void clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.clear();
  }

  void handleDeviceEnumerationCompleted(zel::String const &source, unsigned int, double) override {
    add("completed " + std::string(source.c_str()));
  }
  void handleDeviceEnumerationFailed(zel::String const &source, zel::String const &reason,
                                     double) override {
    add("failed " + std::string(source.c_str()) + ": " + reason.c_str());
  }
  void handleAlert(Alert const &alert) override {
    add("alert " + std::string(alert.key().c_str()));
  }
  void handleEnumerationComplete(bool ok) override {
    add(std::string("complete ") + (ok ? "true" : "false"));
  }
  void handleNewDevice(Device const &device) override {
    add("newDevice " + std::string(device.name().c_str()));
  }
  void handlePropertyAboutToBeChanged(Device const &device, DeviceProperty const &oldProperty,
                                      DeviceProperty const &newProperty) override {
    add("aboutToChange " + std::string(device.name().c_str()) + " " +
        oldProperty.value().toString().c_str() + "->" + newProperty.value().toString().c_str());
  }
  void handlePropertyChanged(Device const &device, DeviceProperty const &property) override {
    add("changed " + std::string(device.name().c_str()) + " " +
        property.value().toString().c_str());
  }

private:
  void add(std::string line) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.push_back(std::move(line));
  }
  std::mutex m_mutex;
  std::vector<std::string> m_events;
};

class ClientWithEngine : public ::testing::Test {
protected:
  void SetUp() override {
    m_machine = ::testing::TempDir() + "ostrel-client-engine-machine.xml";
    std::ofstream(m_machine) << MACHINE;
    zel::Resource::setString("Engine.Machine", m_machine.c_str());
    zel::StateManager::instance().clear();
    registerEnumerationObserver(&m_recorder);
  }
  void TearDown() override {
    closeConnection(true);
    unregisterEnumerationObserver(&m_recorder);
    unRegisterPropertyObserver(&m_recorder);
    zel::Resource::reset();
    std::remove(m_machine.c_str());
  }

  std::string m_machine;
  Recorder m_recorder;
};

TEST_F(ClientWithEngine, EnumeratesTheMachineAndReconnects) {
  openConnection(".", false);
  ASSERT_TRUE(isConnectionActive()) << "the engine library did not start";
  EXPECT_TRUE(engineRunning());

  ASSERT_TRUE(enumerateDevices(DeviceCapability::ALL(), false, false, false));
  EXPECT_TRUE(isEnumerationComplete());
  ASSERT_TRUE(rootDevice().isValid());
  EXPECT_STREQ("Spine box", rootDevice().name().c_str());
  EXPECT_EQ(1u, getDevices(DeviceCapability::CPU()).size());
  EXPECT_STREQ("4",
               findDeviceProperty(DeviceCapability::CPU(), "Cores").value().toString().c_str());
  ASSERT_EQ(1u, alerts().size());
  EXPECT_STREQ("SlowBoot", alerts()[0].key().c_str());
  // Source reports come before the answer; alerts before completion.
  std::vector<std::string> const events = m_recorder.events();
  ASSERT_GE(events.size(), 4u);
  EXPECT_TRUE(m_recorder.saw("completed PCI bus"));
  EXPECT_TRUE(m_recorder.saw("failed IPMI: the BMC did not answer"));
  EXPECT_EQ("alert SlowBoot", events[events.size() - 2]);
  EXPECT_EQ("complete true", events.back());

  // The failing source fails only once.
  m_recorder.clear();
  ASSERT_TRUE(enumerateDevices(DeviceCapability::ALL(), true, false, false));
  EXPECT_TRUE(m_recorder.saw("completed IPMI"));

  ASSERT_TRUE(enumerateTests("."));
  EXPECT_EQ(1u, getTests("").size());
  EXPECT_EQ(1u, getBenchmarks("").size());
  EXPECT_TRUE(firstTest("Quick").isValid());
  EXPECT_TRUE(getTestRuns(TestState::ALL()));

  closeConnection(false);
  EXPECT_FALSE(isConnectionActive());
  EXPECT_FALSE(isEnumerationComplete());
  EXPECT_TRUE(rootDevice().isValid()); // the mirror stays

  // The engine starts again in this process, and the observers are still
  // registered.
  m_recorder.clear();
  openConnection(".", false);
  ASSERT_TRUE(isConnectionActive());
  ASSERT_TRUE(enumerateDevices(DeviceCapability::ALL(), false, false, false));
  EXPECT_TRUE(m_recorder.saw("completed PCI bus"));
  EXPECT_EQ("complete true", m_recorder.events().back());
}

TEST_F(ClientWithEngine, LiveChangesReachTheObservers) {
  openConnection(".", false);
  ASSERT_TRUE(isConnectionActive());
  ASSERT_TRUE(enumerateDevices(DeviceCapability::ALL(), false, false, false));
  Device const cpu = firstDevice(DeviceCapability::CPU());
  ASSERT_TRUE(cpu.isValid());
  cpu.property("Temperature").registerObserver(cpu, &m_recorder);

  ASSERT_TRUE(waitUntil([&] { return m_recorder.saw("newDevice Stick"); }));
  std::vector<std::string> const events = m_recorder.events();
  // The property observer and the enumeration observer (the same object)
  // each hear the change, before and after; the change comes first.
  std::vector<std::string> expected = {"aboutToChange Processor 45->71",
                                       "aboutToChange Processor 45->71", "changed Processor 71",
                                       "changed Processor 71", "newDevice Stick"};
  std::vector<std::string> live(events.end() - 5, events.end());
  EXPECT_EQ(expected, live);
  EXPECT_STREQ("71", cpu.property("Temperature").value().toString().c_str());
  EXPECT_EQ(1u, getDevices(DeviceCapability::USB()).size());
}

} // namespace
