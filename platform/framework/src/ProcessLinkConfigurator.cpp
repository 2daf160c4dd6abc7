#include "zel/ProcessLinkConfigurator.h"

#include <chrono>
#include <utility>

namespace zel {

ProcessLinkConfigurator &ProcessLinkConfigurator::instance() {
  // Never deleted: link threads may still be draining a queue while static
  // objects are destroyed at exit.
  static ProcessLinkConfigurator *const theInstance = new ProcessLinkConfigurator();
  return *theInstance;
}

void ProcessLinkConfigurator::sendMessageClientToEngine(MessageHandle message) {
  if (message && !m_toEngine.push(std::move(message)))
    ++m_dropped;
}

MessageHandle ProcessLinkConfigurator::receiveMessageClientFromEngine(unsigned int timeoutMs) {
  return m_toClient.pop(timeoutMs);
}

void ProcessLinkConfigurator::sendMessageEngineToClient(MessageHandle message) {
  if (message && !m_toClient.push(std::move(message)))
    ++m_dropped;
}

MessageHandle ProcessLinkConfigurator::receiveMessageEngineFromClient(unsigned int timeoutMs) {
  return m_toEngine.pop(timeoutMs);
}

void ProcessLinkConfigurator::resetQueues() {
  m_toEngine.clear();
  m_toClient.clear();
  m_toEngine.open();
  m_toClient.open();
}

void ProcessLinkConfigurator::closeQueues() {
  m_toEngine.close();
  m_toClient.close();
}

bool ProcessLinkConfigurator::queuesClosed() const {
  return m_toEngine.isClosed() && m_toClient.isClosed();
}

std::size_t ProcessLinkConfigurator::pendingClientToEngine() const { return m_toEngine.size(); }
std::size_t ProcessLinkConfigurator::pendingEngineToClient() const { return m_toClient.size(); }

// ---------------------------------------------------------------- Queue

bool ProcessLinkConfigurator::Queue::push(MessageHandle message) {
  if (!message)
    return true;
  bool progress = message->priority() < 0;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (progress) {
      if (m_progress >= MAX_QUEUED_PROGRESS)
        return false; // the handle is released outside the lock, on return
      ++m_progress;
    }
    m_messages.push_back(Entry{std::move(message), progress});
  }
  m_ready.notify_one();
  return true;
}

MessageHandle ProcessLinkConfigurator::Queue::pop(unsigned int timeoutMs) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  std::unique_lock<std::mutex> lock(m_mutex);
  while (m_messages.empty()) {
    if (m_closed || m_ready.wait_until(lock, deadline) == std::cv_status::timeout) {
      if (m_messages.empty())
        return MessageHandle();
      break;
    }
  }
  Entry entry = std::move(m_messages.front());
  m_messages.pop_front();
  if (entry.progress)
    --m_progress;
  return std::move(entry.message);
}

void ProcessLinkConfigurator::Queue::clear() {
  std::deque<Entry> dropped;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    dropped.swap(m_messages);
    m_progress = 0;
  }
  // `dropped` releases the messages here, outside the lock: a message's
  // destructor (a whole mirror) may take a while.
}

void ProcessLinkConfigurator::Queue::close() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_closed = true;
  }
  m_ready.notify_all();
}

void ProcessLinkConfigurator::Queue::open() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_closed = false;
}

bool ProcessLinkConfigurator::Queue::isClosed() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_closed;
}

std::size_t ProcessLinkConfigurator::Queue::size() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_messages.size();
}

} // namespace zel
