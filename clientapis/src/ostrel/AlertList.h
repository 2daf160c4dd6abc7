#pragma once
// ostrel5::AlertList: a list of Alert handles (see ostrel/HandleList.h).

#include "ostrel/Alert.h"
#include "ostrel/HandleList.h"

namespace zel {
class IAlertImp;
}

namespace ostrel5 {

class AlertList : public HandleList<Alert, zel::IAlertImp> {
public:
  using HandleList::HandleList;
};

} // namespace ostrel5
