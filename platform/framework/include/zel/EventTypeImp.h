#pragma once
// zel::EventTypeImp: the kind of an event of a test run. Row numbers are
// those of ostrel5::EventType. String equals name.

#include "zel/ConstantTable.h"

// Rows in order: X(NAME, "string").
#define ZEL_EVENTTYPE_ROWS(X)                                                                      \
  X(UNINITIALIZED, "UNINITIALIZED")                                                                \
  X(ERR, "ERR")                                                                                    \
  X(WARNING, "WARNING")                                                                            \
  X(INFORMATIVE, "INFORMATIVE")                                                                    \
  X(PROGRESS, "PROGRESS")

namespace zel {

namespace rows {
struct EventType {
  enum EventType_ENUM : unsigned int { ZEL_EVENTTYPE_ROWS(ZEL_CONSTANT_ENUMERATOR) };
};
} // namespace rows

/// One EventType row; see zel/ConstantTable.h for the common operations.
class EventTypeImp : public rows::EventType,
                     public ConstantImp<EventTypeImp, rows::EventType::EventType_ENUM> {
public:
  using ConstantImp::ConstantImp;
  static ConstantTable<ConstantRow> const &table() noexcept;

  /// The display name in the language of the global locale, from the
  /// resource file "constants" under the key "EventType.<NAME>"; the row's
  /// string when no file has the key; "" for the sentinel.
  String localizedString() const;
};

} // namespace zel
