#include "options.h"

#include <atomic>
#include <exception>
#include <mutex>
#include <set>
#include <thread>

namespace bench {

std::vector<Engine> enginesOf(const GuardOptions& options) {
  std::vector<Engine> engines;
  for (const std::string& name : options.engines) engines.push_back({name, host::defaultPluginPath(name)});
  if (engines.empty() && !options.plugin.empty()) {
    engines.push_back({host::engineOfFile(options.plugin), options.plugin});
  }
  if (engines.empty()) engines.push_back({host::kDefaultEngine, host::defaultPluginPath(host::kDefaultEngine)});
  return engines;
}

std::vector<host::TruthTarget> targetsOf(const GuardOptions& options, const Footage& footage) {
  const auto all = host::readTruth(options.truth, host::TruthOptions(), "target");
  const std::set<std::string> held = heldBack(all);
  std::vector<host::TruthTarget> targets;
  for (const host::TruthTarget& target : all) {
    const bool isHeld = held.count(target.name) != 0;
    if (options.half != "all" && isHeld != (options.half == "held-back")) continue;
    if (!options.only.empty() && target.name != options.only) continue;
    targets.push_back(footage.fitted(target));
  }
  return targets;
}

std::vector<Walk> walksOf(const GuardOptions& options, const std::vector<Engine>& engines, const Footage& footage,
                          const std::vector<host::TruthTarget>& targets) {
  std::vector<Walk> walks;
  const auto add = [&](const Engine& engine, const std::string& preset, const std::string& guard) {
    for (const int start : options.starts) {
      for (const host::TruthTarget& target : targets) {
        Walk& walk = walks.emplace_back();
        walk.target = &target;
        walk.footage = &footage;
        walk.engine = engine.name;
        walk.preset = preset;
        walk.guard = guard;
        walk.choice = options.choices.at(guard);
        walk.start = start;
      }
    }
  };
  for (const Engine& engine : engines) {
    for (const std::string& preset : options.presets) {
      for (const std::string& guard : options.guards) add(engine, preset, guard);
    }
  }
  return walks;
}

std::string presetWord(const std::string& preset) {
  return preset.empty() ? "defaults" : preset;
}

void followAll(std::vector<Walk>& walks, const std::vector<Engine>& engines, const GuardOptions& options,
               AnswerCache& cache, const std::vector<host::TruthTarget>& trace) {
  for (const Engine& engine : engines) {
    host::PluginLibrary library(engine.path);
    std::vector<Walk*> ofEngine;
    for (Walk& walk : walks) {
      if (walk.engine == engine.name) ofEngine.push_back(&walk);
    }
    inThreads(trace.empty() ? options.threads : 1, ofEngine.size(),
              [&](std::size_t i) { follow(*ofEngine[i], library, cache, trace); });
  }
}

void inThreads(int threads, std::size_t count, const std::function<void(std::size_t)>& work) {
  std::atomic<std::size_t> next{0};
  std::exception_ptr thrown;
  std::mutex mutex;
  const auto loop = [&] {
    try {
      for (std::size_t i = next++; i < count; i = next++) work(i);
    } catch (...) {
      const std::lock_guard<std::mutex> lock(mutex);
      if (thrown == nullptr) thrown = std::current_exception();
      next = count;
    }
  };
  std::vector<std::thread> all;
  for (int t = 0; t < threads; ++t) all.emplace_back(loop);
  for (std::thread& thread : all) thread.join();
  if (thrown != nullptr) std::rethrow_exception(thrown);
}

}  // namespace bench
