// What checks cost the module itself, for meshes of one to a thousand nodes of one or twenty
// models, on a platform that answers at once. The time must grow as the nodes do.
#include <benchmark/benchmark.h>
#include <json/value.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "platform/paths.h"
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
  // The CAP's model is read here where nodes are grouped; without it the CAP is left out.
  platform->files[KALO::paths::kDefaults]["unique"] = "kalo_m0";
  for (int id = 0; id < nodes; ++id) {
    const std::string model = "kalo_m" + std::to_string(id % models);
    platform->AddNode(id, model, 76000);
    platform->regular_offers[model] = {true, "hbx", "VXM 1.4.0-76010"};
  }
  platform->on_program = [](const std::vector<std::string>&) { return 0; };
  return platform;
}

// What fails costs little, and must not pass for quick.
template <typename Call, typename IsRight>
bool AnswersRightly(benchmark::State& state, const Call& call, const IsRight& is_right) {
  const auto platform = MakeMesh(state);
  if (is_right(call())) return true;
  state.SkipWithError("a wrong answer");
  return false;
}

template <typename Call, typename IsRight>
void Measure(benchmark::State& state, const Call& call, const IsRight& is_right) {
  if (!AnswersRightly(state, call, is_right)) return;
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

KALO::APIResponse Enter(KALO::APIHandler entry, const Json::Value& parameters) {
  KALO::APIRequest request(parameters);
  KALO::APIResponse response;
  entry(&request, &response);
  return response;
}

// The version on offer counts as a promotion.
void Check(benchmark::State& state) {
  Measure(
      state, [] { return Enter(WebapiUpgradePatchCheck, Json::Value(Json::objectValue)); },
      [](const KALO::APIResponse& response) {
        return response.IsSuccess() && response.Data()["promotion"] == true;
      });
}

void EqualCheck(benchmark::State& state) {
  Json::Value parameters(Json::objectValue);
  for (int id = 0; id < state.range(0); ++id) parameters["nodes"].append(id);
  Measure(
      state, [&parameters] { return Enter(WebapiUpgradePatchCheckEqual, parameters); },
      [](const KALO::APIResponse& response) {
        return response.IsSuccess() && response.Data()["available"] == false;
      });
}

void UniqueList(benchmark::State& state) {
  KALO::APIRequest request{Json::Value(Json::objectValue)};
  KALO::APIResponse response;
  KALO::MESH::Webapi::UpgradeHandler handler(&request, &response);
  std::vector<std::int32_t> ids(static_cast<std::size_t>(state.range(0)));
  std::iota(ids.begin(), ids.end(), 0);
  Measure(
      state,
      [&] {
        std::vector<KALO::MESH::Webapi::UpgradeHandler::IdGroup> groups;
        handler.GetUniqueList(ids, groups);
        benchmark::DoNotOptimize(groups);
        return groups;
      },
      [&state](const auto& groups) {
        return static_cast<std::int64_t>(groups.size()) == std::min(state.range(0), state.range(1));
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
// Each gets a mesh of its own, whose making takes a thousand times as long.
BENCHMARK(UniqueList)->Apply(OneModel)->MinTime(0.05);
BENCHMARK(UniqueList)->Apply(TwentyModels)->MinTime(0.05);

}  // namespace
