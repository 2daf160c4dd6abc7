#pragma once
// zelrlibscsi::ScsiDevice: a drive named by its operating-system path, for the
// one thing the client asks of it: ejecting the medium of an optical drive.
//
// On Linux the path is a device node. A block device (/dev/sr0, /dev/cdrom)
// is asked through the CD-ROM driver's eject request; a SCSI generic node
// (/dev/sg1) receives a START STOP UNIT command with the load/eject bit,
// after a PREVENT ALLOW MEDIUM REMOVAL that allows removal. Anything else
// (a regular file, a missing path, a terminal, /dev/null) is refused.
//
// ejectMedia() never throws and never ends the process: every failure is a
// false result, with the errno of the failing step in lastError() and one
// line at priority 2 on the logger "zelrlibscsi.ScsiDevice". Callers that do
// not care (the client ignores the result) may simply call it.
//
// The node is opened read-only and non-blocking for each call and closed
// before the call returns, so an object holds no descriptor and may be
// copied freely. One object is not meant for concurrent calls (lastError()
// is a plain field); separate objects are independent.

#include "zel/String.h"

namespace zelrlibscsi {

class ScsiDevice {
public:
  explicit ScsiDevice(zel::String const &path);

  zel::String const &path() const noexcept { return m_path; }

  /// Ejects the medium (opens the tray). True when the drive accepted the
  /// request; false on any failure, including a path that is no drive.
  bool ejectMedia();

  /// The errno of the last failed ejectMedia() (ENOTTY for a node that is
  /// not a drive), 0 after a success or before any call.
  int lastError() const noexcept { return m_lastError; }

private:
  bool fail(char const *step, int error);

  zel::String m_path;
  int m_lastError = 0;
};

} // namespace zelrlibscsi
