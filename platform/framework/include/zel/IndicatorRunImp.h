#pragma once
// zel::IndicatorRunImp: one running (or paused) instance of an indicator.
//
// Made by the client from an indicator, sent to the engine in
// RunIndicatorClientToEngine, and reported back in the mirror's list of
// indicator runs. Its GUID is new for every run made from an indicator:
// "<indicator guid>#<process id>-<counter>", unique within the machine for
// the life of the process.
//
// A plain value (clone() for an owned copy). Thread-compatible.

#include "zel/IndicatorImp.h"
#include "zel/String.h"

namespace zel {

class IndicatorRunImp {
public:
  IndicatorRunImp() = default;
  /// A new run of `indicator`, with a fresh GUID, not paused.
  explicit IndicatorRunImp(IndicatorImp const &indicator);
  IndicatorRunImp(IndicatorRunImp const &) = default;
  IndicatorRunImp(IndicatorRunImp &&) = default;
  IndicatorRunImp &operator=(IndicatorRunImp const &) = default;
  IndicatorRunImp &operator=(IndicatorRunImp &&) = default;
  virtual ~IndicatorRunImp() = default;

  IndicatorRunImp *clone() const { return new IndicatorRunImp(*this); }

  String guid() const { return m_guid; }
  /// The indicator this run was made from.
  IndicatorImp const &indicator() const noexcept { return m_indicator; }
  String indicatorGuid() const { return m_indicator.guid(); }
  bool isPaused() const noexcept { return m_paused; }
  /// Seconds of user idleness after which a paused run resumes (0: none).
  unsigned int idleTime() const noexcept { return m_idleTime; }
  /// Seconds since the epoch at which the engine started it (0: not yet).
  long long startTime() const noexcept { return m_startTime; }

  IndicatorRunImp &setGuid(String const &v) {
    m_guid = v;
    return *this;
  }
  IndicatorRunImp &setIndicator(IndicatorImp const &v) {
    m_indicator = v;
    return *this;
  }
  IndicatorRunImp &setPaused(bool paused, unsigned int idleTime = 0) {
    m_paused = paused;
    m_idleTime = idleTime;
    return *this;
  }
  IndicatorRunImp &setStartTime(long long v) {
    m_startTime = v;
    return *this;
  }

  String toString(unsigned int indent = 0, bool verbose = false) const;

  friend bool operator==(IndicatorRunImp const &a, IndicatorRunImp const &b) noexcept {
    return a.m_guid == b.m_guid && a.m_indicator == b.m_indicator && a.m_paused == b.m_paused &&
           a.m_idleTime == b.m_idleTime && a.m_startTime == b.m_startTime;
  }
  friend bool operator!=(IndicatorRunImp const &a, IndicatorRunImp const &b) noexcept {
    return !(a == b);
  }

private:
  String m_guid;
  IndicatorImp m_indicator;
  bool m_paused = false;
  unsigned int m_idleTime = 0;
  long long m_startTime = 0;
};

} // namespace zel
