// Message encoding and the in-process queue pair.
//
// Goal: more than 500,000 small messages per second through encode + decode
// (counter "msgs_per_s" against "goal_msgs_per_s"). The baseline copies the
// same bytes, which is the least any transport of the message costs.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>

#include "zel/MessageCodec.h"
#include "zel/Messages.h"
#include "zel/ProcessLinkConfigurator.h"

namespace {

constexpr double kGoalMessagesPerSecond = 500000;

zel::MessageHandle smallMessage() {
  zel::MessageHandle m(new zel::DeviceEnumerationCompleted("pci", 0.25, 42));
  m->setClientID(255);
  m->setClientName("none");
  return m;
}

void reportRate(benchmark::State &state) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
  state.counters["msgs_per_s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_Messages_EncodeDecodeSmall(benchmark::State &state) {
  zel::MessageHandle m = smallMessage();
  for (auto _ : state) {
    zel::String bytes = zel::encodeMessage(*m);
    zel::MessageHandle back = zel::decodeMessage(bytes);
    benchmark::DoNotOptimize(back.get());
  }
  reportRate(state);
  state.counters["goal_msgs_per_s"] = kGoalMessagesPerSecond;
}
BENCHMARK(BM_Messages_EncodeDecodeSmall);

void BM_Messages_EncodeSmall(benchmark::State &state) {
  zel::MessageHandle m = smallMessage();
  zel::String bytes;
  for (auto _ : state) {
    bytes.str().clear();
    zel::encodeMessage(*m, bytes);
    benchmark::DoNotOptimize(bytes.data());
  }
  state.counters["bytes"] = static_cast<double>(bytes.size());
  reportRate(state);
}
BENCHMARK(BM_Messages_EncodeSmall);

void BM_Messages_DecodeSmall(benchmark::State &state) {
  zel::String bytes = zel::encodeMessage(*smallMessage());
  for (auto _ : state) {
    zel::MessageHandle back = zel::decodeMessage(bytes);
    benchmark::DoNotOptimize(back.get());
  }
  reportRate(state);
}
BENCHMARK(BM_Messages_DecodeSmall);

// Baseline: copying the encoded bytes twice (out and in), with one heap
// string each way as the real path has.
void BM_Messages_BaselineCopyBytes(benchmark::State &state) {
  zel::String bytes = zel::encodeMessage(*smallMessage());
  for (auto _ : state) {
    std::string out(bytes.data(), bytes.size());
    std::string in(out.data(), out.size());
    benchmark::DoNotOptimize(in.data());
  }
  reportRate(state);
}
BENCHMARK(BM_Messages_BaselineCopyBytes);

// One thread: send towards the engine and take it off at the engine's end.
void BM_Messages_QueueSendReceive(benchmark::State &state) {
  zel::ProcessLinkConfigurator &link = zel::ProcessLinkConfigurator::instance();
  link.resetQueues();
  zel::MessageHandle m = smallMessage();
  for (auto _ : state) {
    link.sendMessageClientToEngine(m);
    zel::MessageHandle got = link.receiveMessageEngineFromClient(1000);
    benchmark::DoNotOptimize(got.get());
  }
  reportRate(state);
  link.resetQueues();
}
BENCHMARK(BM_Messages_QueueSendReceive);

// Two threads: the client sends, an echoing engine thread answers, the client
// waits for the answer. One iteration is one round trip with two wake-ups.
void BM_Messages_QueueRoundTrip(benchmark::State &state) {
  zel::ProcessLinkConfigurator &link = zel::ProcessLinkConfigurator::instance();
  link.resetQueues();
  std::atomic<bool> stop{false};
  std::thread engine([&] {
    while (!stop.load()) {
      zel::MessageHandle m = link.receiveMessageEngineFromClient(50);
      if (m)
        link.sendMessageEngineToClient(m);
    }
  });
  zel::MessageHandle m = smallMessage();
  for (auto _ : state) {
    link.sendMessageClientToEngine(m);
    zel::MessageHandle back = link.receiveMessageClientFromEngine(1000);
    if (!back) {
      state.SkipWithError("the echo did not come back within a second");
      break;
    }
  }
  stop.store(true);
  engine.join();
  reportRate(state);
  link.resetQueues();
}
BENCHMARK(BM_Messages_QueueRoundTrip)->UseRealTime();

} // namespace
