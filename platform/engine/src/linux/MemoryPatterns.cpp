#include "linux/MemoryPatterns.h"

#include <pthread.h>
#include <sched.h>
#include <strings.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

namespace morvain {
namespace memtest {

namespace {

// The inner loops work on 32-byte vectors. Each loop is compiled twice:
// for AVX2 and for the baseline (where the vectors become pairs of SSE2
// operations); kernels() picks one set when first used. The choice is made
// in code rather than by the loader (ifunc), because a resolver run by the
// loader runs before sanitizer runtimes are ready. `may_alias` because the
// buffer is also read as plain words.
typedef std::uint64_t Vec __attribute__((vector_size(32), may_alias));
constexpr std::size_t VEC_WORDS = sizeof(Vec) / sizeof(std::uint64_t);
constexpr std::size_t BLOCKS_PER_CHUNK = 256; // 1 MiB: the stop and progress grain

#define MORVAIN_INLINE inline __attribute__((always_inline))

// OR of (word ^ table ^ key) over one block: zero when the block is as expected.
MORVAIN_INLINE std::uint64_t blockDifferenceBody(std::uint64_t const *block,
                                                 std::uint64_t const *table, std::uint64_t key) {
  Vec const *p = reinterpret_cast<Vec const *>(block);
  Vec const *t = reinterpret_cast<Vec const *>(table);
  Vec const k = {key, key, key, key};
  Vec acc0 = {0, 0, 0, 0};
  Vec acc1 = {0, 0, 0, 0};
  for (std::size_t i = 0; i < BLOCK_WORDS / VEC_WORDS; i += 2) {
    acc0 |= p[i] ^ t[i] ^ k;
    acc1 |= p[i + 1] ^ t[i + 1] ^ k;
  }
  acc0 |= acc1;
  return acc0[0] | acc0[1] | acc0[2] | acc0[3];
}

MORVAIN_INLINE void fillBlockBody(std::uint64_t *block, std::uint64_t const *table,
                                  std::uint64_t key) {
  Vec *p = reinterpret_cast<Vec *>(block);
  Vec const *t = reinterpret_cast<Vec const *>(table);
  Vec const k = {key, key, key, key};
  for (std::size_t i = 0; i < BLOCK_WORDS / VEC_WORDS; ++i)
    p[i] = t[i] ^ k;
}

MORVAIN_INLINE std::uint64_t foldBody(Vec const *p, std::size_t count) {
  Vec a0 = {0, 0, 0, 0}, a1 = a0;
  for (std::size_t i = 0; i < count; i += 2) {
    a0 ^= p[i];
    a1 ^= p[i + 1];
  }
  a0 ^= a1;
  return a0[0] ^ a0[1] ^ a0[2] ^ a0[3];
}

MORVAIN_INLINE void fillBody(Vec *p, std::size_t count, std::uint64_t value) {
  Vec const v = {value, value, value, value};
  for (std::size_t i = 0; i < count; ++i)
    p[i] = v;
}

struct Kernels {
  std::uint64_t (*difference)(std::uint64_t const *, std::uint64_t const *, std::uint64_t);
  void (*fillBlock)(std::uint64_t *, std::uint64_t const *, std::uint64_t);
  std::uint64_t (*fold)(Vec const *, std::size_t);
  void (*fill)(Vec *, std::size_t, std::uint64_t);
};

#define MORVAIN_KERNEL_SET(NAME, TARGET)                                                           \
  TARGET std::uint64_t NAME##Difference(std::uint64_t const *b, std::uint64_t const *t,            \
                                        std::uint64_t k) {                                         \
    return blockDifferenceBody(b, t, k);                                                           \
  }                                                                                                \
  TARGET void NAME##FillBlock(std::uint64_t *b, std::uint64_t const *t, std::uint64_t k) {         \
    fillBlockBody(b, t, k);                                                                        \
  }                                                                                                \
  TARGET std::uint64_t NAME##Fold(Vec const *p, std::size_t n) { return foldBody(p, n); }          \
  TARGET void NAME##Fill(Vec *p, std::size_t n, std::uint64_t v) { fillBody(p, n, v); }            \
  Kernels const NAME##Kernels = {NAME##Difference, NAME##FillBlock, NAME##Fold, NAME##Fill};

MORVAIN_KERNEL_SET(baseline, )
#if defined(__x86_64__) && defined(__GNUC__)
MORVAIN_KERNEL_SET(avx2, __attribute__((target("avx2"))))
#endif

Kernels const &kernels() {
#if defined(__x86_64__) && defined(__GNUC__)
  static Kernels const &chosen = __builtin_cpu_supports("avx2") ? avx2Kernels : baselineKernels;
  return chosen;
#else
  return baselineKernels;
#endif
}

std::uint64_t blockDifference(std::uint64_t const *block, std::uint64_t const *table,
                              std::uint64_t key) {
  return kernels().difference(block, table, key);
}

void fillBlock(std::uint64_t *block, std::uint64_t const *table, std::uint64_t key) {
  kernels().fillBlock(block, table, key);
}

std::uint64_t mix(std::uint64_t x) {
  // splitmix64's finaliser: every input bit reaches every output bit.
  x += 0x9e3779b97f4a7c15ull;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ull;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebull;
  return x ^ (x >> 31);
}

struct PatternInfo {
  Pattern pattern;
  char const *name;
  char const *key;
  unsigned phases;
};

PatternInfo const PATTERNS[] = {
    {Pattern::OWN_ADDRESS, "own address", "OwnAddress", 2},
    {Pattern::RANDOM_VALUE, "random value", "RandomValue", 2},
    {Pattern::SOLID_BITS, "solid bits", "SolidBits", 2},
    {Pattern::CHECKERBOARD, "checkerboard", "Checkerboard", 2},
    {Pattern::WALKING_ONES, "walking ones", "WalkingOnes", 64},
    {Pattern::WALKING_ZEROS, "walking zeros", "WalkingZeros", 64},
};

PatternInfo const &info(Pattern p) {
  for (auto const &i : PATTERNS)
    if (i.pattern == p)
      return i;
  return PATTERNS[0];
}

enum class KeyRule { NONE, RANDOM, ADDRESS };

} // namespace

// The expected values of one phase: word j of block b is table[j] ^ key(b).
struct PhaseValues {
  std::uint64_t table[BLOCK_WORDS] __attribute__((aligned(64)));
  KeyRule rule = KeyRule::NONE;
  std::uint64_t keySeed = 0;
  Pattern pattern = Pattern::WALKING_ONES;
  unsigned index = 0;

  void set(Pattern p, unsigned phase, std::uint64_t seed) {
    pattern = p;
    index = phase;
    rule = KeyRule::NONE;
    std::uint64_t const fives = 0x5555555555555555ull;
    for (std::size_t j = 0; j < BLOCK_WORDS; ++j) {
      bool const odd = ((j ^ phase) & 1) != 0;
      switch (p) {
      case Pattern::WALKING_ONES:
        table[j] = std::uint64_t(1) << ((j + phase) & 63);
        break;
      case Pattern::WALKING_ZEROS:
        table[j] = ~(std::uint64_t(1) << ((j + phase) & 63));
        break;
      case Pattern::CHECKERBOARD:
        table[j] = odd ? ~fives : fives;
        break;
      case Pattern::SOLID_BITS:
        table[j] = odd ? 0 : ~std::uint64_t(0);
        break;
      case Pattern::RANDOM_VALUE:
        table[j] = mix(seed ^ (std::uint64_t(phase + 1) << 40) ^ j);
        break;
      case Pattern::OWN_ADDRESS:
        table[j] = phase == 0 ? j * sizeof(std::uint64_t) : ~(j * sizeof(std::uint64_t));
        break;
      }
    }
    if (p == Pattern::RANDOM_VALUE) {
      rule = KeyRule::RANDOM;
      keySeed = mix(seed + phase + 0x51);
    } else if (p == Pattern::OWN_ADDRESS) {
      rule = KeyRule::ADDRESS;
    }
  }

  std::uint64_t key(std::uint64_t const *base, std::size_t block) const {
    switch (rule) {
    case KeyRule::RANDOM:
      return mix(keySeed ^ (block * 0xd6e8feb86659fd93ull));
    case KeyRule::ADDRESS:
      return reinterpret_cast<std::uintptr_t>(base + block * BLOCK_WORDS);
    default:
      return 0;
    }
  }
};

std::vector<Pattern> allPatterns() {
  std::vector<Pattern> out;
  for (auto const &i : PATTERNS)
    out.push_back(i.pattern);
  return out;
}

char const *patternName(Pattern pattern) { return info(pattern).name; }
char const *patternKey(Pattern pattern) { return info(pattern).key; }
unsigned phaseCount(Pattern pattern) { return info(pattern).phases; }

bool parsePatterns(std::string const &text, std::vector<Pattern> &out, std::string &unknown) {
  out.clear();
  std::stringstream in(text);
  std::string item;
  bool all = false;
  while (std::getline(in, item, ',')) {
    auto const first = item.find_first_not_of(" \t");
    if (first == std::string::npos)
      continue;
    item = item.substr(first, item.find_last_not_of(" \t") - first + 1);
    if (strcasecmp(item.c_str(), "all") == 0) {
      all = true;
      continue;
    }
    bool found = false;
    for (auto const &i : PATTERNS) {
      if (strcasecmp(item.c_str(), i.key) == 0) {
        if (std::find(out.begin(), out.end(), i.pattern) == out.end())
          out.push_back(i.pattern);
        found = true;
      }
    }
    if (!found) {
      unknown = item;
      return false;
    }
  }
  if (all || out.empty())
    out = allPatterns();
  return true;
}

std::uint64_t expectedWord(Pattern pattern, unsigned phase, std::uint64_t seed,
                           std::uint64_t const *base, std::size_t wordIndex) {
  std::unique_ptr<PhaseValues> p(new PhaseValues);
  p->set(pattern, phase, seed);
  std::size_t const block = wordIndex / BLOCK_WORDS;
  return p->table[wordIndex % BLOCK_WORDS] ^ p->key(base, block);
}

PatternEngine::PatternEngine(void *buffer, std::size_t bytes, Options options)
    : m_words(static_cast<std::uint64_t *>(buffer)), m_bytes(bytes), m_blocks(bytes / BLOCK_BYTES),
      m_options(std::move(options)) {
  std::size_t threads = m_options.threads;
  if (threads == 0) {
    if (!m_options.cpus.empty()) {
      threads = m_options.cpus.size();
    } else {
      cpu_set_t set;
      CPU_ZERO(&set);
      threads = sched_getaffinity(0, sizeof(set), &set) == 0 ? CPU_COUNT(&set) : 1;
    }
  }
  m_threadCount = std::max<std::size_t>(1, std::min(threads, std::max<std::size_t>(1, m_blocks)));
  std::size_t const per = m_blocks / m_threadCount;
  std::size_t const extra = m_blocks % m_threadCount;
  std::size_t next = 0;
  for (std::size_t i = 0; i < m_threadCount; ++i) {
    Slice s;
    s.firstBlock = next;
    s.blockCount = per + (i < extra ? 1 : 0);
    next += s.blockCount;
    m_slices.push_back(s);
  }
}

PatternEngine::~PatternEngine() {
  requestStop();
  for (auto &t : m_threads)
    if (t.joinable())
      t.join();
}

void PatternEngine::start(std::vector<Pattern> const &patterns, unsigned passes) {
  if (m_started)
    return;
  m_started = true;
  m_patterns = patterns;
  m_passes = std::max(1u, passes);
  std::uint64_t sweeps = 0;
  for (Pattern p : m_patterns)
    sweeps += phaseCount(p) + 1;
  m_blocksTotal = std::max<std::uint64_t>(1, sweeps * m_passes * m_blocks);
  for (unsigned i = 0; i < m_threadCount; ++i)
    m_threads.emplace_back(&PatternEngine::worker, this, i);
}

bool PatternEngine::waitFor(unsigned ms) {
  std::unique_lock<std::mutex> lock(m_doneLock);
  return m_doneCv.wait_for(lock, std::chrono::milliseconds(ms),
                           [this] { return m_finished == m_threads.size(); });
}

void PatternEngine::run(std::vector<Pattern> const &patterns, unsigned passes) {
  start(patterns, passes);
  while (!waitFor(1000)) {
  }
}

void PatternEngine::requestStop() { m_stop.store(true); }

double PatternEngine::progress() const {
  return std::min(1.0,
                  double(m_blocksDone.load(std::memory_order_relaxed)) / double(m_blocksTotal));
}

std::string PatternEngine::currentStep() const {
  if (m_patterns.empty())
    return std::string();
  unsigned const step = m_step.load();
  unsigned const pass = step / m_patterns.size();
  std::string text = patternName(m_patterns[step % m_patterns.size()]);
  if (m_passes > 1)
    text += ", pass " + std::to_string(pass + 1) + " of " + std::to_string(m_passes);
  return text;
}

std::vector<int> PatternEngine::unpinnedCpus() const {
  std::lock_guard<std::mutex> lock(m_resultLock);
  return m_unpinned;
}

std::vector<Mismatch> PatternEngine::mismatches() const { return mismatchesFrom(0); }

std::vector<Mismatch> PatternEngine::mismatchesFrom(std::size_t from) const {
  std::lock_guard<std::mutex> lock(m_resultLock);
  if (from >= m_mismatches.size())
    return {};
  return std::vector<Mismatch>(m_mismatches.begin() + from, m_mismatches.end());
}

std::uint64_t PatternEngine::bytesTouched() const {
  // Every sweep but the first and the last reads and writes each block once.
  std::uint64_t const blocks = m_blocksDone.load(std::memory_order_relaxed);
  std::uint64_t sweepsPerRound = 0;
  for (Pattern p : m_patterns)
    sweepsPerRound += phaseCount(p) + 1;
  if (sweepsPerRound == 0)
    return 0;
  // Of each pattern's (phases + 1) sweeps, phases - 1 do both, two do one.
  std::uint64_t const operations = 2 * sweepsPerRound - 2 * m_patterns.size();
  return blocks * BLOCK_BYTES * operations / sweepsPerRound;
}

void PatternEngine::record(Mismatch const &m) {
  m_mismatchCount.fetch_add(1);
  std::lock_guard<std::mutex> lock(m_resultLock);
  if (m_mismatches.size() < m_options.keepMismatches)
    m_mismatches.push_back(m);
}

bool PatternEngine::barrier() {
  std::unique_lock<std::mutex> lock(m_barrierLock);
  std::uint64_t const generation = m_generation;
  if (++m_arrived == m_threadCount) {
    m_arrived = 0;
    m_goOn = !m_stop.load();
    ++m_generation;
    m_barrierCv.notify_all();
    return m_goOn;
  }
  m_barrierCv.wait(lock, [&] { return m_generation != generation; });
  return m_goOn;
}

void PatternEngine::verifyBlockSlow(std::size_t block, PhaseValues const &phase) {
  std::uint64_t const key = phase.key(m_words, block);
  std::uint64_t const *p = m_words + block * BLOCK_WORDS;
  bool found = false;
  for (std::size_t j = 0; j < BLOCK_WORDS; ++j) {
    std::uint64_t const actual = *static_cast<std::uint64_t const volatile *>(p + j);
    std::uint64_t const expected = phase.table[j] ^ key;
    if (actual != expected) {
      Mismatch m;
      m.offset = (block * BLOCK_WORDS + j) * sizeof(std::uint64_t);
      m.expected = expected;
      m.actual = actual;
      m.pattern = phase.pattern;
      m.phase = phase.index;
      record(m);
      found = true;
    }
  }
  if (!found) {
    Mismatch m;
    m.offset = block * BLOCK_BYTES;
    m.pattern = phase.pattern;
    m.phase = phase.index;
    m.transient = true;
    record(m);
  }
}

void PatternEngine::sweep(unsigned index, PhaseValues const *verify, PhaseValues const *write,
                          bool &stopEarly) {
  Slice const &s = m_slices[index];
  std::size_t const end = s.firstBlock + s.blockCount;
  for (std::size_t chunk = s.firstBlock; chunk < end; chunk += BLOCKS_PER_CHUNK) {
    if (m_stop.load(std::memory_order_relaxed)) {
      stopEarly = true;
      return;
    }
    std::size_t const chunkEnd = std::min(end, chunk + BLOCKS_PER_CHUNK);
    for (std::size_t b = chunk; b < chunkEnd; ++b) {
      std::uint64_t *block = m_words + b * BLOCK_WORDS;
      if (verify && blockDifference(block, verify->table, verify->key(m_words, b)) != 0)
        verifyBlockSlow(b, *verify);
      if (write)
        fillBlock(block, write->table, write->key(m_words, b));
    }
    m_blocksDone.fetch_add(chunkEnd - chunk, std::memory_order_relaxed);
  }
}

void PatternEngine::worker(unsigned index) {
  if (!m_options.cpus.empty()) {
    int const cpu = m_options.cpus[index % m_options.cpus.size()];
    cpu_set_t set;
    CPU_ZERO(&set);
    if (cpu >= 0 && cpu < CPU_SETSIZE)
      CPU_SET(cpu, &set);
    if (cpu < 0 || cpu >= CPU_SETSIZE ||
        pthread_setaffinity_np(pthread_self(), sizeof(set), &set) != 0) {
      std::lock_guard<std::mutex> lock(m_resultLock);
      m_unpinned.push_back(cpu);
    }
  }
  std::unique_ptr<PhaseValues> phases[2] = {std::unique_ptr<PhaseValues>(new PhaseValues),
                                            std::unique_ptr<PhaseValues>(new PhaseValues)};
  bool goOn = true;
  unsigned step = 0;
  for (unsigned pass = 0; pass < m_passes && goOn; ++pass) {
    for (std::size_t pi = 0; pi < m_patterns.size() && goOn; ++pi, ++step) {
      if (index == 0)
        m_step.store(step);
      Pattern const pattern = m_patterns[pi];
      unsigned const n = phaseCount(pattern);
      PhaseValues *previous = nullptr;
      for (unsigned k = 0; k <= n && goOn; ++k) {
        PhaseValues *next = k < n ? phases[k & 1].get() : nullptr;
        if (next)
          next->set(pattern, k, m_options.seed);
        bool stopEarly = false;
        sweep(index, previous, next, stopEarly);
        if (next && !stopEarly && m_options.afterWrite) {
          Slice const &s = m_slices[index];
          m_options.afterWrite(pattern, k, m_words + s.firstBlock * BLOCK_WORDS,
                               s.blockCount * BLOCK_WORDS, s.firstBlock * BLOCK_BYTES);
        }
        goOn = barrier();
        previous = next;
      }
    }
  }
  if (!goOn)
    m_aborted.store(true);
  std::lock_guard<std::mutex> lock(m_doneLock);
  ++m_finished;
  m_doneCv.notify_all();
}

TestBuffer::TestBuffer(std::size_t bytes) {
  m_bytes = (bytes + BLOCK_BYTES - 1) / BLOCK_BYTES * BLOCK_BYTES;
  if (m_bytes == 0)
    m_bytes = BLOCK_BYTES;
  void *p = mmap(nullptr, m_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) {
    m_error = errno;
    m_bytes = 0;
    return;
  }
  m_data = p;
  // Large pages where the kernel offers them: fewer TLB misses, the same
  // memory cells.
  madvise(p, m_bytes, MADV_HUGEPAGE);
  if (mlock(p, m_bytes) == 0) {
    m_locked = true;
  } else {
    m_error = errno;
    // Not locked: at least have every page in memory before the test starts.
    std::memset(p, 0, m_bytes);
  }
}

TestBuffer::~TestBuffer() {
  if (m_data) {
    if (m_locked)
      munlock(m_data, m_bytes);
    munmap(m_data, m_bytes);
  }
}

std::uint64_t foldWords(void const *data, std::size_t bytes) {
  return kernels().fold(static_cast<Vec const *>(data), bytes / sizeof(Vec) & ~std::size_t(1));
}

void fillWords(void *data, std::size_t bytes, std::uint64_t value) {
  kernels().fill(static_cast<Vec *>(data), bytes / sizeof(Vec), value);
}

std::uint64_t availableMemory(std::string const &root) {
  std::string path = root;
  if (!path.empty() && path.back() == '/')
    path.pop_back();
  std::ifstream in(path + "/proc/meminfo");
  std::string key;
  std::uint64_t value = 0;
  std::string unit;
  while (in >> key >> value) {
    std::getline(in, unit);
    if (key == "MemAvailable:")
      return value * 1024;
  }
  return 0;
}

} // namespace memtest
} // namespace morvain
