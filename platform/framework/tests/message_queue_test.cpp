// The in-process queue pair of zel::ProcessLinkConfigurator: many producers,
// one consumer per direction, timed receive, the bound on progress notices,
// and reset/close between connections.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <thread>
#include <vector>

#include "zel/Messages.h"
#include "zel/ProcessLinkConfigurator.h"

using namespace zel;
using Clock = std::chrono::steady_clock;

namespace {

ProcessLinkConfigurator &link() { return ProcessLinkConfigurator::instance(); }

struct Direction {
  char const *name;
  void (*send)(MessageHandle);
  MessageHandle (*receive)(unsigned int);
};

Direction const directions[] = {
    {"client to engine", [](MessageHandle m) { link().sendMessageClientToEngine(std::move(m)); },
     [](unsigned int t) { return link().receiveMessageEngineFromClient(t); }},
    {"engine to client", [](MessageHandle m) { link().sendMessageEngineToClient(std::move(m)); },
     [](unsigned int t) { return link().receiveMessageClientFromEngine(t); }},
};

MessageHandle numbered(unsigned producer, unsigned sequence) {
  return MessageHandle(new ModuleStarted(String::format("producer-%u", producer), sequence));
}

MessageHandle progress() {
  return MessageHandle(new EnumerationProgressMessage("pci", 10, "scanning"));
}

class MessageQueues : public ::testing::Test {
protected:
  void SetUp() override { link().resetQueues(); }
  void TearDown() override { link().resetQueues(); }
};

} // namespace

TEST_F(MessageQueues, ManyProducersKeepEachProducersOrder) {
  constexpr unsigned producers = 4, perProducer = 3000;
  for (Direction const &d : directions) {
    SCOPED_TRACE(d.name);
    std::vector<std::thread> threads;
    for (unsigned p = 0; p < producers; ++p)
      threads.emplace_back([&d, p] {
        for (unsigned i = 0; i < perProducer; ++i)
          d.send(numbered(p, i));
      });

    std::map<String, unsigned> next;
    unsigned received = 0;
    auto deadline = Clock::now() + std::chrono::seconds(20);
    while (received < producers * perProducer && Clock::now() < deadline) {
      MessageHandle m = d.receive(200);
      if (!m)
        continue;
      auto const &started = static_cast<ModuleStarted const &>(*m);
      EXPECT_EQ(started.processId(), next[started.moduleGuid()]++) << started.moduleGuid().str();
      ++received;
    }
    for (std::thread &t : threads)
      t.join();
    EXPECT_EQ(received, producers * perProducer);
    EXPECT_FALSE(d.receive(0)) << "nothing beyond what was sent";
  }
}

TEST_F(MessageQueues, AMessageTravelsAsTheSameObject) {
  MessageHandle sent(new ShutdownClientToEngine());
  Message *object = sent.get();
  link().sendMessageClientToEngine(sent);
  EXPECT_EQ(sent.useCount(), 2) << "the queue holds its own reference";
  MessageHandle got = link().receiveMessageEngineFromClient(1000);
  EXPECT_EQ(got.get(), object);
  sent.reset();
  EXPECT_EQ(got.useCount(), 1);

  link().sendMessageEngineToClient(MessageHandle());
  EXPECT_EQ(link().pendingEngineToClient(), 0u) << "a null handle is not queued";
}

TEST_F(MessageQueues, ReceiveTimesOutWithNullWithinItsDeadline) {
  for (Direction const &d : directions) {
    auto start = Clock::now();
    EXPECT_FALSE(d.receive(60));
    auto waited = Clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(60)) << d.name;
    EXPECT_LT(waited, std::chrono::seconds(2)) << d.name;
  }

  // A message from another thread ends a long wait as soon as it is there.
  std::thread late([] { link().sendMessageEngineToClient(MessageHandle(new ClientCrashed())); });
  auto start = Clock::now();
  MessageHandle m = link().receiveMessageClientFromEngine(10000);
  late.join();
  ASSERT_TRUE(m);
  EXPECT_EQ(m->getType(), MsgTypeId::ClientCrashed);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
}

TEST_F(MessageQueues, OnlyProgressBeyondTheBoundIsDropped) {
  std::size_t droppedBefore = link().droppedCount();
  std::size_t const bound = ProcessLinkConfigurator::MAX_QUEUED_PROGRESS;
  for (std::size_t i = 0; i < bound + 10; ++i) {
    link().sendMessageEngineToClient(progress());
    if (i % 5 == 0)
      link().sendMessageEngineToClient(MessageHandle(new TestEnumerationCompleted("x", 1, i)));
  }
  std::size_t important = (bound + 10 + 4) / 5;
  EXPECT_EQ(link().droppedCount() - droppedBefore, 10u);
  EXPECT_EQ(link().pendingEngineToClient(), bound + important);

  // Taking one progress notice makes room for exactly one more.
  std::size_t progressSeen = 0, importantSeen = 0;
  while (MessageHandle m = link().receiveMessageClientFromEngine(0)) {
    if (m->priority() < 0)
      ++progressSeen;
    else
      ++importantSeen;
    if (progressSeen == 1 && importantSeen == 1) {
      link().sendMessageEngineToClient(progress());
      link().sendMessageEngineToClient(progress());
    }
  }
  EXPECT_EQ(progressSeen, bound + 1);
  EXPECT_EQ(importantSeen, important);
  EXPECT_EQ(link().droppedCount() - droppedBefore, 11u);

  // The client-to-engine direction has a bound of its own.
  for (std::size_t i = 0; i < bound; ++i)
    link().sendMessageClientToEngine(progress());
  EXPECT_EQ(link().pendingClientToEngine(), bound);
  EXPECT_EQ(link().droppedCount() - droppedBefore, 11u);
}

TEST_F(MessageQueues, CloseWakesBlockedReceiversAndResetStartsAfresh) {
  std::atomic<int> woken{0};
  std::vector<std::thread> receivers;
  receivers.emplace_back([&] {
    if (!link().receiveMessageClientFromEngine(30000))
      ++woken;
  });
  receivers.emplace_back([&] {
    if (!link().receiveMessageEngineFromClient(30000))
      ++woken;
  });
  auto start = Clock::now();
  // Close until both have returned: a close before a receiver starts waiting
  // is seen by its first look as well.
  while (woken.load() < 2 && Clock::now() - start < std::chrono::seconds(10)) {
    link().closeQueues();
    std::this_thread::yield();
  }
  for (std::thread &t : receivers)
    t.join();
  EXPECT_EQ(woken.load(), 2);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));

  // Closed: what is queued still comes, then null without waiting.
  EXPECT_TRUE(link().queuesClosed());
  link().sendMessageClientToEngine(MessageHandle(new ShutdownClientToEngine()));
  link().sendMessageEngineToClient(MessageHandle(new ClientLoggedOut()));
  EXPECT_TRUE(link().receiveMessageEngineFromClient(30000));
  auto quick = Clock::now();
  EXPECT_FALSE(link().receiveMessageEngineFromClient(30000));
  EXPECT_LT(Clock::now() - quick, std::chrono::seconds(5));

  // Reset: the leftover of the last connection is gone and waits wait again.
  link().resetQueues();
  EXPECT_FALSE(link().queuesClosed());
  EXPECT_EQ(link().pendingEngineToClient(), 0u);
  auto waitStart = Clock::now();
  EXPECT_FALSE(link().receiveMessageClientFromEngine(50));
  EXPECT_GE(Clock::now() - waitStart, std::chrono::milliseconds(50));
}

TEST(ProcessLinkConfigurator, SeparateProcessIsOffUntilSet) {
  ProcessLinkConfigurator &c = ProcessLinkConfigurator::instance();
  EXPECT_EQ(&c, &ProcessLinkConfigurator::instance());
  EXPECT_FALSE(c.separateProcess());
  c.setSeparateProcess(true);
  EXPECT_TRUE(c.separateProcess());
  c.setSeparateProcess(false);
}
