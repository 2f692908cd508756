// What a check costs the module itself, for meshes of one to a thousand nodes of one to twenty
// models, on a platform that answers at once. The time must grow as the nodes do.
#include <benchmark/benchmark.h>
#include <json/value.h>

#include <memory>
#include <string>

#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "tests/fake/platform.h"
#include "webapi/api_table.h"

namespace {

constexpr int kModels = 20;

// One for each run: its journal grows with every call.
std::unique_ptr<fake::Platform> MakeMesh(int nodes) {
  auto platform = std::make_unique<fake::Platform>();
  for (int id = 0; id < nodes; ++id) {
    const std::string model = "kalo_m" + std::to_string(id % kModels);
    platform->AddNode(id, model, 76000);
    platform->regular_offers[model] = {true, "hbx", "VXM 1.4.0-76010"};
  }
  platform->on_program = [](const std::vector<std::string>&) { return 0; };
  return platform;
}

void Enter(KALO::APIHandler entry, const Json::Value& parameters) {
  KALO::APIRequest request(parameters);
  KALO::APIResponse response;
  entry(&request, &response);
}

void Measure(benchmark::State& state, KALO::APIHandler entry, const Json::Value& parameters) {
  const int nodes = static_cast<int>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    auto platform = MakeMesh(nodes);
    state.ResumeTiming();
    Enter(entry, parameters);
    state.PauseTiming();
    platform.reset();
    state.ResumeTiming();
  }
  state.SetComplexityN(nodes);
  state.counters["per_node"] = benchmark::Counter(
      nodes, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void Check(benchmark::State& state) {
  Measure(state, WebapiUpgradePatchCheck, Json::Value(Json::objectValue));
}

void EqualCheck(benchmark::State& state) {
  Json::Value parameters(Json::objectValue);
  for (int id = 0; id < state.range(0); ++id) parameters["nodes"].append(id);
  Measure(state, WebapiUpgradePatchCheckEqual, parameters);
}

BENCHMARK(Check)->RangeMultiplier(10)->Range(1, 1000)->Complexity(benchmark::oN);
BENCHMARK(EqualCheck)->RangeMultiplier(10)->Range(1, 1000)->Complexity(benchmark::oN);

}  // namespace
