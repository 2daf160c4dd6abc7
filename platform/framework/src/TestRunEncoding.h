#pragma once
// Encodings of test runs, their events and the run registry, in the
// framework's binary encoding (Encoding.h). Messages carry runs with these
// (RunTestClientToEngine, TestProgressEngineToClient, and a whole
// TestRunManager in TestRunsReturnedEngineToClient).
//
// What a run carries. The run's own data: guid, parameters, limits, flags,
// index and pass, forced result, state, result, percent, texts, times,
// counts, the events with their tips and the event cursor. Observers never
// travel. The test and the device travel whole (TestImp with its parameters
// and tips; IDeviceImp with its properties, without children), each behind a
// presence flag, rather than as guids to look up on the other side:
//  - a run the client learns from the engine's run list becomes a registered
//    run whose test() and device() the client's handles use at once, without
//    a mirror look-up that may fail (mirror not enumerated yet, or cleared);
//  - the engine learns everything about the test it has to run (flags,
//    declared parameters) from the run itself;
//  - decoding stays free of any process-wide state.
// The price is the size of each progress report (a device's properties
// included), which is small next to the rates at which runs report.
//
// Decoding checks every count against the bytes left, every row number
// against its table, that a percentage is at most 100, that the event
// cursor lies within the events and that no event guid occurs twice; any
// failure, truncation included, raises zel::BadInput. A run or manager is
// replaced only once its own bytes have been read in full, so a failure
// within them leaves the target as it was (bytes trailing after it are
// found by encoding::decode afterwards).

#include <cstdint>

#include "Encoding.h"
#include "ObjectEncoding.h"
#include "zel/TestRunEventImp.h"
#include "zel/TestRunImp.h"
#include "zel/TestRunManager.h"

namespace zel {

struct TestRunCodec {
  // ---- TestRunEventImp

  template <class A> static void save(A &ar, TestRunEventImp const &e) {
    ar(e.m_guid, e.m_module, e.m_key, e.m_message, e.m_messageOverride, e.m_hasOverride);
    ar(static_cast<std::uint32_t>(e.m_eventCode), e.m_eventCodeString, e.m_customerEventCode);
    encoding::saveConstant(ar, e.m_type);
    ar(e.m_device, e.m_sourceFile, static_cast<std::uint32_t>(e.m_sourceLine),
       static_cast<std::int64_t>(e.m_timeTriggered));
    ar(e.m_tips);
  }

  template <class A> static void load(A &ar, TestRunEventImp &e) {
    TestRunEventImp out;
    std::uint32_t code = 0, line = 0;
    std::int64_t time = 0;
    ar(out.m_guid, out.m_module, out.m_key, out.m_message, out.m_messageOverride,
       out.m_hasOverride);
    ar(code, out.m_eventCodeString, out.m_customerEventCode);
    out.m_type = encoding::loadConstant<A, EventTypeImp>(ar);
    ar(out.m_device, out.m_sourceFile, line, time);
    ar(out.m_tips);
    if (out.m_guid.isEmpty())
      throw BadInput("encoded test run event has no guid");
    out.m_eventCode = code;
    out.m_sourceLine = line;
    out.m_timeTriggered = time;
    e = std::move(out);
  }

  // ---- TestRunImp

  template <class A> static void save(A &ar, TestRunImp const &run) {
    // The lock is held for the whole write: nothing in it calls out of the
    // encoder, and readers see one consistent report.
    MutexGuard guard(run.m_lock);
    TestRunImp::Data const &d = run.m_d;
    ar(d.guid);
    encoding::saveShared(ar, d.test);
    encoding::saveShared(ar, d.device);
    ar(static_cast<std::uint32_t>(d.parameters.size()));
    for (auto const &p : d.parameters)
      ar(*p);
    ar(static_cast<std::uint64_t>(d.minTime), static_cast<std::uint64_t>(d.maxTime),
       d.msgBoxSupported, d.promptingEnabled);
    ar(static_cast<std::uint32_t>(d.index), static_cast<std::uint32_t>(d.currentPass),
       static_cast<std::uint32_t>(d.identityForAllPasses), static_cast<std::uint32_t>(d.errorLimit),
       static_cast<std::int64_t>(d.beginningTime));
    encoding::saveConstant(ar, d.forcedResult);
    encoding::saveConstant(ar, d.state);
    encoding::saveConstant(ar, d.result);
    ar(static_cast<std::uint32_t>(d.percent), static_cast<std::uint32_t>(d.estimatedTimeLeft),
       d.progressInformation, static_cast<std::uint64_t>(d.elapsedTime), d.errorCode,
       static_cast<std::uint32_t>(d.errorCount), static_cast<std::uint32_t>(d.clientPID));
    ar(static_cast<std::uint32_t>(d.events.size()));
    for (auto const &e : d.events)
      save(ar, *e);
    ar(static_cast<std::uint32_t>(d.nextEvent));
  }

  template <class A> static void load(A &ar, TestRunImp &run) {
    TestRunImp::Data d;
    ar(d.guid);
    if (d.guid.isEmpty())
      throw BadInput("encoded test run has no guid");
    encoding::loadShared(ar, d.test);
    encoding::loadShared(ar, d.device);
    std::uint32_t n = encoding::loadSize(ar, 20);
    d.parameters = Array<boost::shared_ptr<ParameterImp>>(n);
    for (std::uint32_t i = 0; i < n; ++i) {
      boost::shared_ptr<ParameterImp> p(new ParameterImp());
      ar(*p);
      d.parameters.append(p);
    }
    std::uint64_t minTime = 0, maxTime = 0, elapsed = 0;
    std::uint32_t index = 0, pass = 0, identity = 0, errorLimit = 0;
    std::int64_t beginning = 0;
    ar(minTime, maxTime, d.msgBoxSupported, d.promptingEnabled);
    ar(index, pass, identity, errorLimit, beginning);
    d.forcedResult = encoding::loadConstant<A, TestResultImp>(ar);
    d.state = encoding::loadConstant<A, TestStateImp>(ar);
    d.result = encoding::loadConstant<A, TestResultImp>(ar);
    std::uint32_t percent = 0, left = 0, errorCount = 0, pid = 0;
    ar(percent, left, d.progressInformation, elapsed, d.errorCode, errorCount, pid);
    if (percent > 100)
      throw BadInput("encoded test run is more than 100 percent complete");
    std::uint32_t events = encoding::loadSize(ar, 40);
    d.events = Array<boost::shared_ptr<TestRunEventImp>>(events);
    HashTable<String, bool> guids;
    for (std::uint32_t i = 0; i < events; ++i) {
      boost::shared_ptr<TestRunEventImp> e(new TestRunEventImp());
      load(ar, *e);
      if (!guids.insertIfAbsent(e->guid(), true))
        throw BadInput("encoded test run holds an event twice");
      d.events.append(e);
    }
    std::uint32_t cursor = 0;
    ar(cursor);
    if (cursor > events)
      throw BadInput("encoded test run has its event cursor past its events");
    d.minTime = minTime;
    d.maxTime = maxTime;
    d.index = index;
    d.currentPass = pass;
    d.identityForAllPasses = identity;
    d.errorLimit = errorLimit;
    d.beginningTime = beginning;
    d.percent = percent;
    d.estimatedTimeLeft = left;
    d.elapsedTime = elapsed;
    d.errorCount = errorCount;
    d.clientPID = pid;
    d.nextEvent = cursor;
    run.install(std::move(d));
  }

  // ---- TestRunManager

  template <class A> static void save(A &ar, TestRunManager const &m) {
    Array<boost::shared_ptr<TestRunImp>> runs = m.getTestRuns();
    ar(static_cast<std::uint32_t>(runs.size()));
    for (auto const &r : runs)
      save(ar, *r);
  }

  template <class A> static void load(A &ar, TestRunManager &m) {
    std::uint32_t n = encoding::loadSize(ar, 64);
    OrderedHashTable<String, boost::shared_ptr<TestRunImp>> runs;
    for (std::uint32_t i = 0; i < n; ++i) {
      boost::shared_ptr<TestRunImp> r(new TestRunImp());
      load(ar, *r);
      if (!runs.insertIfAbsent(r->guid(), r))
        throw BadInput("encoded test run list holds a guid twice");
    }
    MutexGuard guard(m.m_lock);
    m.m_runs = std::move(runs);
  }
};

template <class A> void save(A &ar, TestRunEventImp const &e) { TestRunCodec::save(ar, e); }
template <class A> void load(A &ar, TestRunEventImp &e) { TestRunCodec::load(ar, e); }
template <class A> void save(A &ar, TestRunImp const &r) { TestRunCodec::save(ar, r); }
template <class A> void load(A &ar, TestRunImp &r) { TestRunCodec::load(ar, r); }
template <class A> void save(A &ar, TestRunManager const &m) { TestRunCodec::save(ar, m); }
template <class A> void load(A &ar, TestRunManager &m) { TestRunCodec::load(ar, m); }

} // namespace zel
