#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "zel/Mutex.h"
#include "zel/Resources.h"

namespace {

struct Counted {
  static std::atomic<int> live;
  static std::atomic<int> deleted;
  int value;
  explicit Counted(int v = 0) : value(v) { ++live; }
  Counted(Counted const &o) : value(o.value) { ++live; }
  virtual ~Counted() {
    --live;
    ++deleted;
  }
};
std::atomic<int> Counted::live{0};
std::atomic<int> Counted::deleted{0};

struct Node {
  static int live;
  Node() { ++live; }
  Node(Node const &) { ++live; }
  virtual ~Node() { --live; }
  virtual Node *clone() const = 0;
  virtual char const *kind() const = 0;
};
int Node::live = 0;
struct Leaf : Node {
  Node *clone() const override { return new Leaf(*this); }
  char const *kind() const override { return "leaf"; }
};

template <int Locked>
using Shared = zel::SharedResource<zel::PointerStorage<Counted, 0, 3>, Locked>;

void resetCounts() {
  Counted::live = 0;
  Counted::deleted = 0;
}

} // namespace

TEST(SharedResource, LastReleaseDeletesOnceAndEmptyHoldersStayEmpty) {
  resetCounts();
  {
    Shared<1> a(new Counted(5));
    Shared<1> b = a;
    Shared<1> c;
    c = b;
    EXPECT_EQ(a.useCount(), 3);
    EXPECT_EQ(c->value, 5);
    a.reset();
    b = Shared<1>();
    EXPECT_EQ(Counted::deleted, 0);
    EXPECT_EQ(c.useCount(), 1);
  }
  EXPECT_EQ(Counted::deleted, 1);
  EXPECT_EQ(Counted::live, 0);

  Shared<0> empty(nullptr);
  Shared<0> copy = empty;
  EXPECT_FALSE(copy.isValid());
  EXPECT_EQ(copy.useCount(), 0);
  Shared<0> self(new Counted(1));
  self = self;
  EXPECT_EQ(self.useCount(), 1);
  EXPECT_EQ(self->value, 1);
}

TEST(SharedResource, NoDeleteModeCountsButNeverDeletes) {
  resetCounts();
  auto owned = std::make_unique<Counted>(3);
  {
    Shared<1> a(owned.get(), false);
    Shared<1> b = a;
    EXPECT_FALSE(b.deletesOnRelease());
    EXPECT_EQ(b.useCount(), 2);
  }
  EXPECT_EQ(Counted::deleted, 0);
  EXPECT_EQ(owned->value, 3);
}

TEST(SharedResource, LockedCountSurvivesConcurrentCopiesAndReleases) {
  resetCounts();
  {
    Shared<1> root(new Counted(1));
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
      threads.emplace_back([copy = root]() {
        for (int i = 0; i < 20000; ++i) {
          Shared<1> a = copy;
          Shared<1> b(a);
          a = b;
        }
      });
    for (auto &t : threads)
      t.join();
    EXPECT_EQ(root.useCount(), 1);
    EXPECT_EQ(Counted::deleted, 0);
  }
  EXPECT_EQ(Counted::deleted, 1);
}

TEST(SharedResource, LastHolderOnAnotherThreadDeletes) {
  resetCounts();
  Shared<1> a(new Counted(2));
  std::thread t([b = a]() mutable { b.reset(); });
  a.reset();
  t.join();
  EXPECT_EQ(Counted::deleted, 1);
}

TEST(TransferAndCopiedResource, CopyMovesOrDuplicates) {
  resetCounts();
  {
    zel::TransferResource<zel::PointerStorage<Counted, 0, 3>> a(new Counted(4));
    auto b = a; // moves
    EXPECT_FALSE(a.isValid());
    EXPECT_EQ(b->value, 4);
    zel::TransferResource<zel::PointerStorage<Counted, 0, 3>> c;
    c = b;
    EXPECT_FALSE(b.isValid());
    Shared<1> shared(c.release());
    EXPECT_FALSE(c.isValid());
    EXPECT_EQ(Counted::live, 1);
  }
  EXPECT_EQ(Counted::live, 0);

  Node::live = 0;
  {
    zel::CopiedResource<zel::PointerStorage<Node, 0, 1>> a(new Leaf);
    auto b = a;
    EXPECT_NE(a.get(), b.get());
    EXPECT_STREQ(b->kind(), "leaf");
    EXPECT_EQ(Node::live, 2);
    zel::CopiedResource<zel::PointerStorage<Node, 0, 1>> empty;
    b = empty;
    EXPECT_FALSE(b.isValid());
    EXPECT_EQ(Node::live, 1);
  }
  EXPECT_EQ(Node::live, 0);
}

TEST(PointerStorage, ArrayShapeUsesArrayDelete) {
  resetCounts();
  {
    zel::SharedResource<zel::PointerStorage<Counted, 1, 3>, 1> a(new Counted[3]);
    EXPECT_EQ(Counted::live, 3);
  }
  EXPECT_EQ(Counted::live, 0);
}

namespace {
zel::mutex g_staticMutex; // usable before main: constant-initialised
}

TEST(Locks, MutexIsRecursiveAndRwlockAdmitsReadersTogether) {
  {
    zel::mutex::scoped_lock a(g_staticMutex);
    zel::mutex::scoped_lock b(g_staticMutex); // same thread again
    std::atomic<bool> otherGotIt{true};
    std::thread t([&] { otherGotIt = g_staticMutex.tryLock(); });
    t.join();
    EXPECT_FALSE(otherGotIt);
  }
  EXPECT_TRUE(g_staticMutex.tryLock());
  g_staticMutex.unlock();

  zel::rwlock lock;
  lock.readLock();
  std::atomic<bool> secondReader{false}, writer{true};
  std::thread r([&] {
    secondReader = lock.tryReadLock();
    if (secondReader)
      lock.readUnlock();
    writer = lock.tryWriteLock();
    if (writer)
      lock.writeUnlock();
  });
  r.join();
  lock.readUnlock();
  EXPECT_TRUE(secondReader);
  EXPECT_FALSE(writer);
}
