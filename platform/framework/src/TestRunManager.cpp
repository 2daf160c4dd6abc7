#include "zel/TestRunManager.h"

namespace zel {

TestRunManager::TestRunManager() = default;

TestRunManager::TestRunManager(TestRunManager const &other) {
  for (auto const &run : other.getTestRuns())
    m_runs.put(run->guid(), boost::shared_ptr<TestRunImp>(new TestRunImp(*run)));
}

TestRunManager &TestRunManager::operator=(TestRunManager const &other) {
  if (this != &other) {
    TestRunManager copy(other);
    MutexGuard guard(m_lock);
    m_runs = std::move(copy.m_runs);
  }
  return *this;
}

TestRunManager::~TestRunManager() = default;

bool TestRunManager::addTestRun(boost::shared_ptr<TestRunImp> const &run) {
  if (!run)
    return false;
  String guid = run->guid();
  MutexGuard guard(m_lock);
  return m_runs.put(guid, run);
}

bool TestRunManager::removeTestRun(String const &guid) {
  MutexGuard guard(m_lock);
  return m_runs.remove(guid);
}

boost::shared_ptr<TestRunImp> TestRunManager::testRunByGuid(String const &guid) const {
  MutexGuard guard(m_lock);
  auto const *found = m_runs.find(guid);
  return found ? *found : boost::shared_ptr<TestRunImp>();
}

Array<boost::shared_ptr<TestRunImp>> TestRunManager::getTestRuns() const {
  MutexGuard guard(m_lock);
  Array<boost::shared_ptr<TestRunImp>> out(m_runs.size());
  for (auto const &entry : m_runs)
    out.append(entry.second);
  return out;
}

Array<boost::shared_ptr<TestRunImp>> TestRunManager::testRuns(TestStateImp const &state) const {
  Array<boost::shared_ptr<TestRunImp>> all = getTestRuns();
  if (state == TestStateImp::ALL)
    return all;
  // States are read outside the registry lock: a run takes its own lock.
  Array<boost::shared_ptr<TestRunImp>> out;
  for (auto const &run : all)
    if (run->state() == state)
      out.append(run);
  return out;
}

unsigned int TestRunManager::testRunCount() const {
  MutexGuard guard(m_lock);
  return static_cast<unsigned int>(m_runs.size());
}

void TestRunManager::clear() {
  MutexGuard guard(m_lock);
  m_runs.clear();
}

void TestRunManager::merge(TestRunManager const &other) {
  if (&other == this)
    return;
  for (auto const &incoming : other.getTestRuns()) {
    String guid = incoming->guid();
    boost::shared_ptr<TestRunImp> local = testRunByGuid(guid);
    if (!local) {
      boost::shared_ptr<TestRunImp> copy(new TestRunImp(*incoming));
      MutexGuard guard(m_lock);
      // A run registered meanwhile under that guid wins over the copy.
      if (m_runs.insertIfAbsent(guid, copy))
        continue;
      local = *m_runs.find(guid);
    }
    // update() refuses an EXITED run itself; no lock is held while it fires.
    local->update(*incoming);
  }
}

} // namespace zel
