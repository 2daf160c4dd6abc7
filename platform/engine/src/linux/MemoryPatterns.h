#pragma once
// The pattern engine of the memory test: fills a buffer with test patterns
// and reads them back, split across worker threads.
//
// Sweeps. A pattern is a sequence of phases; each phase gives every 64-bit
// word of the buffer a value. The engine writes phase 0 over the whole
// buffer, then for every further phase makes one sweep that, block by block
// (4 KiB), first verifies the block against the previous phase and then
// writes the next phase into it; a last sweep verifies the last phase. Every
// word is thus written and verified once per phase with one read and one
// write of memory, the least traffic a write-then-verify test can have.
// Between sweeps all workers meet at a barrier: a whole phase is in memory
// before any of it is verified, so a write that lands on another address
// (a faulty address line) is caught wherever it lands.
//
// Values. Within a 4 KiB block the expected value of word j is
// table[j] ^ key(block): a table of 512 words per phase and one key per
// block. Walking ones, walking zeros, checkerboard and solid bits have key
// 0; random value draws a key per block from the seed; own address uses the
// block's address as the key and j * 8 as the table, which makes each word
// hold its own address (the buffer is page-aligned, so the two never carry
// into each other). The inner loops are plain XOR/OR loops over vectors,
// which is what keeps the engine at memory speed.
//
// Threads. start() runs the workers; waitFor, progress, mismatches and
// requestStop may be called from any thread while they run. The engine
// owns no memory: the buffer is the caller's and must outlive the engine.

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace morvain {
namespace memtest {

enum class Pattern {
  WALKING_ONES,  ///< one bit set, walking through all 64 positions (64 phases)
  WALKING_ZEROS, ///< one bit clear, walking through all 64 positions (64 phases)
  CHECKERBOARD,  ///< 0x55.. / 0xAA.. alternating per word, then inverted (2 phases)
  SOLID_BITS,    ///< all ones / all zeros alternating per word, then inverted (2 phases)
  RANDOM_VALUE,  ///< pseudo-random words from the seed (2 phases)
  OWN_ADDRESS    ///< each word holds its own address, then its complement (2 phases)
};

/// Every pattern, in the order the memory test runs them.
std::vector<Pattern> allPatterns();
/// "walking ones", "own address", ...
char const *patternName(Pattern pattern);
/// The key used in parameters: "WalkingOnes", "OwnAddress", ...
char const *patternKey(Pattern pattern);
unsigned phaseCount(Pattern pattern);
/// Reads a comma-separated list of pattern keys (case-blind; "all" or an
/// empty text gives every pattern). False with `unknown` set to the first
/// name that is not a pattern.
bool parsePatterns(std::string const &text, std::vector<Pattern> &out, std::string &unknown);

/// Bytes in a block: the unit of verification, of work sharing and of the
/// buffer's alignment. Buffer sizes are multiples of it.
constexpr std::size_t BLOCK_BYTES = 4096;
constexpr std::size_t BLOCK_WORDS = BLOCK_BYTES / sizeof(std::uint64_t);

/// The value the engine expects in word `wordIndex` (counted from the buffer
/// start) during `phase` of `pattern`; `base` is the buffer's address.
std::uint64_t expectedWord(Pattern pattern, unsigned phase, std::uint64_t seed,
                           std::uint64_t const *base, std::size_t wordIndex);

struct Mismatch {
  std::size_t offset = 0;     ///< byte offset of the word from the buffer start
  std::uint64_t expected = 0; ///< the value written
  std::uint64_t actual = 0;   ///< the value read back
  Pattern pattern = Pattern::WALKING_ONES;
  unsigned phase = 0;
  /// The block read wrong once but every word of it read right when looked
  /// at again: offset is the block's, expected and actual are equal.
  bool transient = false;
};

/// Called on a worker thread after it wrote `phase` of `pattern` into its
/// share [words, words + count) and before anything of that phase is
/// verified; `offset` is the byte offset of `words` from the buffer start.
/// A test changes memory here to prove that the verification finds it.
using WriteHook = std::function<void(Pattern pattern, unsigned phase, std::uint64_t *words,
                                     std::size_t count, std::size_t offset)>;

struct Options {
  /// Worker threads; 0 gives one per CPU in `cpus`, or per CPU this process
  /// may run on when `cpus` is empty.
  unsigned threads = 0;
  /// CPUs to pin workers to (worker i to cpus[i % size]); empty: no pinning.
  std::vector<int> cpus;
  std::uint64_t seed = 0x243f6a8885a308d3ull;
  WriteHook afterWrite;
  /// Mismatches kept in full; the rest are only counted.
  std::size_t keepMismatches = 256;
};

struct PhaseValues; // the expected values of one phase (table and key rule)

class PatternEngine {
public:
  /// `buffer` is aligned to BLOCK_BYTES and `bytes` a non-zero multiple of it.
  PatternEngine(void *buffer, std::size_t bytes, Options options);
  /// Stops and joins the workers.
  ~PatternEngine();
  PatternEngine(PatternEngine const &) = delete;
  PatternEngine &operator=(PatternEngine const &) = delete;

  /// Starts the workers on `passes` rounds of `patterns`. Once per engine.
  void start(std::vector<Pattern> const &patterns, unsigned passes);
  /// Waits up to `ms` for the workers to end; true when they have.
  bool waitFor(unsigned ms);
  /// start() and wait for the end, on the calling thread.
  void run(std::vector<Pattern> const &patterns, unsigned passes);
  /// Asks the workers to end; they do within one 1 MiB stretch of work.
  void requestStop();
  /// True when the workers ended before all work was done.
  bool stopped() const { return m_aborted.load(); }

  /// Fraction of the sweeps done, 0..1.
  double progress() const;
  /// The pattern and pass the workers are on, e.g. "walking ones, pass 1 of 2".
  std::string currentStep() const;
  unsigned threadCount() const { return static_cast<unsigned>(m_threadCount); }
  /// CPUs a worker could not be pinned to (empty when all were, or none asked).
  std::vector<int> unpinnedCpus() const;

  /// All mismatches found so far (at most keepMismatches).
  std::vector<Mismatch> mismatches() const;
  /// Those from index `from` on, for reporting them as they come.
  std::vector<Mismatch> mismatchesFrom(std::size_t from) const;
  std::uint64_t mismatchCount() const { return m_mismatchCount.load(); }
  /// Bytes of memory read plus written so far, for throughput figures.
  std::uint64_t bytesTouched() const;

private:
  struct Slice {
    std::size_t firstBlock = 0;
    std::size_t blockCount = 0;
  };
  void worker(unsigned index);
  bool barrier();
  void sweep(unsigned index, PhaseValues const *verify, PhaseValues const *write, bool &stopEarly);
  void verifyBlockSlow(std::size_t block, PhaseValues const &phase);
  void record(Mismatch const &m);

  std::uint64_t *m_words;
  std::size_t m_bytes;
  std::size_t m_blocks;
  Options m_options;
  std::size_t m_threadCount = 1;
  std::vector<Slice> m_slices;
  std::vector<Pattern> m_patterns;
  unsigned m_passes = 1;
  std::vector<std::thread> m_threads;

  std::atomic<bool> m_stop{false};
  std::atomic<bool> m_aborted{false};
  std::atomic<std::uint64_t> m_blocksDone{0};
  std::uint64_t m_blocksTotal = 1;
  std::atomic<unsigned> m_step{0}; // index into the pattern-pass sequence

  // Barrier: the last worker to arrive decides (from m_stop) whether all go on.
  std::mutex m_barrierLock;
  std::condition_variable m_barrierCv;
  std::size_t m_arrived = 0;
  std::uint64_t m_generation = 0;
  bool m_goOn = true;

  std::mutex m_doneLock;
  std::condition_variable m_doneCv;
  std::size_t m_finished = 0;
  bool m_started = false;

  mutable std::mutex m_resultLock;
  std::vector<Mismatch> m_mismatches;
  std::atomic<std::uint64_t> m_mismatchCount{0};
  std::vector<int> m_unpinned;
};

/// An anonymous buffer for the memory test: page-aligned, touched (so that
/// it really is in memory) and locked with mlock when the process may.
class TestBuffer {
public:
  /// `bytes` is rounded up to BLOCK_BYTES. data() is null when the memory
  /// could not be had (error() tells why).
  explicit TestBuffer(std::size_t bytes);
  ~TestBuffer();
  TestBuffer(TestBuffer const &) = delete;
  TestBuffer &operator=(TestBuffer const &) = delete;

  void *data() const { return m_data; }
  std::size_t size() const { return m_bytes; }
  bool locked() const { return m_locked; }
  /// errno of the failed mmap, or of mlock when the buffer is not locked.
  int error() const { return m_error; }

private:
  void *m_data = nullptr;
  std::size_t m_bytes = 0;
  bool m_locked = false;
  int m_error = 0;
};

/// Reads `bytes` (a multiple of 64) at `data` as fast as the processor
/// can, returning their XOR: the read half of the bandwidth benchmark.
std::uint64_t foldWords(void const *data, std::size_t bytes);
/// Writes `value` into every word of `bytes` (a multiple of 64) at `data`.
void fillWords(void *data, std::size_t bytes, std::uint64_t value);

/// Bytes of memory the kernel says can be had without swapping
/// (MemAvailable of <root>/proc/meminfo); 0 when unknown.
std::uint64_t availableMemory(std::string const &root);

} // namespace memtest
} // namespace morvain
