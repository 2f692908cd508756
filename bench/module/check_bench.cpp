// What checks cost the module itself, for meshes of one to a thousand nodes of one or twenty
// models, on a platform that answers at once. The time must grow as the nodes do.
#include <benchmark/benchmark.h>
#include <json/value.h>

#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "tests/fake/platform.h"
#include "webapi/api_table.h"
#include "webapi/upgrade_handler.h"

namespace {

// One for each run: its journal grows with every call.
std::unique_ptr<fake::Platform> MakeMesh(const benchmark::State& state) {
  const int nodes = static_cast<int>(state.range(0));
  const int models = static_cast<int>(state.range(1));
  auto platform = std::make_unique<fake::Platform>();
  for (int id = 0; id < nodes; ++id) {
    const std::string model = "kalo_m" + std::to_string(id % models);
    platform->AddNode(id, model, 76000);
    platform->regular_offers[model] = {true, "hbx", "VXM 1.4.0-76010"};
  }
  platform->on_program = [](const std::vector<std::string>&) { return 0; };
  return platform;
}

template <typename Call>
void Measure(benchmark::State& state, const Call& call) {
  for (auto _ : state) {
    state.PauseTiming();
    auto platform = MakeMesh(state);
    state.ResumeTiming();
    call();
    state.PauseTiming();
    platform.reset();
    state.ResumeTiming();
  }
  state.SetComplexityN(state.range(0));
  state.counters["per_node"] = benchmark::Counter(
      static_cast<double>(state.range(0)),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void Enter(KALO::APIHandler entry, const Json::Value& parameters) {
  KALO::APIRequest request(parameters);
  KALO::APIResponse response;
  entry(&request, &response);
}

void Check(benchmark::State& state) {
  Measure(state, [] { Enter(WebapiUpgradePatchCheck, Json::Value(Json::objectValue)); });
}

void EqualCheck(benchmark::State& state) {
  Json::Value parameters(Json::objectValue);
  for (int id = 0; id < state.range(0); ++id) parameters["nodes"].append(id);
  Measure(state, [&parameters] { Enter(WebapiUpgradePatchCheckEqual, parameters); });
}

void UniqueList(benchmark::State& state) {
  KALO::APIRequest request{Json::Value(Json::objectValue)};
  KALO::APIResponse response;
  KALO::MESH::Webapi::UpgradeHandler handler(&request, &response);
  std::vector<std::int32_t> ids(static_cast<std::size_t>(state.range(0)));
  std::iota(ids.begin(), ids.end(), 0);
  Measure(state, [&] {
    std::vector<KALO::MESH::Webapi::UpgradeHandler::IdGroup> groups;
    handler.GetUniqueList(ids, groups);
    benchmark::DoNotOptimize(groups);
  });
}

// Nodes, models.
void OneModel(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgsProduct({{1, 10, 100, 1000}, {1}})->Complexity(benchmark::oN);
}

void TwentyModels(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgsProduct({{1, 10, 100, 1000}, {20}})->Complexity(benchmark::oN);
}

BENCHMARK(Check)->Apply(OneModel);
BENCHMARK(Check)->Apply(TwentyModels);
BENCHMARK(EqualCheck)->Apply(OneModel);
BENCHMARK(EqualCheck)->Apply(TwentyModels);
BENCHMARK(UniqueList)->Apply(OneModel);
BENCHMARK(UniqueList)->Apply(TwentyModels);

}  // namespace
