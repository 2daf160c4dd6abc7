// ManagedThread and ManagedSemaphore: lifecycle of re-run threads, cancel
// timing, exception containment, and semaphore counting under contention.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "zel/Logger.h"
#include "zel/ManagedSemaphore.h"
#include "zel/ManagedThread.h"
#include "zel/Stopwatch.h"
#include "zel/System.h"

using zel::ManagedSemaphore;
using zel::ManagedThread;

namespace {

// Polls `condition` until it holds or `timeoutMs` pass.
bool waitFor(std::function<bool()> const &condition, unsigned int timeoutMs = 5000) {
  zel::Stopwatch clock;
  while (!condition()) {
    if (clock.elapsedMilliseconds() >= timeoutMs)
      return condition();
    std::this_thread::yield();
  }
  return true;
}

int untilCancelled(ManagedThread &self) {
  while (!self.testCancel(10000)) {
  }
  return 7;
}

} // namespace

TEST(ManagedThread, RunCancelJoinAndRunAgain) {
  std::atomic<int> runs{0};
  std::atomic<bool> sawCancelAtStart{false};
  std::string threadName;
  std::mutex nameMutex;
  ManagedThread thread([&](ManagedThread &self) {
    {
      char name[32] = {};
      pthread_getname_np(pthread_self(), name, sizeof name);
      std::lock_guard<std::mutex> lock(nameMutex);
      threadName = name;
    }
    if (self.testCancel())
      sawCancelAtStart = true;
    ++runs;
    return untilCancelled(self);
  });

  ASSERT_TRUE(thread.run("AVeryLongThreadNameIndeed"));
  ASSERT_TRUE(waitFor([&] { return runs.load() == 1; }));
  EXPECT_TRUE(thread.isRunning());
  EXPECT_FALSE(thread.run("again")) << "a running thread must refuse a second run";
  thread.cancel();
  EXPECT_EQ(thread.join(), 7);
  EXPECT_FALSE(thread.isRunning());
  {
    std::lock_guard<std::mutex> lock(nameMutex);
    EXPECT_EQ(threadName, "AVeryLongThread"); // cut to the kernel's 15 bytes
  }

  // The second run starts with the flag cleared: it blocks until a new cancel.
  ASSERT_TRUE(thread.run(nullptr));
  ASSERT_TRUE(waitFor([&] { return runs.load() == 2; }));
  EXPECT_FALSE(thread.testCancel());
  EXPECT_TRUE(thread.isRunning());
  thread.cancel();
  EXPECT_EQ(thread.join(), 7);
  EXPECT_FALSE(sawCancelAtStart.load());
}

TEST(ManagedThread, TimedTestCancelReturnsEarlyOnCancelAndWaitsOtherwise) {
  std::atomic<bool> waiting{false};
  std::atomic<long long> waitedMs{-1};
  std::atomic<bool> cancelled{false};
  ManagedThread thread([&](ManagedThread &self) {
    zel::Stopwatch clock;
    waiting = true;
    cancelled = self.testCancel(1000);
    waitedMs = clock.elapsedMilliseconds();
    return 0;
  });
  ASSERT_TRUE(thread.run("waiter"));
  ASSERT_TRUE(waitFor([&] { return waiting.load(); }));
  thread.cancel();
  thread.join();
  EXPECT_TRUE(cancelled.load());
  EXPECT_LT(waitedMs.load(), 500) << "testCancel(1000) must wake on cancel";

  // Without a cancel the full time passes and the answer is false.
  ManagedThread idle([](ManagedThread &) { return 0; });
  zel::Stopwatch clock;
  EXPECT_FALSE(idle.testCancel(40));
  EXPECT_GE(clock.elapsedMilliseconds(), 40);
}

TEST(ManagedThread, CancelBeforeFirstTestCancelIsSeenAndClearedByNextRun) {
  ManagedSemaphore gate(0);
  ManagedThread thread([&](ManagedThread &self) {
    gate.wait();
    return self.testCancel() ? 1 : 0;
  });

  ASSERT_TRUE(thread.run("gated"));
  thread.cancel(); // the function has not reached testCancel yet
  gate.post();
  EXPECT_EQ(thread.join(), 1);

  // A cancel left over from before is dropped by the next run.
  thread.cancel();
  ASSERT_TRUE(thread.run("gated"));
  gate.post();
  EXPECT_EQ(thread.join(), 0);

  // The check-thread shape: cancel right after run, first wait is a timed one.
  // Repeated to catch a run() that clears the flag after the thread started.
  std::atomic<int> seen{0};
  ManagedThread checker([&](ManagedThread &self) {
    if (self.testCancel(5000))
      ++seen;
    return 0;
  });
  zel::Stopwatch clock;
  for (int i = 0; i < 200; ++i) {
    ASSERT_TRUE(checker.run(nullptr));
    checker.cancel();
    checker.join();
  }
  EXPECT_EQ(seen.load(), 200);
  EXPECT_LT(clock.elapsedMilliseconds(), 5000);
}

TEST(ManagedThread, RepeatedAndEarlyCallsAreHarmless) {
  ManagedThread never([](ManagedThread &) { return 3; });
  never.cancel();
  EXPECT_EQ(never.join(), 0); // never ran: returns at once
  EXPECT_EQ(never.join(), 0);
  EXPECT_FALSE(never.isRunning());

  ManagedThread quick([](ManagedThread &) { return 3; });
  ASSERT_TRUE(quick.run("quick"));
  EXPECT_EQ(quick.join(), 3);
  EXPECT_EQ(quick.join(), 3);
  quick.cancel(); // finished already
  quick.cancel();
  EXPECT_EQ(quick.join(), 3);
  EXPECT_EQ(quick.result(), 3);

  // From inside the function, join and run return instead of deadlocking.
  std::atomic<int> innerJoin{-2};
  std::atomic<bool> innerRun{true};
  ManagedThread selfish([&](ManagedThread &self) {
    innerRun = self.run("nested");
    innerJoin = self.join();
    return 5;
  });
  ASSERT_TRUE(selfish.run("selfish"));
  EXPECT_EQ(selfish.join(), 5);
  EXPECT_FALSE(innerRun.load());
  EXPECT_EQ(innerJoin.load(), 0);

  // A run that ended but was not joined does not block the next run.
  ASSERT_TRUE(quick.run("quick"));
  ASSERT_TRUE(waitFor([&] { return !quick.isRunning(); }));
  EXPECT_TRUE(quick.run("quick"));
  EXPECT_EQ(quick.join(), 3);
}

TEST(ManagedThread, DestructorStopsARunningThread) {
  std::atomic<bool> started{false};
  auto thread = std::make_unique<ManagedThread>([&](ManagedThread &self) {
    started = true;
    return untilCancelled(self);
  });
  ASSERT_TRUE(thread->run("doomed"));
  ASSERT_TRUE(waitFor([&] { return started.load(); }));
  zel::Stopwatch clock;
  thread.reset();
  EXPECT_LT(clock.elapsedMilliseconds(), 2000);
}

TEST(ManagedThread, EscapingExceptionsBecomeMinusOneAndAreLogged) {
  auto capture = std::make_shared<zel::CaptureAppender>();
  zel::LogFactory::addAppender(capture);

  ManagedThread throwsStd([](ManagedThread &) -> int { throw std::runtime_error("boom"); });
  ASSERT_TRUE(throwsStd.run("thrower"));
  EXPECT_EQ(throwsStd.join(), -1);

  ManagedThread throwsOther([](ManagedThread &) -> int { throw 42; });
  ASSERT_TRUE(throwsOther.run("thrower2"));
  EXPECT_EQ(throwsOther.join(), -1);

  bool logged = false;
  for (auto const &record : capture->records())
    if (record.category == "OSTREL-Global" && record.priority == 5 && record.text.contains("boom"))
      logged = true;
  EXPECT_TRUE(logged);
  zel::LogFactory::removeAppender(capture);

  // The object stays usable after a failed run.
  ManagedThread flaky([n = 0](ManagedThread &) mutable -> int {
    if (n++ == 0)
      throw std::logic_error("first");
    return 9;
  });
  ASSERT_TRUE(flaky.run("flaky"));
  EXPECT_EQ(flaky.join(), -1);
  ASSERT_TRUE(flaky.run("flaky"));
  EXPECT_EQ(flaky.join(), 9);
}

namespace {

struct Argument {
  int value;
  std::string text;
};

int bumpsItsCopy(ManagedThread &, Argument argument) {
  argument.value += 1;
  return argument.value + static_cast<int>(argument.text.size());
}

int addTo(ManagedThread &, int base, int more) { return base + more; }

} // namespace

TEST(ManagedThread, ArgumentIsHandedByValueToEveryRun) {
  Argument original{10, "abc"};
  ManagedThread thread(&bumpsItsCopy, original);
  original.value = 1000; // the thread holds its own copy
  for (int run = 0; run < 3; ++run) {
    ASSERT_TRUE(thread.run("arg"));
    EXPECT_EQ(thread.join(), 14) << "run " << run << " must see the untouched argument";
  }

  ManagedThread bound(std::bind(&addTo, std::placeholders::_1, 40, 2));
  ASSERT_TRUE(bound.run("bound"));
  EXPECT_EQ(bound.join(), 42);
}

TEST(ManagedSemaphore, TimeoutsAndCounts) {
  ManagedSemaphore empty(0, true);
  zel::Stopwatch clock;
  EXPECT_FALSE(empty.wait(50));
  EXPECT_GE(clock.elapsedMilliseconds(), 50);
  EXPECT_FALSE(empty.tryWait());

  empty.post();
  EXPECT_TRUE(empty.wait(0));
  EXPECT_FALSE(empty.tryWait());

  ManagedSemaphore counting(2);
  counting.post(3);
  EXPECT_EQ(counting.count(), 5u);
  for (int i = 0; i < 5; ++i)
    EXPECT_TRUE(counting.tryWait()) << i;
  EXPECT_FALSE(counting.tryWait());
  EXPECT_EQ(counting.count(), 0u);

  // A blocked waiter wakes on a post from another thread.
  std::atomic<bool> got{false};
  std::thread waiter([&] { got = counting.wait(10000); });
  counting.post();
  waiter.join();
  EXPECT_TRUE(got.load());
}

TEST(ManagedSemaphore, ManyProducersOneConsumer) {
  ManagedSemaphore sem(0);
  constexpr int kProducers = 4;
  constexpr int kPosts = 2000;
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p)
    producers.emplace_back([&] {
      for (int i = 0; i < kPosts; ++i)
        sem.post();
    });
  int taken = 0;
  for (int i = 0; i < kProducers * kPosts; ++i)
    if (sem.wait(5000))
      ++taken;
  for (auto &t : producers)
    t.join();
  EXPECT_EQ(taken, kProducers * kPosts);
  EXPECT_EQ(sem.count(), 0u);
  EXPECT_FALSE(sem.tryWait());

  // wait() without a limit, fed by one multi-count post.
  std::atomic<int> consumed{0};
  std::thread consumer([&] {
    for (int i = 0; i < 3; ++i) {
      sem.wait();
      ++consumed;
    }
  });
  sem.post(3);
  consumer.join();
  EXPECT_EQ(consumed.load(), 3);
}
