#pragma once
// zel::ProcessLinkConfigurator: where the engine runs, and the pair of
// in-process queues between client and engine when it runs in this process.
//
// One process-wide instance (instance(): made on first use, never deleted).
//
// The queues. One queue per direction, client to engine and engine to
// client. Each takes messages from any number of threads and is read by one
// consumer (the client's pull thread; the engine's dispatch thread). A queue
// keeps the order of each producer's messages; messages of different
// producers interleave in the order their sends took the queue's lock. A
// receive blocks until a message is there or its time-out passes, and gives
// the null handle on time-out. The queue holds its own reference to each
// message (send takes the handle by value) and hands it on; nothing is
// copied.
//
// Dropping. A message of negative priority (an intermediate progress notice)
// is dropped by send when MAX_QUEUED_PROGRESS such messages already wait in
// that queue: progress that the reader cannot keep up with is stale by the
// time it would be read, and an engine reporting faster than the client
// handles must not grow the queue without bound. Nothing of priority 0 or
// more is ever dropped, and a later final report still arrives. Dropped
// messages are counted (droppedCount) and not logged.
//
// Connections. resetQueues() empties both queues and opens them again; the
// in-process engine is started and stopped several times in one process, and
// what one connection left behind must not reach the next. closeQueues()
// wakes every blocked receiver at shutdown: until the next reset, a receive
// still returns what is queued but then returns null at once instead of
// waiting. Sending to a closed queue still queues (reset discards it).
//
// Thread-safety: every member may be called from any thread.

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>

#include "zel/Message.h"

namespace zel {

class ProcessLinkConfigurator {
public:
  /// Negative-priority messages that may wait in one queue at a time.
  static constexpr std::size_t MAX_QUEUED_PROGRESS = 50;

  static ProcessLinkConfigurator &instance();

  /// Whether the engine runs in a process of its own; false unless set.
  bool separateProcess() const noexcept { return m_separateProcess.load(); }
  /// Takes effect for the next link the client makes.
  void setSeparateProcess(bool separate) noexcept { m_separateProcess.store(separate); }

  /// Queues `message` for the engine. A null handle is ignored.
  void sendMessageClientToEngine(MessageHandle message);
  /// The next message of the engine, waiting up to `timeoutMs`; null on
  /// time-out (at once when the queues are closed and this one is empty).
  MessageHandle receiveMessageClientFromEngine(unsigned int timeoutMs);

  /// Queues `message` for the client. A null handle is ignored.
  void sendMessageEngineToClient(MessageHandle message);
  /// The next message of the client, waiting up to `timeoutMs`; null on
  /// time-out (at once when the queues are closed and this one is empty).
  MessageHandle receiveMessageEngineFromClient(unsigned int timeoutMs);

  /// Empties both queues (the messages are released) and opens them.
  void resetQueues();
  /// Wakes every blocked receiver; receives stop waiting until resetQueues.
  void closeQueues();
  bool queuesClosed() const;

  /// Messages waiting in each direction (snapshots).
  std::size_t pendingClientToEngine() const;
  std::size_t pendingEngineToClient() const;
  /// Negative-priority messages dropped since the process started, both
  /// directions together.
  std::size_t droppedCount() const noexcept { return m_dropped.load(); }

  /// One direction. Public so that a link may keep a private queue of the
  /// same kind (the separate-process link buffers what its socket delivers).
  class Queue {
  public:
    Queue() = default;
    Queue(Queue const &) = delete;
    Queue &operator=(Queue const &) = delete;

    /// False when the message was dropped (see Dropping above).
    bool push(MessageHandle message);
    MessageHandle pop(unsigned int timeoutMs);
    void clear();
    void close();
    void open();
    bool isClosed() const;
    std::size_t size() const;

  private:
    struct Entry {
      MessageHandle message;
      bool progress; // negative priority when queued (the count below follows it)
    };
    mutable std::mutex m_mutex;
    std::condition_variable m_ready;
    std::deque<Entry> m_messages;
    std::size_t m_progress = 0; // negative-priority messages in m_messages
    bool m_closed = false;
  };

private:
  ProcessLinkConfigurator() = default;
  ProcessLinkConfigurator(ProcessLinkConfigurator const &) = delete;
  ProcessLinkConfigurator &operator=(ProcessLinkConfigurator const &) = delete;

  std::atomic<bool> m_separateProcess{false};
  std::atomic<std::size_t> m_dropped{0};
  Queue m_toEngine;
  Queue m_toClient;
};

} // namespace zel
