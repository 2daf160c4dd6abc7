#include "linux/ProcessorChecks.h"

#include <pthread.h>
#include <sched.h>

#include <cfloat>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace morvain {
namespace cpucheck {

namespace {

// Hides a value from the optimiser: whatever it was, the compiler must
// assume it is unknown, so nothing depending on it is computed at build time.
template <class T> inline T opaque(T v) {
  asm volatile("" : "+m"(v));
  return v;
}

// Makes the compiler forget what it knows of the memory `p` points to.
inline void forget(void const *p) { asm volatile("" : : "r"(p) : "memory"); }

// Keeps a register value alive and unknown inside a loop, so that a loop
// cannot be replaced by its closed form or merged into vector code.
#define MORVAIN_KEEP(x) asm volatile("" : "+r"(x))

std::string hex(std::uint64_t v) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "0x%016" PRIx64, v);
  return buf;
}

std::string wrong(std::string const &what, std::string const &expected, std::string const &got) {
  return what + ": expected " + expected + ", got " + got;
}

std::string num(double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.17g", v);
  return buf;
}

std::uint64_t bitsOf(double v) {
  std::uint64_t b;
  std::memcpy(&b, &v, sizeof b);
  return b;
}

constexpr std::uint64_t LCG_MUL = 6364136223846793005ull;
constexpr std::uint64_t LCG_ADD = 1442695040888963407ull;

// The LCG state after `steps` steps from `seed`, by composing the affine map
// with itself (repeated squaring): a computation that shares nothing with
// stepping but its answer.
std::uint64_t lcgJump(std::uint64_t seed, std::uint64_t steps) {
  std::uint64_t accMul = 1, accAdd = 0, mul = LCG_MUL, add = LCG_ADD;
  while (steps) {
    if (steps & 1) {
      accMul *= mul;
      accAdd = accAdd * mul + add;
    }
    add = (mul + 1) * add;
    mul *= mul;
    steps >>= 1;
  }
  return accMul * seed + accAdd;
}

std::uint32_t crc32Bitwise(unsigned char const *data, std::size_t size) {
  std::uint32_t crc = 0xffffffffu;
  for (std::size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int k = 0; k < 8; ++k)
      crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

// Known answers measured once and fixed here; every correct processor
// computes them bit for bit (integer arithmetic, and IEEE 754 rounding of
// additions and divisions in a fixed order).
constexpr std::uint64_t LCG_AFTER_MILLION_FROM_ONE = 0xce8eefe99cd3cc41ull;
constexpr std::uint64_t HARMONIC_100000_BITS = 0x40282e27a22f3f7cull;
constexpr std::uint32_t HARMONIC_FLOAT_10000_BITS = 0x411c9a10u;

std::string integerCheck(unsigned round) {
  // Sum of the first n squares against n(n-1)(2n-1)/6 (mod 2^64).
  std::uint64_t const n = opaque<std::uint64_t>(50000 + round % 4096);
  std::uint64_t s = 0;
  for (std::uint64_t i = 0; i < n; ++i) {
    s += i * i;
    MORVAIN_KEEP(s);
  }
  auto const closed = static_cast<std::uint64_t>((unsigned __int128)n * (n - 1) * (2 * n - 1) / 6);
  if (s != closed)
    return wrong("sum of squares", hex(closed), hex(s));

  // Division: the quotient must leave a remainder below the divisor.
  std::uint64_t x = opaque<std::uint64_t>(0x0123456789abcdefull + round);
  for (unsigned i = 0; i < 20000; ++i) {
    x = x * LCG_MUL + LCG_ADD;
    std::uint64_t const d = (x >> (i % 60)) | 1;
    std::uint64_t const numerator = x ^ (x << 17);
    std::uint64_t q = numerator / d;
    std::uint64_t r = numerator % d;
    MORVAIN_KEEP(q);
    MORVAIN_KEEP(r);
    if (r >= d || q * d + r != numerator)
      return "unsigned division: " + hex(numerator) + " / " + hex(d) + " gave " + hex(q) +
             " remainder " + hex(r);
    std::int64_t const sn = static_cast<std::int64_t>(numerator) >> 1;
    std::int64_t const sd = (static_cast<std::int64_t>(d) >> 2) | 1;
    std::int64_t sq = sn / sd;
    std::int64_t sr = sn % sd;
    MORVAIN_KEEP(sq);
    MORVAIN_KEEP(sr);
    if (sq * sd + sr != sn || (sr != 0 && ((sr < 0) != (sn < 0))) ||
        (sr < 0 ? -sr : sr) >= (sd < 0 ? -sd : sd))
      return "signed division: " + std::to_string(sn) + " / " + std::to_string(sd) + " gave " +
             std::to_string(sq) + " remainder " + std::to_string(sr);
    std::uint32_t const n32 = static_cast<std::uint32_t>(x >> 32);
    std::uint32_t const d32 = static_cast<std::uint32_t>(x >> (i % 31)) | 1u;
    std::uint32_t q32 = n32 / d32;
    std::uint32_t r32 = n32 % d32;
    MORVAIN_KEEP(q32);
    MORVAIN_KEEP(r32);
    if (r32 >= d32 || q32 * d32 + r32 != n32)
      return "32-bit division: " + std::to_string(n32) + " / " + std::to_string(d32) + " gave " +
             std::to_string(q32) + " remainder " + std::to_string(r32);
  }

  // Stepping a generator against jumping ahead, and a fixed known answer.
  std::uint64_t const steps = opaque<std::uint64_t>(4096 + round % 512);
  std::uint64_t state = opaque<std::uint64_t>(round * 0x9e3779b97f4a7c15ull + 7);
  std::uint64_t const jumped = lcgJump(state, steps);
  for (std::uint64_t i = 0; i < steps; ++i) {
    state = state * LCG_MUL + LCG_ADD;
    MORVAIN_KEEP(state);
  }
  if (state != jumped)
    return wrong("generator jump-ahead", hex(jumped), hex(state));
  std::uint64_t million = opaque<std::uint64_t>(1);
  std::uint64_t const millionSteps = opaque<std::uint64_t>(1000000);
  for (std::uint64_t i = 0; i < millionSteps; ++i) {
    million = million * LCG_MUL + LCG_ADD;
    MORVAIN_KEEP(million);
  }
  if (million != LCG_AFTER_MILLION_FROM_ONE)
    return wrong("generator after 10^6 steps", hex(LCG_AFTER_MILLION_FROM_ONE), hex(million));

  // CRC-32: the standard check value, and a table-driven run agreeing with
  // the bitwise one on generated data.
  unsigned char check[9];
  std::memcpy(check, "123456789", 9);
  forget(check);
  std::uint32_t const crcCheck = crc32Bitwise(check, 9);
  if (crcCheck != 0xcbf43926u)
    return wrong("CRC-32 of \"123456789\"", hex(0xcbf43926u), hex(crcCheck));
  std::uint32_t table[256];
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t c = i;
    for (int k = 0; k < 8; ++k)
      c = (c >> 1) ^ (0xedb88320u & (0u - (c & 1u)));
    table[i] = c;
  }
  unsigned char data[4096];
  std::uint64_t g = opaque<std::uint64_t>(round + 1);
  for (auto &b : data) {
    g = g * LCG_MUL + LCG_ADD;
    b = static_cast<unsigned char>(g >> 56);
  }
  std::uint32_t crc = 0xffffffffu;
  for (unsigned char b : data)
    crc = (crc >> 8) ^ table[(crc ^ b) & 0xffu];
  crc = ~crc;
  std::uint32_t const bitwise = crc32Bitwise(data, sizeof data);
  if (crc != bitwise)
    return wrong("CRC-32 by table", hex(bitwise), hex(crc));

  // Wide multiply against 32-bit schoolbook multiplication; bit counting
  // and byte order against loops.
  for (unsigned i = 0; i < 4096; ++i) {
    g = g * LCG_MUL + LCG_ADD;
    std::uint64_t const a = g;
    std::uint64_t const b = (g >> 7) * 0x2545f4914f6cdd1dull;
    unsigned __int128 const wide = (unsigned __int128)a * b;
    std::uint64_t const a0 = a & 0xffffffffu, a1 = a >> 32, b0 = b & 0xffffffffu, b1 = b >> 32;
    std::uint64_t const p00 = a0 * b0, p01 = a0 * b1, p10 = a1 * b0, p11 = a1 * b1;
    std::uint64_t const mid = (p00 >> 32) + (p01 & 0xffffffffu) + (p10 & 0xffffffffu);
    std::uint64_t const lo = (mid << 32) | (p00 & 0xffffffffu);
    std::uint64_t const hi = p11 + (p01 >> 32) + (p10 >> 32) + (mid >> 32);
    if (static_cast<std::uint64_t>(wide) != lo || static_cast<std::uint64_t>(wide >> 64) != hi)
      return "128-bit multiply of " + hex(a) + " by " + hex(b) + ": expected " + hex(hi) + ":" +
             hex(lo);
    int bits = 0;
    for (std::uint64_t v = a; v; v &= v - 1)
      ++bits;
    int const pop = __builtin_popcountll(opaque(a));
    if (pop != bits)
      return wrong("population count of " + hex(a), std::to_string(bits), std::to_string(pop));
    std::uint64_t swapped = 0;
    for (int k = 0; k < 8; ++k)
      swapped |= ((a >> (8 * k)) & 0xffu) << (8 * (7 - k));
    std::uint64_t const bswap = __builtin_bswap64(opaque(a));
    if (bswap != swapped)
      return wrong("byte swap of " + hex(a), hex(swapped), hex(bswap));
    unsigned const shift = i & 63;
    int const lead = __builtin_clzll(opaque<std::uint64_t>(1) << shift);
    if (lead != int(63 - shift))
      return wrong("leading zeros of bit " + std::to_string(shift), std::to_string(63 - shift),
                   std::to_string(lead));
  }
  return std::string();
}

// The exact error of a*b by Dekker's splitting; the products pass through
// opaque() so that no multiply-add is fused into them.
double dekkerError(double a, double b, double p) {
  double const split = 134217729.0; // 2^27 + 1
  double const ca = opaque(split * a);
  double const ah = ca - opaque(ca - a), al = a - ah;
  double const cb = opaque(split * b);
  double const bh = cb - opaque(cb - b), bl = b - bh;
  double const t1 = opaque(ah * bh) - p;
  double const t2 = t1 + opaque(ah * bl);
  double const t3 = t2 + opaque(al * bh);
  return t3 + opaque(al * bl);
}

std::string floatCheck(unsigned round) {
  // Sum of 1..n in doubles: exact below 2^53.
  std::uint64_t const n = opaque<std::uint64_t>((1u << 18) + round % 4096);
  double s = 0;
  for (std::uint64_t i = 1; i <= n; ++i)
    s += double(i);
  double const closed = double(n * (n + 1) / 2);
  if (s != closed)
    return wrong("sum of 1.." + std::to_string(n), num(closed), num(s));

  // Square roots and divisions whose results are exact.
  unsigned const kmax = opaque(20000u + round % 1024);
  for (unsigned k = 1; k <= kmax; ++k) {
    double const dk = opaque(double(k));
    double const root = std::sqrt(dk * dk);
    if (root != dk)
      return wrong("square root of " + num(dk * dk), num(dk), num(root));
    double const quotient = opaque(dk * 7.0) / 7.0;
    if (quotient != dk)
      return wrong(num(dk * 7.0) + " / 7", num(dk), num(quotient));
    double const third = opaque(dk * 3.0 + 1.0);
    double const back = double(static_cast<std::int64_t>(third));
    if (back != third)
      return wrong("conversion of " + num(third), num(third), num(back));
  }

  // Multiply-add against Dekker's exact product error.
  double a = opaque(1.0 + std::ldexp(double(round % 97 + 1), -30));
  double b = opaque(3.0 - std::ldexp(double(round % 89 + 3), -31));
  for (unsigned i = 0; i < 2000; ++i) {
    double const p = opaque(a * b);
    double const fused = std::fma(a, b, -p);
    double const exact = dekkerError(a, b, p);
    if (fused != exact)
      return wrong("fused multiply-add error of " + num(a) + " * " + num(b), num(exact),
                   num(fused));
    a = opaque(a * 1.0000001 + 1e-9);
    b = opaque(b * 0.9999999 + 1e-9);
  }

  // Rounding to even, subnormal numbers, and two fixed known answers.
  double const big = opaque(9007199254740992.0); // 2^53
  if (big + 1.0 != big || big + 3.0 != big + 4.0)
    return "rounding to even at 2^53 gave " + num(big + 1.0) + " and " + num(big + 3.0);
  double const tiny = opaque(DBL_MIN) / 4.0;
  if (tiny == 0.0 || tiny * 4.0 != DBL_MIN)
    return "subnormal arithmetic: DBL_MIN / 4 * 4 gave " + num(tiny * 4.0);
  unsigned const terms = opaque(100000u);
  double h = 0;
  for (unsigned i = 1; i <= terms; ++i)
    h += 1.0 / double(i);
  if (bitsOf(h) != HARMONIC_100000_BITS)
    return wrong("harmonic sum of 10^5 terms (bits)", hex(HARMONIC_100000_BITS), hex(bitsOf(h)));
  unsigned const fterms = opaque(10000u);
  float hf = 0;
  for (unsigned i = 1; i <= fterms; ++i)
    hf += 1.0f / float(i);
  std::uint32_t hfBits;
  std::memcpy(&hfBits, &hf, sizeof hfBits);
  if (hfBits != HARMONIC_FLOAT_10000_BITS)
    return wrong("single-precision harmonic sum of 10^4 terms (bits)",
                 hex(HARMONIC_FLOAT_10000_BITS), hex(hfBits));
  return std::string();
}

// One vector check per instruction set: integer and double lanes iterate
// the same recurrences as a scalar reference (kept scalar by barriers),
// lanes are reversed by a shuffle, and every lane must agree bit for bit.
// The double recurrence adds before it multiplies, so no multiply-add can
// be fused into it whatever the compiler's contraction setting.
#define MORVAIN_SIMD_CHECK(NAME, TARGET, BYTES, LABEL)                                             \
  TARGET std::string NAME(unsigned round) {                                                        \
    typedef std::uint32_t VU __attribute__((vector_size(BYTES)));                                  \
    typedef double VD __attribute__((vector_size(BYTES)));                                         \
    constexpr int NU = BYTES / 4;                                                                  \
    constexpr int ND = BYTES / 8;                                                                  \
    std::uint32_t seedU[NU];                                                                       \
    double seedD[ND];                                                                              \
    for (int l = 0; l < NU; ++l)                                                                   \
      seedU[l] = opaque(std::uint32_t(0x9e3779b9u * (l + 1) + round));                             \
    for (int l = 0; l < ND; ++l)                                                                   \
      seedD[l] = opaque(0.25 + 0.01 * l + 1e-6 * (round % 1000));                                  \
    VU u, mulU, addU, rev;                                                                         \
    VD d, addD;                                                                                    \
    std::memcpy(&u, seedU, sizeof u);                                                              \
    std::memcpy(&d, seedD, sizeof d);                                                              \
    for (int l = 0; l < NU; ++l) {                                                                 \
      mulU[l] = 1664525u + 2u * l;                                                                 \
      addU[l] = 1013904223u + 7u * l;                                                              \
      rev[l] = NU - 1 - l;                                                                         \
    }                                                                                              \
    for (int l = 0; l < ND; ++l)                                                                   \
      addD[l] = 0.125 * (l + 1);                                                                   \
    VD const mulD = d * 0.0 + 0.75;                                                                \
    unsigned const iterations = opaque(4096u);                                                     \
    for (unsigned i = 0; i < iterations; ++i) {                                                    \
      u = u * mulU + addU;                                                                         \
      u ^= u >> 7;                                                                                 \
      d = (d + addD) * mulD;                                                                       \
    }                                                                                              \
    VU const reversed = __builtin_shuffle(u, rev);                                                 \
    for (int l = 0; l < NU; ++l) {                                                                 \
      std::uint32_t x = seedU[l];                                                                  \
      for (unsigned i = 0; i < iterations; ++i) {                                                  \
        x = x * (1664525u + 2u * l) + (1013904223u + 7u * l);                                      \
        x ^= x >> 7;                                                                               \
        MORVAIN_KEEP(x);                                                                           \
      }                                                                                            \
      if (u[l] != x)                                                                               \
        return wrong(std::string(LABEL) + " integer lane " + std::to_string(l), hex(x),            \
                     hex(u[l]));                                                                   \
      if (reversed[NU - 1 - l] != x)                                                               \
        return wrong(std::string(LABEL) + " lane shuffle, lane " + std::to_string(NU - 1 - l),     \
                     hex(x), hex(reversed[NU - 1 - l]));                                           \
    }                                                                                              \
    for (int l = 0; l < ND; ++l) {                                                                 \
      double x = seedD[l];                                                                         \
      for (unsigned i = 0; i < iterations; ++i)                                                    \
        x = opaque(x + 0.125 * (l + 1)) * 0.75;                                                    \
      if (bitsOf(d[l]) != bitsOf(x))                                                               \
        return wrong(std::string(LABEL) + " double lane " + std::to_string(l), num(x), num(d[l])); \
    }                                                                                              \
    return std::string();                                                                          \
  }

MORVAIN_SIMD_CHECK(simdBase, , 16, "128-bit vector")
#if defined(__x86_64__) && defined(__GNUC__)
MORVAIN_SIMD_CHECK(simdAvx2, __attribute__((target("avx2"))), 32, "AVX2")
MORVAIN_SIMD_CHECK(simdAvx512, __attribute__((target("avx512f"))), 64, "AVX-512F")
#endif

bool hasAvx2() {
#if defined(__x86_64__) && defined(__GNUC__)
  return __builtin_cpu_supports("avx2");
#else
  return false;
#endif
}

bool hasAvx512() {
#if defined(__x86_64__) && defined(__GNUC__)
  return __builtin_cpu_supports("avx512f");
#else
  return false;
#endif
}

std::string simdCheck(unsigned round) {
  std::string r = simdBase(round);
#if defined(__x86_64__) && defined(__GNUC__)
  if (r.empty() && hasAvx2())
    r = simdAvx2(round);
  if (r.empty() && hasAvx512())
    r = simdAvx512(round);
#endif
  return r;
}

} // namespace

char const *checkName(Check check) {
  switch (check) {
  case Check::INTEGER:
    return "integer";
  case Check::FLOATING_POINT:
    return "floating-point";
  case Check::SIMD:
    return "SIMD";
  }
  return "";
}

std::string runCheck(Check check, unsigned round) {
  switch (check) {
  case Check::INTEGER:
    return integerCheck(round);
  case Check::FLOATING_POINT:
    return floatCheck(round);
  case Check::SIMD:
    return simdCheck(round);
  }
  return "unknown check";
}

std::string simdLevels() {
#if defined(__x86_64__)
  std::string levels = "SSE2";
#else
  std::string levels = "128-bit vectors";
#endif
  if (hasAvx2())
    levels += ", AVX2";
  if (hasAvx512())
    levels += ", AVX-512F";
  return levels;
}

std::uint64_t integerKernel(std::uint64_t iterations, std::uint64_t &sink) {
  // Eight independent multiply-add chains: enough to fill the multiplier's
  // pipeline, so the figure is throughput, not latency.
  std::uint64_t x0 = opaque<std::uint64_t>(1), x1 = 2, x2 = 3, x3 = 4, x4 = 5, x5 = 6, x6 = 7,
                x7 = 8;
  std::uint64_t const m = opaque(LCG_MUL);
  for (std::uint64_t i = 0; i < iterations; ++i) {
    x0 = x0 * m + 1;
    x1 = x1 * m + 3;
    x2 = x2 * m + 5;
    x3 = x3 * m + 7;
    x4 = x4 * m + 9;
    x5 = x5 * m + 11;
    x6 = x6 * m + 13;
    x7 = x7 * m + 15;
    MORVAIN_KEEP(x0);
    MORVAIN_KEEP(x4);
  }
  sink = x0 ^ x1 ^ x2 ^ x3 ^ x4 ^ x5 ^ x6 ^ x7;
  return iterations * 16;
}

std::uint64_t floatKernel(std::uint64_t iterations, double &sink) {
  // Eight independent chains of two-lane vectors, x = x * a + b: the chains
  // converge to b / (1 - a) and never reach subnormal numbers.
  typedef double V2 __attribute__((vector_size(16)));
  V2 const a = {opaque(0.999999), 0.9999991};
  V2 const b = {1e-7, 2e-7};
  V2 x0 = {0.1, 0.2}, x1 = {0.3, 0.4}, x2 = {0.5, 0.6}, x3 = {0.7, 0.8}, x4 = {0.9, 1.0},
     x5 = {1.1, 1.2}, x6 = {1.3, 1.4}, x7 = {1.5, 1.6};
  for (std::uint64_t i = 0; i < iterations; ++i) {
    x0 = x0 * a + b;
    x1 = x1 * a + b;
    x2 = x2 * a + b;
    x3 = x3 * a + b;
    x4 = x4 * a + b;
    x5 = x5 * a + b;
    x6 = x6 * a + b;
    x7 = x7 * a + b;
  }
  V2 const all = x0 + x1 + x2 + x3 + x4 + x5 + x6 + x7;
  sink = all[0] + all[1];
  return iterations * 8 * 2 * 2;
}

bool parseCpuList(std::string const &text, std::vector<int> &out) {
  out.clear();
  std::stringstream in(text);
  std::string item;
  while (std::getline(in, item, ',')) {
    auto const first = item.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
      continue;
    item = item.substr(first, item.find_last_not_of(" \t\r\n") - first + 1);
    char *end = nullptr;
    long const lo = std::strtol(item.c_str(), &end, 10);
    long hi = lo;
    if (end == item.c_str() || lo < 0)
      return false;
    if (*end == '-') {
      char const *start = end + 1;
      hi = std::strtol(start, &end, 10);
      if (end == start || hi < lo)
        return false;
    }
    if (*end != '\0' || hi >= 1 << 16)
      return false;
    for (long c = lo; c <= hi; ++c)
      out.push_back(static_cast<int>(c));
  }
  return !out.empty();
}

std::vector<int> allowedCpus() {
  std::vector<int> out;
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof(set), &set) == 0)
    for (int c = 0; c < CPU_SETSIZE; ++c)
      if (CPU_ISSET(c, &set))
        out.push_back(c);
  return out;
}

CpuTeam::CpuTeam(std::vector<int> const &cpus, Body body) : m_body(std::move(body)) {
  for (std::size_t i = 0; i < cpus.size(); ++i)
    m_threads.emplace_back(&CpuTeam::run, this, i, cpus[i]);
}

CpuTeam::~CpuTeam() {
  requestStop();
  for (auto &t : m_threads)
    if (t.joinable())
      t.join();
}

bool CpuTeam::waitFor(unsigned ms) {
  std::unique_lock<std::mutex> lock(m_lock);
  return m_cv.wait_for(lock, std::chrono::milliseconds(ms),
                       [this] { return m_finished == m_threads.size(); });
}

std::vector<int> CpuTeam::unpinned() const {
  std::lock_guard<std::mutex> lock(m_lock);
  return m_unpinned;
}

void CpuTeam::run(std::size_t index, int cpu) {
  bool pinned = false;
  if (cpu >= 0 && cpu < CPU_SETSIZE) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    // The affinity of the calling thread takes effect before the call
    // returns, so sched_getcpu() confirms where the work really runs.
    pinned =
        pthread_setaffinity_np(pthread_self(), sizeof(set), &set) == 0 && sched_getcpu() == cpu;
  }
  if (pinned) {
    m_body(index, cpu, m_stop);
  }
  std::lock_guard<std::mutex> lock(m_lock);
  if (!pinned)
    m_unpinned.push_back(cpu);
  ++m_finished;
  m_cv.notify_all();
}

} // namespace cpucheck
} // namespace morvain
