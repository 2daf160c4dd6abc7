#include "zelrlibscsi/ScsiDevice.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <linux/cdrom.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "zel/Logger.h"

namespace zelrlibscsi {

namespace {

zel::Logger &logger() { return zel::LogFactory::getLogger("zelrlibscsi.ScsiDevice"); }

// Closes the node on every way out of ejectMedia().
class Descriptor {
public:
  explicit Descriptor(int fd) noexcept : m_fd(fd) {}
  Descriptor(Descriptor const &) = delete;
  Descriptor &operator=(Descriptor const &) = delete;
  ~Descriptor() {
    if (m_fd >= 0)
      ::close(m_fd);
  }
  int get() const noexcept { return m_fd; }

private:
  int m_fd;
};

// Drive commands can take seconds when the tray moves; a drive that does not
// answer within this time counts as failed.
constexpr unsigned int SCSI_TIMEOUT_MS = 20000;

// Sends one command without data through the SCSI generic driver; returns the
// errno of the failure, EIO for a command the drive rejected, 0 on success.
int sendCommand(int fd, unsigned char const *cdb, unsigned char cdbLength) {
  unsigned char sense[32];
  sg_io_hdr_t io;
  std::memset(&io, 0, sizeof io);
  io.interface_id = 'S';
  io.dxfer_direction = SG_DXFER_NONE;
  io.cmdp = const_cast<unsigned char *>(cdb);
  io.cmd_len = cdbLength;
  io.sbp = sense;
  io.mx_sb_len = sizeof sense;
  io.timeout = SCSI_TIMEOUT_MS;
  if (::ioctl(fd, SG_IO, &io) < 0)
    return errno;
  if (io.status != 0 || io.host_status != 0 || io.driver_status != 0)
    return EIO;
  return 0;
}

int ejectThroughGenericDriver(int fd) {
  int version = 0;
  // Only the sg driver answers this request: it keeps the commands below
  // away from character devices that would read the request number otherwise.
  if (::ioctl(fd, SG_GET_VERSION_NUM, &version) < 0)
    return errno;
  unsigned char const allowRemoval[6] = {0x1E, 0, 0, 0, 0, 0};
  // A drive that has no lock rejects this; the eject may still work.
  (void)sendCommand(fd, allowRemoval, sizeof allowRemoval);
  unsigned char const stopAndEject[6] = {0x1B, 0, 0, 0, 0x02, 0};
  return sendCommand(fd, stopAndEject, sizeof stopAndEject);
}

} // namespace

ScsiDevice::ScsiDevice(zel::String const &path) : m_path(path) {}

bool ScsiDevice::fail(char const *step, int error) {
  m_lastError = error != 0 ? error : EIO;
  if (logger().isEnabled(2))
    logger().log(2, zel::String("ejectMedia(") + m_path + "): " + step + ": " +
                        std::strerror(m_lastError));
  return false;
}

bool ScsiDevice::ejectMedia() {
  if (m_path.isEmpty())
    return fail("open", ENOENT);
  Descriptor fd(::open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (fd.get() < 0)
    return fail("open", errno);
  struct stat info;
  if (::fstat(fd.get(), &info) < 0)
    return fail("stat", errno);
  if (S_ISBLK(info.st_mode)) {
    if (::ioctl(fd.get(), CDROMEJECT, 0) < 0)
      return fail("CDROMEJECT", errno);
  } else if (S_ISCHR(info.st_mode)) {
    int error = ejectThroughGenericDriver(fd.get());
    if (error != 0)
      return fail("SG_IO", error);
  } else {
    return fail("not a device node", ENOTTY);
  }
  m_lastError = 0;
  return true;
}

} // namespace zelrlibscsi
