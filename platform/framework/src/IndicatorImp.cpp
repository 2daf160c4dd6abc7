#include "zel/IndicatorImp.h"

#include <unistd.h>

#include <atomic>

#include "zel/IndicatorRunImp.h"

namespace zel {

String IndicatorImp::toString(unsigned int indent, bool verbose) const {
  String pad(indent * 2, ' ');
  String out =
      pad + "Indicator " + m_name + " [" + m_guid + "]" + (isFreeIndicator() ? " free" : "") + "\n";
  if (verbose) {
    out += pad + "  module: " + m_moduleGuid + ", key: " + m_key + "\n";
    if (!m_deviceGuid.isEmpty())
      out += pad + "  device: " + m_deviceGuid + "\n";
  }
  return out;
}

IndicatorRunImp::IndicatorRunImp(IndicatorImp const &indicator) : m_indicator(indicator) {
  static std::atomic<unsigned long long> counter{0};
  m_guid = indicator.guid() + "#" + String::fromInt(static_cast<long long>(::getpid())) + "-" +
           String::fromUInt(++counter);
}

String IndicatorRunImp::toString(unsigned int indent, bool verbose) const {
  String pad(indent * 2, ' ');
  String out = pad + "Indicator run [" + m_guid + "] of " + m_indicator.guid() +
               (m_paused ? " paused" : " running") + "\n";
  if (verbose && m_paused)
    out += pad + "  idle time: " + String::fromUInt(m_idleTime) + "\n";
  return out;
}

} // namespace zel
