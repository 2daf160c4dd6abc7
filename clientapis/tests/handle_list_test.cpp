// The list and shared-handle patterns, with a test-only handle class.

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include "ostrel/HandleList.h"
#include "zel/Exception.h"

using namespace ostrel5;

namespace {

struct WidgetImp {
  explicit WidgetImp(int i) : id(i) {}
  int id;
};

class Widget : public SharedHandle<WidgetImp> {
public:
  Widget() = default;
  explicit Widget(boost::shared_ptr<WidgetImp> imp) : SharedHandle(std::move(imp)) {}
  int id() const { return m_imp->id; }
  long useCount() const { return m_imp.use_count(); }
};

class WidgetList : public HandleList<Widget, WidgetImp> {
  using HandleList::HandleList;
};

zel::Array<boost::shared_ptr<WidgetImp>> imps(std::initializer_list<int> ids) {
  zel::Array<boost::shared_ptr<WidgetImp>> a;
  for (int id : ids)
    a.append(boost::make_shared<WidgetImp>(id));
  return a;
}

std::vector<int> ids(WidgetList const &list) {
  std::vector<int> out;
  for (unsigned int i = 0; i < list.size(); ++i)
    out.push_back(list[i].id());
  return out;
}

void expectAssertion(char const *expression, std::function<void()> const &call) {
  try {
    call();
    ADD_FAILURE() << "no assertion for " << expression;
  } catch (zel::StructuredException const &e) {
    EXPECT_EQ(zel::StructuredException::ASSERTION_CODE, e.getCode());
    EXPECT_NE(std::string::npos, e.getText().str().find(expression)) << e.getText();
  }
}

TEST(SharedHandle, EmptyOrBoundAndCopiesShareTheObject) {
  Widget empty;
  EXPECT_FALSE(empty.isValid());
  Widget bound(boost::make_shared<WidgetImp>(7));
  EXPECT_TRUE(bound.isValid());
  Widget copy = bound;
  EXPECT_EQ(2, bound.useCount());
  EXPECT_EQ(7, copy.id());
  SharedAll::ApiWrapper *base = new Widget(bound);
  delete base; // through the virtual destructor of the base: the reference goes
  EXPECT_EQ(2, bound.useCount());
}

TEST(HandleList, BuildsOneHandlePerEntryInOrder) {
  auto source = imps({3, 1, 2});
  WidgetList list(source);
  EXPECT_EQ(3u, list.size());
  EXPECT_EQ((std::vector<int>{3, 1, 2}), ids(list));
  EXPECT_EQ(list.get(1).id(), list[1].id());
  EXPECT_EQ(2, source[0].use_count()); // the source and the list's handle
  EXPECT_EQ(0u, WidgetList(imps({})).size());
  EXPECT_EQ(0u, WidgetList().size());
}

TEST(HandleList, IndexingAndRemovalCheckTheirBounds) {
  WidgetList list(imps({1, 2}));
  expectAssertion("index < size()", [&] { (void)list[2]; });
  expectAssertion("index < size()", [&] { (void)list.get(100); });
  expectAssertion("index < size()", [] { (void)WidgetList()[0]; });
  list.remove(2); // at the end: nothing to do
  EXPECT_EQ(2u, list.size());
  expectAssertion("index <= sz", [&] { list.remove(3); });
  EXPECT_EQ((std::vector<int>{1, 2}), ids(list));
}

TEST(HandleList, CopiesShareOneArrayAndSeeRemovals) {
  auto source = imps({10, 20, 30, 40});
  WidgetList a(source);
  WidgetList copied(a);
  WidgetList assigned;
  assigned = a;
  WidgetList separate(source); // built again from the same array: its own array
  EXPECT_TRUE(copied.sharesArrayWith(a));
  EXPECT_FALSE(separate.sharesArrayWith(a));

  copied.remove(1);
  for (WidgetList const *l : {&a, &copied, &assigned})
    EXPECT_EQ((std::vector<int>{10, 30, 40}), ids(*l));
  EXPECT_EQ((std::vector<int>{10, 20, 30, 40}), ids(separate));

  assigned.remove(0);
  EXPECT_EQ((std::vector<int>{30, 40}), ids(a));
  EXPECT_EQ(4u, source.size()); // the source array is not touched

  // The shared array outlives the list it was made for.
  WidgetList survivor(imps({5}));
  {
    WidgetList temporary(survivor);
    survivor = WidgetList(imps({6, 7}));
    EXPECT_EQ((std::vector<int>{5}), ids(temporary));
  }
  EXPECT_EQ((std::vector<int>{6, 7}), ids(survivor));
}

} // namespace
