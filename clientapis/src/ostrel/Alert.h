#pragma once
// ostrel5::Alert: something the engine found out about the machine and
// wants the user to know (a crashed application, a hot sensor, a worn
// battery), with its values and tips.
//
// An Alert holds one boost::shared_ptr to the zel::IAlertImp of the client's
// mirror; copies share it. Alerts reach the client in an AlertList (from
// alerts() and the enumeration observers) and from the mirror; the
// constructor from an implementation object is for those only.
//
// Empty handle: Alert() holds nothing; every accessor but getValue and
// isValid asserts "m_imp". getValue on an empty Alert is the caller's error.
//
// Threads: a plain value; alert objects are not changed once in the mirror.

#include <boost/shared_ptr.hpp>

#include "ostrel/AlertType.h"
#include "ostrel/AlertValueKey.h"
#include "ostrel/Device.h"
#include "ostrel/HandleList.h"
#include "ostrel/Tip.h"
#include "zel/String.h"

namespace zel {
class IAlertImp;
}

namespace ostrel5 {

class Alert : public SharedHandle<zel::IAlertImp, NoApiWrapper> {
public:
  /// The empty handle.
  Alert() noexcept = default;
  Alert(Alert const &) noexcept = default;
  Alert &operator=(Alert const &) noexcept = default;
  ~Alert();

  zel::String guid() const;
  zel::String const &key() const;
  AlertType type() const;
  /// The localized title and message, in the language the engine used.
  zel::String title() const;
  zel::String message() const;
  /// The device the alert is about; the empty handle when none.
  Device device() const;
  unsigned int tipCount() const;
  /// The tip at `index` (index < tipCount()), valid while the alert lives.
  Tip tip(unsigned int index) const;
  /// Seconds since the epoch.
  long long timeTriggered() const;
  /// False when the time is only when the alert was noticed.
  bool timeIsReal() const;
  /// Element `index` of the values under `key`; false, `out` untouched, when
  /// the alert has no such value.
  bool getValue(AlertValueKey key, zel::String &out, int index) const;

  boost::shared_ptr<zel::IAlertImp const> getImp() const;

private:
  template <class E, class I> friend class HandleList;
  friend class AlertAccess;
  friend class ClientMessageHandler;
  explicit Alert(boost::shared_ptr<zel::IAlertImp> const &imp) noexcept;
};

/// Makes Alert handles on mirror objects (for the library's own use).
class AlertAccess {
public:
  static Alert wrap(boost::shared_ptr<zel::IAlertImp> const &imp) { return Alert(imp); }
};

} // namespace ostrel5

#include "ostrel/AlertList.h"
