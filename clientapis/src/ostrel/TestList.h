#pragma once
// ostrel5::TestList: a shared array of Test handles (see HandleList.h: copies
// share the array, remove() is seen by every copy, an index at or past size()
// asserts "index < size()").

#include "ostrel/HandleList.h"
#include "ostrel/Test.h"

namespace zel {
class TestImp;
}

namespace ostrel5 {

class TestList : public HandleList<Test, zel::TestImp> {
public:
  using HandleList::HandleList;
};

} // namespace ostrel5
