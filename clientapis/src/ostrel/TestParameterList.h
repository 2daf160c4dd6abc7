#pragma once
// ostrel5::TestParameterList: a shared array of TestParameter handles (see
// HandleList.h: copies share the array, remove() is seen by every copy, an
// index at or past size() asserts "index < size()").

#include "ostrel/HandleList.h"
#include "ostrel/TestParameter.h"

namespace zel {
class ParameterImp;
}

namespace ostrel5 {

class TestParameterList : public HandleList<TestParameter, zel::ParameterImp> {
public:
  using HandleList::HandleList;
};

} // namespace ostrel5
