#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "zel/Array.h"
#include "zel/Buffer.h"
#include "zel/Exception.h"
#include "zel/HashTable.h"
#include "zel/ManagedArray.h"

using zel::String;

namespace {

// Expects a failed assertion with exactly this expression text.
template <class Fn> void expectAssertion(Fn fn, std::string const &expression) {
  try {
    fn();
    ADD_FAILURE() << "no assertion for " << expression;
  } catch (zel::StructuredException const &e) {
    EXPECT_EQ(e.getCode(), 7u);
    EXPECT_EQ(e.getText(), String("Assertion failed: ") + expression.c_str());
  }
}

// Counts live instances so ownership mistakes show up as wrong counts.
struct Probe {
  static int live;
  int value;
  explicit Probe(int v) : value(v) { ++live; }
  Probe(Probe const &o) : value(o.value) { ++live; }
  virtual ~Probe() { --live; }
};
int Probe::live = 0;

struct Shape {
  static int live;
  Shape() { ++live; }
  Shape(Shape const &) { ++live; }
  virtual ~Shape() { --live; }
  virtual Shape *clone() const = 0;
  virtual int sides() const = 0;
};
int Shape::live = 0;
struct Square : Shape {
  Shape *clone() const override { return new Square(*this); }
  int sides() const override { return 4; }
};
struct Triangle : Shape {
  Shape *clone() const override { return new Triangle(*this); }
  int sides() const override { return 3; }
};

} // namespace

TEST(Array, GrowsByDoublingFromEight) {
  zel::Array<int> a;
  EXPECT_EQ(a.capacity(), 0u);
  std::vector<std::size_t> seen;
  for (int i = 0; i < 40; ++i) {
    a.append(i);
    if (seen.empty() || seen.back() != a.capacity())
      seen.push_back(a.capacity());
  }
  EXPECT_EQ(seen, (std::vector<std::size_t>{8, 16, 32, 64}));
}

TEST(Array, IndexChecksUseTheirExactTexts) {
  zel::Array<String> a{"x", "y"};
  expectAssertion([&] { (void)a[2]; }, "index < size()");
  expectAssertion([&] { a.remove(3); }, "index <= sz");
  a.remove(2); // the size itself passes the check and does nothing
  EXPECT_EQ(a.size(), 2u);
}

TEST(Array, RemoveInsertKeepOrderAndCopiesAreSnapshots) {
  zel::Array<int> a{0, 1, 2, 3, 4};
  zel::Array<int> snapshot = a;
  a.remove(1);
  a.insert(0, 9);
  a.append(5);
  EXPECT_EQ(a, (zel::Array<int>{9, 0, 2, 3, 4, 5}));
  EXPECT_EQ(snapshot, (zel::Array<int>{0, 1, 2, 3, 4}));
  EXPECT_TRUE(a.removeValue(3));
  EXPECT_FALSE(a.removeValue(3));
  EXPECT_EQ(a.indexOf(4), 3u);
  EXPECT_EQ(a.indexOf(77), a.size());
}

RC_GTEST_PROP(ArrayModel, BehavesLikeAVectorUnderRandomEdits,
              (std::vector<std::pair<int, int>> ops)) {
  zel::Array<int> a;
  std::vector<int> model;
  for (auto [op, v] : ops) {
    std::size_t n = model.size();
    switch ((op % 3 + 3) % 3) {
    case 0:
      a.append(v);
      model.push_back(v);
      break;
    case 1:
      if (n) {
        std::size_t i = static_cast<std::size_t>(v < 0 ? -(v + 1) : v) % n;
        a.remove(i);
        model.erase(model.begin() + static_cast<long>(i));
      }
      break;
    default: {
      std::size_t i = static_cast<std::size_t>(v < 0 ? -(v + 1) : v) % (n + 1);
      a.insert(i, v);
      model.insert(model.begin() + static_cast<long>(i), v);
    }
    }
  }
  RC_ASSERT(a.size() == model.size());
  for (std::size_t i = 0; i < model.size(); ++i)
    RC_ASSERT(a[i] == model[i]);
}

TEST(ManagedArray, OwnsDeletesDetachesAndDeepCopies) {
  Probe::live = 0;
  {
    zel::ManagedArray<Probe> a;
    for (int i = 0; i < 4; ++i)
      a.append(new Probe(i));
    a.remove(1);
    EXPECT_EQ(Probe::live, 3);
    EXPECT_EQ(a[1].value, 2);
    std::unique_ptr<Probe> taken(a.detach(0));
    EXPECT_EQ(taken->value, 0);
    EXPECT_EQ(Probe::live, 3);
    zel::ManagedArray<Probe> copy(a);
    EXPECT_EQ(Probe::live, 5);
    copy[0].value = 99;
    EXPECT_EQ(a[0].value, 2);
    a.insert(0, new Probe(7));
    expectAssertion([&] { a.insert(9, new Probe(8)); }, "index <= sz");
    expectAssertion([&] { (void)a[5]; }, "index < size()");
  }
  EXPECT_EQ(Probe::live, 0);
}

TEST(ManagedArray, CopiesAbstractElementsThroughClone) {
  Shape::live = 0;
  {
    zel::ManagedArray<Shape> a;
    a.append(new Square);
    a.append(new Triangle);
    zel::ManagedArray<Shape> b = a;
    a.clear();
    ASSERT_EQ(b.size(), 2u);
    EXPECT_EQ(b[0].sides(), 4);
    EXPECT_EQ(b[1].sides(), 3);
  }
  EXPECT_EQ(Shape::live, 0);
}

TEST(HashTables, PutReplacesAndInsertIfAbsentKeepsFirst) {
  zel::HashTable<String, bool> h;
  for (char const *k : {"1-2", "2-3", "2-7", "2-4", "2-5"})
    EXPECT_TRUE(h.put(k, true));
  EXPECT_TRUE(h.contains("2-7"));
  EXPECT_FALSE(h.contains("3-2"));
  EXPECT_FALSE(h.put("1-2", false));
  bool v = true;
  ASSERT_TRUE(h.get("1-2", v));
  EXPECT_FALSE(v);
  EXPECT_FALSE(h.insertIfAbsent("1-2", true));
  EXPECT_FALSE(*h.find("1-2"));
  EXPECT_EQ(h.keys().size(), 5u);
}

TEST(HashTables, OrderedTableKeepsPlacesThroughReplaceRemoveAndRehash) {
  zel::OrderedHashTable<int, String> t(4);
  for (int i = 0; i < 100; ++i) // well past the initial buckets
    t.put(i * 7, String::fromInt(i));
  t.put(14, "replaced");
  EXPECT_EQ(t.indexOf(14), 2u);
  EXPECT_EQ(t.valueAt(2), "replaced");
  t.removeAt(1);
  EXPECT_EQ(t.keyAt(1), 14);
  for (std::size_t i = 0; i < t.size(); ++i)
    EXPECT_EQ(t.indexOf(t.keyAt(i)), i) << "index entry not rewritten at " << i;
  EXPECT_FALSE(t.contains(7));
  expectAssertion([&] { (void)t.valueAt(t.size()); }, "index < size()");
  zel::OrderedHashTable<int, String> copy = t;
  t.clear();
  EXPECT_EQ(copy.size(), 99u);
  EXPECT_EQ(*copy.find(14), "replaced");
}

RC_GTEST_PROP(HashTablesModel, OrderedTableMatchesAnInsertionOrderModel,
              (std::vector<std::pair<bool, unsigned char>> ops)) {
  zel::OrderedHashTable<int, int> t;
  std::vector<std::pair<int, int>> model;
  int stamp = 0;
  for (auto [insert, key] : ops) {
    int k = key % 20;
    auto it = std::find_if(model.begin(), model.end(), [&](auto const &e) { return e.first == k; });
    if (insert) {
      t.put(k, ++stamp);
      if (it == model.end())
        model.emplace_back(k, stamp);
      else
        it->second = stamp;
    } else {
      RC_ASSERT(t.remove(k) == (it != model.end()));
      if (it != model.end())
        model.erase(it);
    }
  }
  RC_ASSERT(t.size() == model.size());
  for (std::size_t i = 0; i < model.size(); ++i) {
    RC_ASSERT(t.keyAt(i) == model[i].first);
    RC_ASSERT(t.valueAt(i) == model[i].second);
    RC_ASSERT(t.indexOf(model[i].first) == i);
  }
}

TEST(HashTables, ManagedOrderedTableOwnsItsValues) {
  Shape::live = 0;
  {
    zel::ManagedOrderedHashTable<String, Shape> t;
    Square sq;
    EXPECT_TRUE(t.insertCopyIfAbsent("a", sq));
    EXPECT_FALSE(t.insertCopyIfAbsent("a", Triangle()));
    EXPECT_EQ(t.find("a")->sides(), 4); // the first setting stays
    t.put("b", new Triangle);
    t.put("c", new Square);
    t.put("b", new Square); // replaced in place, old object deleted
    EXPECT_EQ(t.indexOf("b"), 1u);
    EXPECT_EQ(t.valueAt(1).sides(), 4);
    EXPECT_EQ(Shape::live, 4); // sq + three stored
    zel::ManagedOrderedHashTable<String, Shape> copy = t;
    EXPECT_EQ(Shape::live, 7);
    t.removeAt(0);
    EXPECT_EQ(t.keyAt(0), "b");
    EXPECT_EQ(copy.keyAt(0), "a");
    EXPECT_NE(&copy.valueAt(1), &t.valueAt(0));
  }
  EXPECT_EQ(Shape::live, 0);
}

TEST(Buffer, BytesRoundTripThroughText) {
  String text("a\0b\xff", 4);
  auto b = zel::Buffer<unsigned char>::fromString(text);
  EXPECT_EQ(b.size(), 4u);
  EXPECT_EQ(b[3], 0xffu);
  EXPECT_EQ(b.toString(), text);
  expectAssertion([&] { (void)b[4]; }, "index < size()");
}
