// Is the JSON parser at least as fast as a well-known one on the same documents of 1 MB, and does setConfig() with
// every key take less than 100 microseconds? A frame at 30 per second has 33,000 of them, and setConfig() holds its
// lock.
#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "config_keys.h"
#include "csrt_tracking_algo.h"
#include "sw_json.h"

namespace {

constexpr std::size_t kMegabyte = 1000000;

// What a document consists of: the four costs of a parser apart, and configurations as they come.
enum Content { kNumbers, kStrings, kEscapes, kObjects, kConfigurations };

// A configuration that names every key, each with a value that differs from the default.
std::string fullConfig() {
  nlohmann::json config;
  for (const ConfigKey& key : configKeys()) {
    nlohmann::json& group = *key.group != '\0' ? config[key.group] : config;
    switch (key.type) {
      case ConfigType::Boolean:
        group[key.name] = false;
        break;
      case ConfigType::Integer:
        group[key.name] = static_cast<int>(key.lowest) + 1;
        break;
      case ConfigType::Number:
        group[key.name] = key.lowest + 0.123;
        break;
      case ConfigType::String:
        group[key.name] = "cheb";
        break;
      case ConfigType::NumberList:
        group[key.name] = {0.8, 0.9, 1.0, 1.1, 1.2};
        break;
    }
  }
  return config.dump(2);
}

std::string element(Content content, std::mt19937& random) {
  const std::string number = std::to_string(random() % 100000);
  switch (content) {
    case kNumbers:
      return number + ", -" + number + ".25, " + number + "e-3";
    case kStrings:
      return "\"a text of ordinary length, as a name or a path may have it: " + number + "\"";
    case kEscapes:
      return "\"tab\\t quote\\\" \\u00e9 \\uD83D\\uDE00 line\\n " + number + "\"";
    case kObjects:
      return "{\"id\": " + number +
             ", \"box\": {\"x\": 1, \"y\": 2, \"w\": 3, \"h\": 4}, \"found\": true, \"name\": null}";
    default:
      return fullConfig();
  }
}

// The same text for both parsers, about 1 MB, from a fixed seed.
std::string document(Content content) {
  std::mt19937 random(7);
  std::string text = "[";
  while (text.size() < kMegabyte) text += element(content, random) + ",\n";
  return text + "null]";
}

void BM_ParseOurs(benchmark::State& state) {
  const SwString text = document(static_cast<Content>(state.range(0)));
  for (auto _ : state) {
    SwString error;
    benchmark::DoNotOptimize(SwJsonDocument::parseDocument(text, SwString(), error));
    if (!error.empty()) state.SkipWithError(error.c_str());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void BM_ParseNlohmann(benchmark::State& state) {
  const std::string text = document(static_cast<Content>(state.range(0)));
  for (auto _ : state) {
    const nlohmann::json value = nlohmann::json::parse(text, nullptr, false);
    if (value.is_discarded()) state.SkipWithError("rejected");
    benchmark::DoNotOptimize(&value);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

// Linear: four times the brackets in four times the time.
void BM_ParseDeep(benchmark::State& state) {
  const auto depth = static_cast<std::size_t>(state.range(0));
  const SwString text = std::string(depth, '[') + std::string(depth, ']');
  for (auto _ : state) {
    SwString error;
    benchmark::DoNotOptimize(SwJsonDocument::parseDocument(text, SwString(), error));
    if (!error.empty()) state.SkipWithError(error.c_str());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

struct OpenedAlgo : CSRTTrackingAlgo {
  using CSRTTrackingAlgo::config_;
};

// Budget: 100 microseconds.
void BM_SetConfigFull(benchmark::State& state) {
  OpenedAlgo algo;
  const std::string json = fullConfig();
  for (auto _ : state) algo.setConfig(json);
  if (algo.config_.csrt.window_function != "cheb") state.SkipWithError("not applied: the time means nothing");
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(json.size()));
}

BENCHMARK(BM_ParseOurs)->ArgName("content")->DenseRange(kNumbers, kConfigurations)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseNlohmann)->ArgName("content")->DenseRange(kNumbers, kConfigurations)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseDeep)->ArgName("depth")->RangeMultiplier(4)->Range(1 << 14, 1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SetConfigFull)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
