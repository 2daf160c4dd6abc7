// The message catalogue: every class survives encoding and cloning with all
// its fields, reaches its own handler overload, and hostile bytes end in
// zel::BadInput.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <boost/make_shared.hpp>

#include <functional>
#include <set>
#include <string>
#include <typeinfo>
#include <vector>

#include "zel/IndicatorRunImp.h"
#include "zel/MessageCodec.h"
#include "zel/Messages.h"
#include "zel/StateManager.h"
#include "zel/TestRunImp.h"
#include "zel/TestRunManager.h"

using namespace zel;

namespace {

// ---------------------------------------------------------------- payloads

IndicatorRunImp indicatorRun(char const *guid) {
  IndicatorRunImp run;
  run.setGuid(guid).setPaused(true, 30).setStartTime(1700000000);
  return run;
}

StateManager mirrorWith(char const *indicatorRunGuid) {
  StateManager state;
  state.addIndicatorRun(indicatorRun(indicatorRunGuid));
  return state;
}

bool holdsOnly(StateManager const &state, char const *indicatorRunGuid) {
  auto runs = state.getIndicatorRuns();
  return runs.size() == 1 && runs[0]->guid() == indicatorRunGuid && runs[0]->isPaused() &&
         runs[0]->idleTime() == 30;
}

TestRunImp testRun(char const *guid) {
  TestRunImp run;
  run.setGuid(guid);
  run.setState(TestStateImp::RUNNING);
  run.setFinalResult(TestResultImp::TESTINGINPROGRESS);
  run.setPercentComplete(40);
  run.setProgressInformation("pass 2 of 3");
  return run;
}

bool isTestRun(TestRunImp const &run, char const *guid) {
  return run.guid() == guid && run.state() == TestStateImp::RUNNING &&
         run.result() == TestResultImp::TESTINGINPROGRESS && run.percentComplete() == 40 &&
         run.progressInformation() == "pass 2 of 3";
}

// ---------------------------------------------------------------- the table

struct Row {
  MsgTypeId type;
  std::function<Message *()> make;
  /// Checks every field the class adds (the base fields are checked apart).
  std::function<void(Message const &)> check;
  /// Changes a payload of a clone, so that the original can be checked
  /// unchanged; empty for classes without payload.
  std::function<void(Message &)> mutatePayload;
};

template <class M>
Row row(std::function<M *()> make, std::function<void(M const &)> check = {},
        std::function<void(M &)> mutate = {}) {
  Row r;
  r.type = MessageHandle(make())->getType();
  r.make = [make] { return make(); };
  if (check)
    r.check = [check](Message const &m) {
      auto const *typed = dynamic_cast<M const *>(&m);
      ASSERT_NE(typed, nullptr) << typeid(m).name();
      check(*typed);
    };
  if (mutate)
    r.mutatePayload = [mutate](Message &m) { mutate(dynamic_cast<M &>(m)); };
  return r;
}

template <class M> Row plain() {
  return row<M>([] { return new M(); });
}

template <class M> Row enumerationResult() {
  return row<M>([] { return new M("source \"A\"\n", 2.5, 17u); },
                [](M const &m) {
                  EXPECT_EQ(m.sourceName(), "source \"A\"\n");
                  EXPECT_EQ(m.elapsed(), 2.5);
                  EXPECT_EQ(m.count(), 17u);
                });
}

template <class M> Row enumerationFailure() {
  return row<M>([] { return new M("smbios", 0.125, "no table"); },
                [](M const &m) {
                  EXPECT_EQ(m.sourceName(), "smbios");
                  EXPECT_EQ(m.elapsed(), 0.125);
                  EXPECT_EQ(m.reason(), "no table");
                });
}

Array<String> strings(std::initializer_list<char const *> texts) {
  Array<String> out;
  for (char const *t : texts)
    out.append(t);
  return out;
}

std::vector<Row> const &catalogue() {
  static std::vector<Row> const rows = [] {
    std::vector<Row> r;
    r.push_back(plain<Message>());
    r.push_back(plain<EnumerationMessage>());
    r.push_back(plain<DiagnosticMessage>());
    r.push_back(plain<ControlMessage>());
    r.push_back(plain<IndicatorMessage>());
    r.push_back(plain<IPCMessage>());
    r.push_back(plain<ShutdownClientToEngine>());
    r.push_back(plain<ClientCrashed>());
    r.push_back(plain<ClientLoggedOut>());
    r.push_back(plain<EnumerationInProgressEngineToClient>());

    r.push_back(row<EnumerateDevicesClientToEngine>(
        [] {
          return new EnumerateDevicesClientToEngine(CapabilityImp("PCI|USB"), true, true, true);
        },
        [](EnumerateDevicesClientToEngine const &m) {
          EXPECT_EQ(m.capability(), CapabilityImp("USB|PCI"));
          EXPECT_TRUE(m.forceReEnum());
          EXPECT_TRUE(m.detailed());
          EXPECT_TRUE(m.internetAccessAllowed());
        }));
    r.push_back(row<EnumerateTestsClientToEngine>(
        [] { return new EnumerateTestsClientToEngine("/var/lib/ostrel/db"); },
        [](EnumerateTestsClientToEngine const &m) {
          EXPECT_EQ(m.databaseDirectory(), "/var/lib/ostrel/db");
        }));
    r.push_back(row<EnumerateTestRunsClientToEngine>(
        [] {
          auto *m = new EnumerateTestRunsClientToEngine();
          m->setTestState(TestStateImp::EXITED);
          return m;
        },
        [](EnumerateTestRunsClientToEngine const &m) {
          EXPECT_EQ(m.testState(), TestStateImp::EXITED);
        }));
    r.push_back(row<SetInternetAccessAllowed>(
        [] { return new SetInternetAccessAllowed(true); },
        [](SetInternetAccessAllowed const &m) { EXPECT_TRUE(m.allowed()); }));
    r.push_back(row<SysInfoRequestToEngine>(
        [] { return new SysInfoRequestToEngine("dev-3"); },
        [](SysInfoRequestToEngine const &m) { EXPECT_EQ(m.deviceGuid(), "dev-3"); }));
    r.push_back(row<EnumerationProgressMessage>(
        [] { return new EnumerationProgressMessage("pci", 55, "bus 3"); },
        [](EnumerationProgressMessage const &m) {
          EXPECT_EQ(m.sourceName(), "pci");
          EXPECT_EQ(m.percentComplete(), 55u);
          EXPECT_EQ(m.text(), "bus 3");
        }));
    r.push_back(enumerationResult<DeviceEnumerationCompleted>());
    r.push_back(enumerationResult<TestEnumerationCompleted>());
    r.push_back(enumerationFailure<DeviceEnumerationFailed>());
    r.push_back(enumerationFailure<TestEnumerationFailed>());
    r.push_back(row<EnumerationReturnedFromEngine>(
        [] { return new EnumerationReturnedFromEngine(mirrorWith("ir-1")); },
        [](EnumerationReturnedFromEngine const &m) {
          EXPECT_TRUE(holdsOnly(m.getState(), "ir-1"));
        },
        [](EnumerationReturnedFromEngine &m) {
          m.getState().addIndicatorRun(indicatorRun("ir-extra"));
        }));
    r.push_back(row<EnumerationReturnedProviderToEngine>(
        [] { return new EnumerationReturnedProviderToEngine("acpi", mirrorWith("ir-2")); },
        [](EnumerationReturnedProviderToEngine const &m) {
          EXPECT_EQ(m.providerName(), "acpi");
          EXPECT_TRUE(holdsOnly(m.getState(), "ir-2"));
        },
        [](EnumerationReturnedProviderToEngine &m) { m.getState().clear(); }));
    r.push_back(row<TestRunsReturnedEngineToClient>(
        [] {
          auto *manager = new TestRunManager();
          manager->addTestRun(boost::make_shared<TestRunImp>(testRun("run-1")));
          return new TestRunsReturnedEngineToClient(manager);
        },
        [](TestRunsReturnedEngineToClient const &m) {
          ASSERT_NE(m.testRunManager(), nullptr);
          EXPECT_EQ(m.testRunManager()->testRunCount(), 1u);
          auto run = m.testRunManager()->testRunByGuid("run-1");
          ASSERT_TRUE(run);
          EXPECT_TRUE(isTestRun(*run, "run-1"));
        },
        [](TestRunsReturnedEngineToClient &m) { delete m.takeTestRunManager(); }));

    r.push_back(row<RunTestClientToEngine>(
        [] {
          TestRunImp run = testRun("run-2");
          return new RunTestClientToEngine(&run);
        },
        [](RunTestClientToEngine const &m) {
          ASSERT_TRUE(m.hasTestRun());
          EXPECT_TRUE(isTestRun(m.getTestRun(), "run-2"));
        },
        [](RunTestClientToEngine &m) { m.getTestRun().setPercentComplete(99); }));
    r.push_back(row<StopTestsClientToEngine>(
        [] {
          auto *m = new StopTestsClientToEngine(TestResultImp::MAXTIMEEXCEEDED);
          m->addTestRunGuid("run-a");
          m->addTestRunGuid("run-a");
          return m;
        },
        [](StopTestsClientToEngine const &m) {
          EXPECT_EQ(m.result(), TestResultImp::MAXTIMEEXCEEDED);
          EXPECT_EQ(m.testRunGuids(), strings({"run-a", "run-a"}));
        }));
    r.push_back(row<StopTestEngineToProvider>(
        [] {
          auto *m = new StopTestEngineToProvider(TestResultImp::sentinel());
          m->addTestRunGuid("run-b");
          return m;
        },
        [](StopTestEngineToProvider const &m) {
          EXPECT_FALSE(m.result().isValid());
          EXPECT_EQ(m.testRunGuids(), strings({"run-b"}));
        }));
    r.push_back(row<TestProgressProviderToEngine>(
        [] { return new TestProgressProviderToEngine(testRun("run-3")); },
        [](TestProgressProviderToEngine const &m) {
          EXPECT_TRUE(isTestRun(m.getTestRun(), "run-3"));
        },
        [](TestProgressProviderToEngine &m) { m.getTestRun().setProgressInformation("x"); }));
    r.push_back(row<TestProgressEngineToClient>(
        [] { return new TestProgressEngineToClient(testRun("run-4")); },
        [](TestProgressEngineToClient const &m) {
          EXPECT_TRUE(isTestRun(m.getTestRun(), "run-4"));
        },
        [](TestProgressEngineToClient &m) { m.getTestRun().setState(TestStateImp::EXITED); }));

    r.push_back(row<ModuleStarted>([] { return new ModuleStarted("mod-1", 4242); },
                                   [](ModuleStarted const &m) {
                                     EXPECT_EQ(m.moduleGuid(), "mod-1");
                                     EXPECT_EQ(m.processId(), 4242u);
                                   }));
    r.push_back(row<SetLocaleMessage>(
        [] {
          return new SetLocaleMessage(
              ZELLocale(Language("de"), "acme", "CH", "a0", "", "a2", "a3"));
        },
        [](SetLocaleMessage const &m) {
          EXPECT_EQ(m.locale(), ZELLocale(Language("de"), "acme", "CH", "a0", "", "a2", "a3"));
        }));

    r.push_back(row<RunIndicatorClientToEngine>(
        [] { return new RunIndicatorClientToEngine(new IndicatorRunImp(indicatorRun("ir-3"))); },
        [](RunIndicatorClientToEngine const &m) {
          EXPECT_EQ(m.getIndicatorRun(), indicatorRun("ir-3"));
        },
        [](RunIndicatorClientToEngine &m) { m.getIndicatorRun().setGuid("changed"); }));
    r.push_back(row<PauseIndicatorClientToEngineToProvider>(
        [] {
          IndicatorRunImp run = indicatorRun("ir-4");
          return new PauseIndicatorClientToEngineToProvider(&run, 60);
        },
        [](PauseIndicatorClientToEngineToProvider const &m) {
          EXPECT_EQ(m.getIndicatorRun(), indicatorRun("ir-4"));
          EXPECT_EQ(m.idleTime(), 60u);
        },
        [](PauseIndicatorClientToEngineToProvider &m) { m.getIndicatorRun().setPaused(false); }));
    r.push_back(row<ResumeIndicatorClientToEngineToProvider>(
        [] {
          IndicatorRunImp run = indicatorRun("ir-5");
          return new ResumeIndicatorClientToEngineToProvider(&run);
        },
        [](ResumeIndicatorClientToEngineToProvider const &m) {
          EXPECT_EQ(m.getIndicatorRun(), indicatorRun("ir-5"));
        },
        [](ResumeIndicatorClientToEngineToProvider &m) { m.getIndicatorRun().setStartTime(1); }));
    r.push_back(row<RequestUpdateClientToEngineToIndicator>(
        [] { return new RequestUpdateClientToEngineToIndicator("dev-1", "Temperature"); },
        [](RequestUpdateClientToEngineToIndicator const &m) {
          EXPECT_EQ(m.deviceGuid(), "dev-1");
          EXPECT_EQ(m.propertyKey(), "Temperature");
        }));
    r.push_back(row<SetUpdateIntervalIndicatorClientToEngine>(
        [] { return new SetUpdateIntervalIndicatorClientToEngine("ir-6", 15); },
        [](SetUpdateIntervalIndicatorClientToEngine const &m) {
          EXPECT_EQ(m.indicatorRunGuid(), "ir-6");
          EXPECT_EQ(m.intervalSeconds(), 15u);
        }));
    r.push_back(row<ForceUpdateIndicatorClientToEngine>(
        [] { return new ForceUpdateIndicatorClientToEngine("ir-7"); },
        [](ForceUpdateIndicatorClientToEngine const &m) {
          EXPECT_EQ(m.indicatorRunGuid(), "ir-7");
        }));
    r.push_back(row<StopIndicatorClientToEngine>(
        [] { return new StopIndicatorClientToEngine("ir-8"); },
        [](StopIndicatorClientToEngine const &m) { EXPECT_EQ(m.indicatorRunGuid(), "ir-8"); }));
    r.push_back(row<UpdatesProviderToEngineToUI>(
        [] {
          return new UpdatesProviderToEngineToUI(
              mirrorWith("ir-9"), strings({"dev-gone"}), strings({"dev-1", "dev-2"}),
              strings({"Speed", "Serial"}), strings({"alert-1", "alert-2"}));
        },
        [](UpdatesProviderToEngineToUI const &m) {
          EXPECT_TRUE(holdsOnly(m.state(), "ir-9"));
          EXPECT_EQ(m.deviceGuidsToRemove(), strings({"dev-gone"}));
          EXPECT_EQ(m.deviceGuidsForPropertiesToRemove(), strings({"dev-1", "dev-2"}));
          EXPECT_EQ(m.propertyGuidsToRemove(), strings({"Speed", "Serial"}));
          EXPECT_EQ(m.alertGuidsToRemove(), strings({"alert-1", "alert-2"}));
        },
        [](UpdatesProviderToEngineToUI &m) {
          m.state().addIndicatorRun(indicatorRun("ir-extra"));
          m.addPropertyToRemove("dev-3", "Size");
        }));
    r.push_back(row<DeviceUpdateEngineToClient>(
        [] {
          return new DeviceUpdateEngineToClient("dev-4", strings({"A", "", "C"}));
        },
        [](DeviceUpdateEngineToClient const &m) {
          EXPECT_EQ(m.deviceGuid(), "dev-4");
          EXPECT_EQ(m.propertyKeys(), strings({"A", "", "C"}));
        }));
    r.push_back(row<HttpGetRequestProviderToEngine>(
        [] { return new HttpGetRequestProviderToEngine("https://example.org/x?y=1", 7); },
        [](HttpGetRequestProviderToEngine const &m) {
          EXPECT_EQ(m.url(), "https://example.org/x?y=1");
          EXPECT_EQ(m.requestId(), 7u);
        }));

    r.push_back(row<MessageBox2RequestMessage>(
        [] {
          return new MessageBox2RequestMessage(
              MessageBox2Request("Insert a disc", "Optical drive", 1, 2, 0xFFFFFFFFu, 4), "run-5",
              31u);
        },
        [](MessageBox2RequestMessage const &m) {
          EXPECT_EQ(m.request(),
                    MessageBox2Request("Insert a disc", "Optical drive", 1, 2, 0xFFFFFFFFu, 4));
          EXPECT_EQ(m.testRunGuid(), "run-5");
          EXPECT_EQ(m.getUniqueId(), 31u);
        }));
    r.push_back(
        row<MessageBox2AckMessage>([] { return new MessageBox2AckMessage("run-6", 32u, true); },
                                   [](MessageBox2AckMessage const &m) {
                                     EXPECT_EQ(m.testRunGuid(), "run-6");
                                     EXPECT_EQ(m.getUniqueId(), 32u);
                                     EXPECT_TRUE(m.handled());
                                   }));
    r.push_back(row<MessageBox2ResultMessage>(
        [] { return new MessageBox2ResultMessage(MessageBox2Result(2, "typed"), "run-7", 33u); },
        [](MessageBox2ResultMessage const &m) {
          EXPECT_EQ(m.result(), MessageBox2Result(2, "typed"));
          EXPECT_EQ(m.testRunGuid(), "run-7");
          EXPECT_EQ(m.getUniqueId(), 33u);
        }));
    r.push_back(
        row<MessageBox2CancelMessage>([] { return new MessageBox2CancelMessage("run-8", 34u); },
                                      [](MessageBox2CancelMessage const &m) {
                                        EXPECT_EQ(m.testRunGuid(), "run-8");
                                        EXPECT_EQ(m.getUniqueId(), 34u);
                                      }));
    r.push_back(
        row<UnknownMessage>([] { return new UnknownMessage(4321, String("\x01\x00\xff", 3)); },
                            [](UnknownMessage const &m) {
                              EXPECT_EQ(m.unknownTypeId(), 4321u);
                              EXPECT_EQ(m.rawBytes(), String("\x01\x00\xff", 3));
                            }));
    return r;
  }();
  return rows;
}

void stampBase(Message &m) {
  unsigned n = static_cast<unsigned>(m.getType());
  m.setClientID(1000 + n);
  m.setClientName(String::format("client-%u", n));
  m.setPriority(static_cast<short>(n % 2 ? -3 : 9));
}

void expectBase(Message const &m) {
  unsigned n = static_cast<unsigned>(m.getType());
  EXPECT_EQ(m.clientID(), 1000 + n);
  EXPECT_EQ(m.clientName(), String::format("client-%u", n));
  EXPECT_EQ(m.priority(), static_cast<short>(n % 2 ? -3 : 9));
}

/// Records which overload a dispatch reached.
class RecordingHandler : public MessageHandler {
public:
  std::vector<MsgTypeId> reached;
#define ZEL_RECORD_OVERLOAD(name, number)                                                          \
  HandlerReturn handleMessage(name const &) override {                                             \
    reached.push_back(MsgTypeId::name);                                                            \
    return 1;                                                                                      \
  }
  ZEL_MESSAGE_TYPES(ZEL_RECORD_OVERLOAD)
#undef ZEL_RECORD_OVERLOAD
};

String patchedType(String bytes, std::uint16_t type) {
  // After cereal's byte-order mark, the type number (little-endian).
  bytes.str()[1] = static_cast<char>(type & 0xff);
  bytes.str()[2] = static_cast<char>(type >> 8);
  return bytes;
}

} // namespace

TEST(MessageCatalogue, TableCoversEveryClassOnce) {
  std::set<MsgTypeId> types;
  for (Row const &r : catalogue())
    EXPECT_TRUE(types.insert(r.type).second) << toString(r.type);
  EXPECT_EQ(types.size(), MSG_TYPE_COUNT);
  for (MsgTypeId t : types)
    EXPECT_TRUE(isKnownMsgType(static_cast<unsigned>(t)));
  EXPECT_EQ(toString(MsgTypeId::EnumerationReturnedFromEngine), "EnumerationReturnedFromEngine");
  EXPECT_EQ(toString(static_cast<MsgTypeId>(47)), "MsgTypeId(47)");
}

TEST(MessageCatalogue, EveryClassRoundTripsClonesDeeplyAndDispatchesToItsOverload) {
  for (Row const &r : catalogue()) {
    SCOPED_TRACE(toString(r.type));
    MessageHandle original(r.make());
    stampBase(*original);
    if (r.check)
      r.check(*original);

    // Encoding: same class, same base fields, same fields, same bytes again.
    String bytes = encodeMessage(*original);
    MessageHandle decoded = decodeMessage(bytes);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded.useCount(), 1);
    EXPECT_EQ(typeid(*decoded), typeid(*original));
    EXPECT_EQ(decoded->getType(), r.type);
    expectBase(*decoded);
    if (r.check)
      r.check(*decoded);
    EXPECT_EQ(encodeMessage(*decoded), bytes);
    EXPECT_EQ(decoded->toString(true), original->toString(true));

    // Cloning: a deep, independent copy.
    MessageTransfer clone = original->clone();
    ASSERT_TRUE(clone);
    EXPECT_NE(clone.get(), original.get());
    EXPECT_EQ(typeid(*clone), typeid(*original));
    expectBase(*clone);
    if (r.check)
      r.check(*clone);
    clone->setClientID(1);
    clone->setClientName("changed");
    clone->setPriority(0);
    if (r.mutatePayload)
      r.mutatePayload(*clone);
    expectBase(*original);
    if (r.check)
      r.check(*original);

    // copyBaseValues brings the base fields back; the payload change stays.
    clone->copyBaseValues(*original);
    expectBase(*clone);
    if (r.mutatePayload) {
      EXPECT_NE(encodeMessage(*clone), bytes) << "the payload change shows in the clone";
    }

    // Dispatch: the message's own overload, from the original and the copies.
    RecordingHandler handler;
    EXPECT_EQ(original->dispatchToHandler(handler), 1);
    EXPECT_EQ(decoded->dispatchToHandler(handler), 1);
    EXPECT_EQ(clone->dispatchToHandler(handler), 1);
    EXPECT_EQ(handler.reached, (std::vector<MsgTypeId>{r.type, r.type, r.type}));
    MessageHandler defaults;
    EXPECT_EQ(original->dispatchToHandler(defaults), 0);
  }
}

TEST(MessageCatalogue, LogLineIsOneLineWithTypeBaseAndFields) {
  DeviceEnumerationFailed m("pci\nbus", 1.5, "tab\there");
  m.setClientID(255);
  m.setClientName("none");
  EXPECT_EQ(m.toString(), "DeviceEnumerationFailed client=255 name=\"none\" priority=0 "
                          "sourceName=\"pci\\nbus\" elapsed=1.5 reason=\"tab\\there\"");
  for (Row const &r : catalogue()) {
    MessageHandle msg(r.make());
    String line = msg->toString(true);
    EXPECT_EQ(line.find('\n'), String::npos) << line;
    EXPECT_TRUE(line.startsWith(toString(r.type))) << line;
  }
}

TEST(MessageCatalogue, UnknownTypeNumbersDecodeToUnknownMessageAndPassThroughUnchanged) {
  ModuleStarted known("mod-x", 77);
  known.setClientID(9);
  known.setClientName("peer");
  String bytes = patchedType(encodeMessage(known), 900);

  MessageHandle decoded = decodeMessage(bytes);
  ASSERT_EQ(decoded->getType(), MsgTypeId::UnknownMessage);
  auto const &unknown = static_cast<UnknownMessage const &>(*decoded);
  EXPECT_EQ(unknown.unknownTypeId(), 900u);
  EXPECT_EQ(unknown.clientID(), 9u);
  EXPECT_EQ(unknown.clientName(), "peer");
  EXPECT_FALSE(unknown.rawBytes().isEmpty());
  EXPECT_EQ(encodeMessage(unknown), bytes);

  RecordingHandler handler;
  decoded->dispatchToHandler(handler);
  EXPECT_EQ(handler.reached, std::vector<MsgTypeId>{MsgTypeId::UnknownMessage});

  // Number 0 (none) and the gaps are unknown too; a relayed unknown message
  // that names a known class decodes as that class again.
  for (std::uint16_t t : {0, 1, 47, 0xFFFF}) {
    EXPECT_EQ(decodeMessage(patchedType(bytes, t))->getType(), MsgTypeId::UnknownMessage) << t;
  }
  UnknownMessage relay(static_cast<unsigned>(MsgTypeId::ModuleStarted), unknown.rawBytes());
  MessageHandle again = decodeMessage(encodeMessage(relay));
  ASSERT_EQ(again->getType(), MsgTypeId::ModuleStarted);
  EXPECT_EQ(static_cast<ModuleStarted const &>(*again).processId(), 77u);
}

TEST(MessageCatalogue, EveryTruncationAndTrailingByteIsBadInput) {
  for (Row const &r : catalogue()) {
    if (r.type == MsgTypeId::UnknownMessage)
      continue; // its raw fields have no length: any prefix past the base is one
    SCOPED_TRACE(toString(r.type));
    MessageHandle m(r.make());
    String bytes = encodeMessage(*m);
    for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
      EXPECT_THROW(decodeMessage(bytes.data(), cut), BadInput) << "cut at " << cut;
    }
    EXPECT_THROW(decodeMessage(bytes + String("\0", 1)), BadInput);
  }
}

TEST(MessageCatalogue, MalformedFieldsAreBadInput) {
  // A flag byte other than 0 or 1.
  String flag = encodeMessage(SetInternetAccessAllowed(true));
  flag.str().back() = 2;
  EXPECT_THROW(decodeMessage(flag), BadInput);

  // A row past the table of test results.
  String row = encodeMessage(StopTestsClientToEngine(TestResultImp::PASS));
  std::size_t at = row.size() - 8 - 4; // the row, before the empty guid list
  row.str()[at] = static_cast<char>(0xEE);
  EXPECT_THROW(decodeMessage(row), BadInput);

  // A string claiming far more bytes than the frame holds.
  String huge = encodeMessage(EnumerateTestsClientToEngine("x"));
  for (std::size_t i = huge.size() - 9; i < huge.size() - 1; ++i)
    huge.str()[i] = static_cast<char>(0x7F);
  EXPECT_THROW(decodeMessage(huge), BadInput);

  // More properties to remove than devices they belong to.
  UpdatesProviderToEngineToUI update(StateManager(), strings({}), strings({"dev-1"}),
                                     strings({"A", "B"}), strings({}));
  EXPECT_THROW(decodeMessage(encodeMessage(update)), BadInput);
}

TEST(MessageCatalogue, TestRunListIsHandedOverOnce) {
  auto *manager = new TestRunManager();
  TestRunsReturnedEngineToClient m(manager);
  MessageTransfer clone = m.clone();
  TestRunManager *taken = m.takeTestRunManager();
  EXPECT_EQ(taken, manager);
  EXPECT_EQ(m.takeTestRunManager(), nullptr);
  delete taken;
  auto const &copy = static_cast<TestRunsReturnedEngineToClient const &>(*clone);
  ASSERT_NE(copy.testRunManager(), nullptr);
  EXPECT_NE(copy.testRunManager(), manager);
  delete copy.takeTestRunManager();

  TestRunsReturnedEngineToClient empty(nullptr);
  MessageHandle back = decodeMessage(encodeMessage(empty));
  EXPECT_EQ(static_cast<TestRunsReturnedEngineToClient const &>(*back).testRunManager(), nullptr);
}

RC_GTEST_PROP(MessageCatalogueProperties, ArbitraryBytesDecodeOrRaiseBadInput,
              (std::uint16_t type, std::vector<unsigned char> rest, bool withBase)) {
  // A valid start (byte-order mark, a type near the catalogue, often valid
  // base fields) gets the decoder past the header into the field decoders.
  std::string bytes("\x01", 1);
  std::uint16_t t = static_cast<std::uint16_t>(type % 50);
  bytes.append(reinterpret_cast<char const *>(&t), 2);
  if (withBase)
    bytes.append(std::string("\x07\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00", 14));
  bytes.append(rest.begin(), rest.end());
  try {
    MessageHandle m = decodeMessage(bytes.data(), bytes.size());
    RC_ASSERT(m.isValid());
    // Whatever decodes encodes again, and decodes to the same thing.
    String again = encodeMessage(*m);
    RC_ASSERT(decodeMessage(again)->toString(true) == m->toString(true));
  } catch (BadInput const &) {
  }
}

RC_GTEST_PROP(MessageCatalogueProperties, RandomBytesNeverCrash, (std::vector<unsigned char> b)) {
  try {
    decodeMessage(reinterpret_cast<char const *>(b.data()), b.size());
  } catch (BadInput const &) {
  }
}

RC_GTEST_PROP(MessageCatalogueProperties, OneCorruptByteDecodesOrRaisesBadInput,
              (std::size_t rowPick, std::size_t positionPick, unsigned char value)) {
  // Valid encodings with one byte changed reach every field decoder, payload
  // decoders included, with otherwise plausible input.
  Row const &r = catalogue()[rowPick % catalogue().size()];
  MessageHandle m(r.make());
  String bytes = encodeMessage(*m);
  bytes.str()[positionPick % bytes.size()] = static_cast<char>(value);
  try {
    MessageHandle back = decodeMessage(bytes);
    RC_ASSERT(back.isValid());
    RC_ASSERT(decodeMessage(encodeMessage(*back))->toString(true) == back->toString(true));
  } catch (BadInput const &) {
  }
}
