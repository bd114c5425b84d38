// What one report costs, beside bare zlib on the same bytes with the same parameters. Both are measured in
// the same iteration, one after the other, so that their ratio holds on a machine whose speed drifts.

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <KXPublisher/KXPublisher.hpp>
#include <chrono>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "KXPublisher/platform/simulated/SimulatedPlatform.h"
#include "KXPublisher/transport/KXGzipUtility.h"
#include "KXPublisher/transport/KXNetworking.h"

namespace {

using Seconds = std::chrono::duration<double>;

/// A publisher on a simulated device that knows all thirty facts.
kx::KXPublisher &publisher() {
  static kx::KXPublisher &started = []() -> kx::KXPublisher & {
    kx::SimulatedPlatform &device = kx::SimulatedPlatform::install();
    device.locationService.position = kx::Location{{52.520008, 13.404954}, 12.5, 34.25, 3.0};
    device.locationService.placemarks = {kx::Placemark{"DE", "Land Berlin", "Berlin", "10178", 7200}};
    kx::KXPublisher &made = *kx::KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
    device.advance(1);
    return made;
  }();
  return started;
}

kx::Data bytesOf(const std::string &text) {
  return {text.begin(), text.end()};
}

/// What a step has yielded; a benchmark without it would say nothing.
template <class T>
T yieldOf(std::optional<T> result) {
  if (!result) throw std::runtime_error("a step has yielded nothing");
  return *std::move(result);
}

kx::Data messageBytes() {
  return bytesOf(yieldOf(kx::KXNetworking::jsonForObject(kx::Array{publisher().data()})));
}

/// zlib as a program without this library would drive it: same parameters, same size of buffer.
std::size_t bareZlib(const kx::Data &input, kx::Data &output) {
  z_stream stream{};
  deflateInit2(&stream, -1, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
  stream.next_in = const_cast<Bytef *>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = output.data();
  stream.avail_out = static_cast<uInt>(output.size());
  deflate(&stream, Z_FINISH);
  deflateEnd(&stream);
  return stream.total_out;
}

/// Times `step` and bare zlib in turn; the row shows the step's time and "ratio", step to bare zlib.
template <class Step>
void besideBareZlib(benchmark::State &state, Step step) {
  const kx::Data input = messageBytes();
  kx::Data output(input.size() * 2);
  Seconds stepTime{};
  Seconds zlibTime{};
  for ([[maybe_unused]] auto iteration : state) {
    const auto start = std::chrono::steady_clock::now();
    step(input);
    const auto middle = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(bareZlib(input, output));
    const auto end = std::chrono::steady_clock::now();
    state.SetIterationTime(Seconds(middle - start).count());
    stepTime += middle - start;
    zlibTime += end - middle;
  }
  state.counters["ratio"] = stepTime / zlibTime;
}

void assemble(benchmark::State &state) {
  besideBareZlib(state, [](const kx::Data &) { benchmark::DoNotOptimize(publisher().data()); });
}

void serialise(benchmark::State &state) {
  const kx::Value body = kx::Array{publisher().data()};
  besideBareZlib(
      state, [&body](const kx::Data &) { benchmark::DoNotOptimize(kx::KXNetworking::jsonForObject(body)); });
}

void compress(benchmark::State &state) {
  besideBareZlib(state,
                 [](const kx::Data &input) { benchmark::DoNotOptimize(kx::KXGzipUtility::gzipData(input)); });
}

void wholeReport(benchmark::State &state) {
  besideBareZlib(
      state, [](const kx::Data &) { benchmark::DoNotOptimize(kx::KXGzipUtility::gzipData(messageBytes())); });
}

BENCHMARK(assemble)->UseManualTime();
BENCHMARK(serialise)->UseManualTime();
BENCHMARK(compress)->UseManualTime();
BENCHMARK(wholeReport)->UseManualTime();

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  const kx::Data message = messageBytes();
  std::printf("one message: %zu bytes, %zu compressed\n", message.size(),
              yieldOf(kx::KXGzipUtility::gzipData(message)).size());
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
