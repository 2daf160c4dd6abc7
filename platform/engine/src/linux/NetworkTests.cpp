// The network module: link state from sysfs, and a verified TCP transfer
// to the interface's own address.

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "linux/DiagnosticModules.h"

namespace morvain {
namespace diag {

namespace {

using Result = zel::TestResultImp;

struct Link {
  bool exists = false;
  bool adminUp = true;
  long long carrier = -1; // -1: unknown
  std::string operstate;
  long long speed = -1; // Mbit/s, -1: unknown
  std::string duplex;
  bool wireless = false;
  bool up = false;
};

bool exists(std::string const &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

Link readLink(DiagnosticRun &run, std::string const &name) {
  Link link;
  std::string const base = run.path("/sys/class/net/" + name);
  link.exists = !name.empty() && exists(base);
  if (!link.exists)
    return link;
  long long flags = 0;
  if (readNumber(base + "/flags", flags, 16))
    link.adminUp = (flags & IFF_UP) != 0;
  if (!readNumber(base + "/carrier", link.carrier))
    link.carrier = -1;
  readLine(base + "/operstate", link.operstate);
  if (!readNumber(base + "/speed", link.speed) || link.speed <= 0)
    link.speed = -1;
  readLine(base + "/duplex", link.duplex);
  link.wireless = exists(base + "/wireless") || exists(base + "/phy80211") ||
                  run.device()->capabilities().isCapable(zel::CapabilityImp("Wireless"));
  // "unknown" is what drivers without operational state report; their
  // carrier then tells.
  link.up = link.adminUp &&
            (link.operstate == "up" || (link.operstate != "down" && link.operstate != "dormant" &&
                                        link.operstate != "lowerlayerdown" &&
                                        link.operstate != "notpresent" && link.carrier == 1));
  return link;
}

// The result of a link that is not up, with the event saying why.
TestOutcome linkDown(DiagnosticRun &run, std::string const &name, Link const &link) {
  if (!link.adminUp) {
    run.info("LinkDown", name + " is switched off (administratively down)");
    return run.outcome(link.wireless ? Result::NOCONNECTION : Result::NOCABLE);
  }
  if (link.wireless) {
    run.info("LinkDown",
             name + " is not connected to a wireless network (state \"" + link.operstate + "\")");
    return run.outcome(Result::NOCONNECTION);
  }
  run.info("LinkDown", name + " has no link (state \"" + link.operstate + "\"" +
                           (link.carrier == 0 ? ", no carrier" : "") +
                           "): no cable, or nothing on the other end");
  return run.outcome(Result::NOCABLE);
}

TestOutcome linkState(DiagnosticRun &run) {
  std::string const name = run.device()->osLocator().str();
  Link const link = readLink(run, name);
  if (!link.exists) {
    run.info("NoDevice", "there is no network interface \"" + name + "\"");
    return run.outcome(Result::NODEVICE);
  }
  if (!link.up)
    return linkDown(run, name, link);
  std::string text = name + " has a link";
  if (link.speed > 0) {
    text += " at " + std::to_string(link.speed) + " Mbit/s";
    run.measurement("Link speed", double(link.speed), "Mbit/s");
  }
  if (!link.duplex.empty() && link.duplex != "unknown")
    text += ", " + link.duplex + " duplex";
  run.info("LinkUp", text);
  return run.outcome(Result::PASS);
}

class Socket {
public:
  explicit Socket(int fd = -1) : m_fd(fd) {}
  ~Socket() {
    if (m_fd >= 0)
      ::close(m_fd);
  }
  Socket(Socket const &) = delete;
  Socket &operator=(Socket const &) = delete;
  int fd() const { return m_fd; }
  void reset(int fd) {
    if (m_fd >= 0)
      ::close(m_fd);
    m_fd = fd;
  }

private:
  int m_fd;
};

// The interface's own address: IPv4 first, then a global IPv6 address,
// then a link-local one.
bool ownAddress(std::string const &name, sockaddr_storage &out, socklen_t &length,
                std::string &text) {
  ifaddrs *list = nullptr;
  if (getifaddrs(&list) != 0)
    return false;
  int best = 0; // 3 IPv4, 2 global IPv6, 1 link-local IPv6
  for (ifaddrs *a = list; a; a = a->ifa_next) {
    if (!a->ifa_addr || name != a->ifa_name)
      continue;
    int rank = 0;
    if (a->ifa_addr->sa_family == AF_INET) {
      rank = 3;
    } else if (a->ifa_addr->sa_family == AF_INET6) {
      auto const *six = reinterpret_cast<sockaddr_in6 const *>(a->ifa_addr);
      rank = IN6_IS_ADDR_LINKLOCAL(&six->sin6_addr) ? 1 : 2;
    }
    if (rank <= best)
      continue;
    best = rank;
    std::memset(&out, 0, sizeof out);
    char buf[INET6_ADDRSTRLEN] = {0};
    if (rank == 3) {
      std::memcpy(&out, a->ifa_addr, sizeof(sockaddr_in));
      length = sizeof(sockaddr_in);
      inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in *>(&out)->sin_addr, buf, sizeof buf);
    } else {
      std::memcpy(&out, a->ifa_addr, sizeof(sockaddr_in6));
      length = sizeof(sockaddr_in6);
      auto *six = reinterpret_cast<sockaddr_in6 *>(&out);
      if (rank == 1)
        six->sin6_scope_id = if_nametoindex(name.c_str());
      inet_ntop(AF_INET6, &six->sin6_addr, buf, sizeof buf);
    }
    text = buf;
  }
  freeifaddrs(list);
  return best > 0;
}

std::uint64_t streamWord(std::uint64_t offset) {
  std::uint64_t x = offset + 0x9e3779b97f4a7c15ull;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ull;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebull;
  return x ^ (x >> 31);
}

// The bytes [position, position + length) of the transfer's stream.
void streamBytes(std::uint64_t position, unsigned char *into, std::size_t length) {
  std::uint64_t word = position / 8;
  std::size_t skip = position % 8;
  std::size_t done = 0;
  while (done < length) {
    std::uint64_t const w = streamWord(word++);
    unsigned char bytes[8];
    std::memcpy(bytes, &w, 8);
    std::size_t const take = std::min<std::size_t>(8 - skip, length - done);
    std::memcpy(into + done, bytes + skip, take);
    done += take;
    skip = 0;
  }
}

// Waits for `events` on `fd` in slices of 100 ms until `give up` says so.
template <class GiveUp> bool waitFd(int fd, short events, GiveUp giveUp) {
  for (;;) {
    pollfd p{fd, events, 0};
    int const rc = ::poll(&p, 1, 100);
    if (rc > 0)
      return true;
    if (rc < 0 && errno != EINTR)
      return false;
    if (giveUp())
      return false;
  }
}

TestOutcome loopback(DiagnosticRun &run) {
  std::string const name = run.device()->osLocator().str();
  std::uint64_t const mb = run.uintParameter("SizeMB", 64);
  if (mb == 0 || mb > 1024 * 1024) {
    run.info("BadParameter", "SizeMB must be at least 1");
    return run.outcome(Result::BADPARAMS);
  }
  Link const link = readLink(run, name);
  if (!link.exists) {
    run.info("NoDevice", "there is no network interface \"" + name + "\"");
    return run.outcome(Result::NODEVICE);
  }
  if (!link.up)
    return linkDown(run, name, link);
  sockaddr_storage address;
  socklen_t length = 0;
  std::string text;
  if (!ownAddress(name, address, length, text)) {
    run.info("NoAddress", name + " has no IP address to send to");
    return run.outcome(Result::NOTAPPLICABLE);
  }
  auto failSetup = [&](std::string const &what) {
    run.error("TransferFailed", "NETWORK_TRANSFER_FAILED",
              what + " (" + text + " on " + name + "): " + std::strerror(errno));
    return run.outcome(Result::NOCONNECTION);
  };
  int const family = address.ss_family;
  Socket server(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (server.fd() < 0 || ::bind(server.fd(), reinterpret_cast<sockaddr *>(&address), length) != 0 ||
      ::listen(server.fd(), 1) != 0)
    return failSetup("cannot listen on the interface's address");
  socklen_t bound = sizeof address;
  ::getsockname(server.fd(), reinterpret_cast<sockaddr *>(&address), &bound);
  Socket client(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (client.fd() < 0 ||
      ::connect(client.fd(), reinterpret_cast<sockaddr *>(&address), length) != 0)
    return failSetup("cannot connect to the interface's own address");
  Socket peer;
  auto const start = std::chrono::steady_clock::now();
  auto giveUp = [&] {
    return run.timeUp() || std::chrono::steady_clock::now() - start > std::chrono::seconds(10);
  };
  if (waitFd(server.fd(), POLLIN, giveUp))
    peer.reset(::accept4(server.fd(), nullptr, nullptr, SOCK_CLOEXEC));
  if (peer.fd() < 0) {
    if (run.timeUp())
      return run.interrupted();
    return failSetup("the connection to the interface's own address was not accepted");
  }

  std::uint64_t const total = mb * (1 << 20);
  std::atomic<bool> stop{false};
  std::atomic<int> sendError{0};
  std::thread sender([&] {
    std::vector<unsigned char> buffer(256 * 1024);
    std::uint64_t sent = 0;
    while (sent < total && !stop.load()) {
      std::size_t const n =
          static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), total - sent));
      streamBytes(sent, buffer.data(), n);
      std::size_t done = 0;
      while (done < n && !stop.load()) {
        if (!waitFd(client.fd(), POLLOUT, [&] { return stop.load(); }))
          break;
        ssize_t const w =
            ::send(client.fd(), buffer.data() + done, n - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (w < 0 && (errno == EAGAIN || errno == EINTR))
          continue;
        if (w < 0) {
          sendError.store(errno);
          stop.store(true);
          break;
        }
        done += static_cast<std::size_t>(w);
      }
      sent += done;
    }
    ::shutdown(client.fd(), SHUT_WR);
  });

  std::vector<unsigned char> received(256 * 1024), expected(256 * 1024);
  std::uint64_t position = 0;
  bool mismatch = false, cut = false;
  int receiveError = 0;
  auto lastReport = std::chrono::steady_clock::now();
  while (position < total) {
    if (run.timeUp()) {
      cut = true;
      break;
    }
    pollfd p{peer.fd(), POLLIN, 0};
    if (::poll(&p, 1, 100) <= 0)
      continue;
    ssize_t const r = ::recv(peer.fd(), received.data(), received.size(), MSG_DONTWAIT);
    if (r < 0 && (errno == EAGAIN || errno == EINTR))
      continue;
    if (r <= 0) {
      receiveError = r < 0 ? errno : 0;
      break;
    }
    std::size_t const n = static_cast<std::size_t>(r);
    streamBytes(position, expected.data(), n);
    if (std::memcmp(received.data(), expected.data(), n) != 0) {
      std::size_t i = 0;
      while (received[i] == expected[i])
        ++i;
      char bytes[48];
      std::snprintf(bytes, sizeof bytes, "0x%02x instead of 0x%02x", received[i], expected[i]);
      run.error("TransferMismatch", "NETWORK_DATA_MISMATCH",
                "byte " + std::to_string(position + i) + " of the transfer to " + text + " on " +
                    name + " arrived as " + bytes);
      mismatch = true;
      break;
    }
    position += n;
    auto const now = std::chrono::steady_clock::now();
    if (now - lastReport > std::chrono::milliseconds(100)) {
      lastReport = now;
      run.progress(double(position) / double(total), std::to_string(position >> 20) + " of " +
                                                         std::to_string(mb) + " MiB to " + text);
    }
  }
  stop.store(true);
  sender.join();
  double const seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (mismatch)
    return run.outcome(Result::FAIL);
  if (cut)
    return run.interrupted();
  if (position < total) {
    int const e = sendError.load() ? sendError.load() : receiveError;
    run.error("TransferFailed", "NETWORK_TRANSFER_FAILED",
              "the transfer to " + text + " on " + name + " ended after " +
                  std::to_string(position) + " of " + std::to_string(total) + " bytes" +
                  (e ? std::string(": ") + std::strerror(e) : std::string()));
    return run.outcome(Result::FAIL);
  }
  run.progress(1.0);
  run.measurement("Loopback throughput to " + text, double(total) / seconds / 1e6, "MB/s");
  run.info("Summary", std::to_string(mb) + " MiB sent over TCP to " + text + " (" + name +
                          "'s own address) arrived intact; the kernel delivers such a transfer "
                          "without the wire, so it checks the interface's configuration and the "
                          "network stack, not the cable");
  return run.outcome(Result::PASS);
}

} // namespace

TestOutcome runNetworkTest(DiagnosticRun &run, std::string const &key) {
  if (key == "LinkState")
    return linkState(run);
  if (key == "Loopback")
    return loopback(run);
  return run.outcome(Result::NOTEST);
}

} // namespace diag
} // namespace morvain
