// The document of a ["markov_chain3_invalidate", "double_linear"] facade that
// knows `apps` applications after `launches` launches. The predictors learn
// directly (a facade would also rank every launch, which changes nothing that
// is saved).
#ifndef NUVIK_BENCH_TRAINED_DOCUMENT_H_
#define NUVIK_BENCH_TRAINED_DOCUMENT_H_

#include <memory>
#include <string>
#include <vector>

#include <json/json.h>

#include "BenchUtil.h"
#include "DoubleLinear.h"
#include "MarkovChain3.h"

namespace NuvikPrediction::bench {

inline std::string TrainedDocument(int apps, int launches) {
  std::vector<std::unique_ptr<Predictor>> predictors;
  predictors.push_back(std::make_unique<MarkovChain3>());
  predictors.push_back(std::make_unique<DoubleLinear>());
  Json::Value root;
  for (Json::ArrayIndex app = 0; app < static_cast<Json::ArrayIndex>(apps); ++app) {
    root["knownApps"][app] = "app" + std::to_string(app);
  }
  LaunchStream stream(apps, 1);
  for (int i = 0; i < launches; ++i) {
    const Item item = stream.Next();
    for (auto& predictor : predictors) predictor->Update(Updater{"", item.app, item.time.tm_hour, item.time.tm_min});
  }
  for (Json::ArrayIndex slot = 0; slot < predictors.size(); ++slot) {
    root["models"][slot]["name"] = predictors[slot]->name;
    root["models"][slot]["model"] = predictors[slot]->SerializeJson();
  }
  root["count"] = Json::UInt64{predictors.size()};
  root["version"] = 3;
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, root);
}

}  // namespace NuvikPrediction::bench

#endif  // NUVIK_BENCH_TRAINED_DOCUMENT_H_
