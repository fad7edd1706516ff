// Native half of nuvik.Nuvik: calls the facade and builds the Java arrays its
// queries return, with the glue of Glue.h. The Java class serialises the calls
// on one facade and keeps it alive during each call.
#include <jni.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nuvik/Nuvik.h>

#include "Glue.h"

namespace nuvik_jni {
namespace {

using NuvikPrediction::Item;
using NuvikPrediction::Nuvik;
using NuvikPrediction::NuvikConfig;

// Facades created and not yet deleted, for the Java tests of the cleanup.
std::atomic<std::int64_t> liveFacades{0};

jlong NewHandle(std::unique_ptr<Nuvik> nuvik) {
  ++liveFacades;
  return ToHandle(std::move(nuvik));
}

// The C++ configuration's own normalisation: with parameters as
// NuvikConfig(params, names), without them one parameter 1 per name.
NuvikConfig ToConfig(JNIEnv* env, jobjectArray names, jintArray params) {
  if (params == nullptr) return NuvikConfig(ToUtf8(env, names), false, 60, 0.5, 0.05);
  return NuvikConfig(ToVector(env, params), ToUtf8(env, names));
}

// Native methods of nuvik.Nuvik, in the order of its declarations.

jlong CreateDefault(JNIEnv* env, jclass) {
  return Guard(env, [] { return NewHandle(std::make_unique<Nuvik>()); });
}

jlong CreateNamed(JNIEnv* env, jclass, jobjectArray names) {
  return Guard(env, [&] { return NewHandle(std::make_unique<Nuvik>(ToUtf8(env, names))); });
}

jlong CreateConfigured(JNIEnv* env, jclass, jobjectArray names, jintArray params, jboolean skipRepeats,
                       jdouble killThreshold, jlong countLimit, jdouble weightThreshold) {
  return Guard(env, [&] {
    NuvikConfig config = ToConfig(env, names, params);
    config.skipRepeats = skipRepeats == JNI_TRUE;
    config.killThreshold = killThreshold;
    config.countLimit = static_cast<unsigned long>(countLimit);
    config.weightThreshold = weightThreshold;
    return NewHandle(std::make_unique<Nuvik>(config));
  });
}

jobjectArray Normalize(JNIEnv* env, jclass, jobjectArray names, jintArray params) {
  return Guard(env, [&] {
    const NuvikConfig config = ToConfig(env, names, params);
    return ToJavaPair(env, ToJava(env, config.names), ToJava(env, config.params));
  });
}

void Delete(JNIEnv*, jclass, jlong handle) {
  delete &FromHandle<Nuvik>(handle);
  --liveFacades;
}

jlong LiveFacades(JNIEnv*, jclass) { return liveFacades.load(); }

void Update(JNIEnv* env, jclass, jlong handle, jstring app, jint hour, jint minute) {
  Guard(env, [&] { FromHandle<Nuvik>(handle).Update(ToUtf8(env, app), At(hour, minute)); });
}

void UpdateTagged(JNIEnv* env, jclass, jlong handle, jstring app, jint hour, jint minute, jstring tag) {
  Guard(env, [&] {
    Item item;
    item.app = ToUtf8(env, app);
    item.time = At(hour, minute);
    item.tag = ToUtf8(env, tag);
    FromHandle<Nuvik>(handle).Update(item);
  });
}

void Clear(JNIEnv* env, jclass, jlong handle) {
  Guard(env, [&] { FromHandle<Nuvik>(handle).Clear(); });
}

jobjectArray Next(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return ToJava(env, FromHandle<Nuvik>(handle).GetNext()); });
}

jobjectArray NextAt(JNIEnv* env, jclass, jlong handle, jint hour, jint minute) {
  return Guard(env, [&] { return ToJava(env, FromHandle<Nuvik>(handle).GetNextAt(At(hour, minute))); });
}

// `count` is not negative: the Java class checks it.
jobjectArray NextAtFirst(JNIEnv* env, jclass, jlong handle, jint hour, jint minute, jint count) {
  return Guard(env, [&] {
    return ToJava(env, FromHandle<Nuvik>(handle).GetNextAt(At(hour, minute), static_cast<std::size_t>(count)));
  });
}

jobjectArray Soon(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return ToJava(env, FromHandle<Nuvik>(handle).GetSoon()); });
}

jobjectArray Kill(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return ToJava(env, FromHandle<Nuvik>(handle).GetKill()); });
}

jdouble Weight(JNIEnv* env, jclass, jlong handle, jstring app) {
  return Guard(env, [&] { return FromHandle<Nuvik>(handle).GetWeightSingle(ToUtf8(env, app)); });
}

jdouble WeightDet(JNIEnv* env, jclass, jlong handle, jstring app) {
  return Guard(env, [&] { return FromHandle<Nuvik>(handle).GetWeightSingleDet(ToUtf8(env, app)); });
}

jdoubleArray Weights(JNIEnv* env, jclass, jlong handle, jobjectArray apps) {
  return Guard(env, [&] { return ToJava(env, FromHandle<Nuvik>(handle).GetWeights(ToUtf8(env, apps))); });
}

jdoubleArray WeightsAt(JNIEnv* env, jclass, jlong handle, jint hour, jint minute, jobjectArray apps) {
  return Guard(env, [&] {
    return ToJava(env, FromHandle<Nuvik>(handle).GetWeightsAt(At(hour, minute), ToUtf8(env, apps)));
  });
}

// {String[] names, double[] weights}, both in the C++ map's order.
jobjectArray AllWeights(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] {
    const std::map<std::string, double> all = FromHandle<Nuvik>(handle).GetAllWeights();
    std::vector<std::string> names;
    std::vector<double> weights;
    names.reserve(all.size());
    weights.reserve(all.size());
    for (const auto& [name, weight] : all) {
      names.push_back(name);
      weights.push_back(weight);
    }
    return ToJavaPair(env, ToJava(env, names), ToJava(env, weights));
  });
}

jdouble SoonWeight(JNIEnv* env, jclass, jlong handle, jdoubleArray scores) {
  return Guard(env, [&] { return FromHandle<Nuvik>(handle).GetSoonWeight(ToVector(env, scores)); });
}

void SetAppsPriority(JNIEnv* env, jclass, jlong handle, jobjectArray apps, jintArray priorities) {
  Guard(env, [&] {
    const std::vector<std::string> names = ToUtf8(env, apps);
    const std::vector<int> values = ToVector(env, priorities);
    std::vector<std::pair<std::string, int>> list;
    list.reserve(names.size());
    for (std::size_t i = 0; i < names.size() && i < values.size(); ++i) list.emplace_back(names[i], values[i]);
    FromHandle<Nuvik>(handle).SetAppsPriority(list);
  });
}

void ResetPriority(JNIEnv* env, jclass, jlong handle) {
  Guard(env, [&] { FromHandle<Nuvik>(handle).ResetPriority(); });
}

jlong CountMetrics(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return static_cast<jlong>(FromHandle<Nuvik>(handle).GetCountMetrics()); });
}

void ClearMetrics(JNIEnv* env, jclass, jlong handle) {
  Guard(env, [&] { FromHandle<Nuvik>(handle).ClearMetrics(); });
}

jdouble MapMetric(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return FromHandle<Nuvik>(handle).GetMapMetric(); });
}

jdouble RecallMetric(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return FromHandle<Nuvik>(handle).GetRecallMetric(); });
}

jdouble SumMap(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return FromHandle<Nuvik>(handle).GetSumMap(); });
}

jdouble SumRecall(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return FromHandle<Nuvik>(handle).GetSumRecall(); });
}

jlong CountKnownApps(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return static_cast<jlong>(FromHandle<Nuvik>(handle).GetCountKnownApps()); });
}

jbyteArray Save(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return SaveDocument(env, FromHandle<Nuvik>(handle)); });
}

void Load(JNIEnv* env, jclass, jlong handle, jbyteArray document) {
  Guard(env, [&] { LoadDocument(env, FromHandle<Nuvik>(handle), document); });
}

jstring LibraryInfo(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return ToJava(env, FromHandle<Nuvik>(handle).GetLibraryInfo()); });
}

jstring Describe(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return ToJava(env, FromHandle<Nuvik>(handle).PrintNuvikInfo()); });
}

const JNINativeMethod kMethods[] = {
    NUVIK_NATIVE(CreateDefault, "()J"),
    NUVIK_NATIVE(CreateNamed, "([Ljava/lang/String;)J"),
    NUVIK_NATIVE(CreateConfigured, "([Ljava/lang/String;[IZDJD)J"),
    NUVIK_NATIVE(Normalize, "([Ljava/lang/String;[I)[Ljava/lang/Object;"),
    NUVIK_NATIVE(Delete, "(J)V"),
    NUVIK_NATIVE(LiveFacades, "()J"),
    NUVIK_NATIVE(Update, "(JLjava/lang/String;II)V"),
    NUVIK_NATIVE(UpdateTagged, "(JLjava/lang/String;IILjava/lang/String;)V"),
    NUVIK_NATIVE(Clear, "(J)V"),
    NUVIK_NATIVE(Next, "(J)[Ljava/lang/String;"),
    NUVIK_NATIVE(NextAt, "(JII)[Ljava/lang/String;"),
    NUVIK_NATIVE(NextAtFirst, "(JIII)[Ljava/lang/String;"),
    NUVIK_NATIVE(Soon, "(J)[Ljava/lang/String;"),
    NUVIK_NATIVE(Kill, "(J)[Ljava/lang/String;"),
    NUVIK_NATIVE(Weight, "(JLjava/lang/String;)D"),
    NUVIK_NATIVE(WeightDet, "(JLjava/lang/String;)D"),
    NUVIK_NATIVE(Weights, "(J[Ljava/lang/String;)[D"),
    NUVIK_NATIVE(WeightsAt, "(JII[Ljava/lang/String;)[D"),
    NUVIK_NATIVE(AllWeights, "(J)[Ljava/lang/Object;"),
    NUVIK_NATIVE(SoonWeight, "(J[D)D"),
    NUVIK_NATIVE(SetAppsPriority, "(J[Ljava/lang/String;[I)V"),
    NUVIK_NATIVE(ResetPriority, "(J)V"),
    NUVIK_NATIVE(CountMetrics, "(J)J"),
    NUVIK_NATIVE(ClearMetrics, "(J)V"),
    NUVIK_NATIVE(MapMetric, "(J)D"),
    NUVIK_NATIVE(RecallMetric, "(J)D"),
    NUVIK_NATIVE(SumMap, "(J)D"),
    NUVIK_NATIVE(SumRecall, "(J)D"),
    NUVIK_NATIVE(CountKnownApps, "(J)J"),
    NUVIK_NATIVE(Save, "(J)[B"),
    NUVIK_NATIVE(Load, "(J[B)V"),
    NUVIK_NATIVE(LibraryInfo, "(J)Ljava/lang/String;"),
    NUVIK_NATIVE(Describe, "(J)Ljava/lang/String;"),
};

}  // namespace

bool RegisterNuvik(JNIEnv* env) {
  return RegisterNatives(env, "nuvik/Nuvik", kMethods, sizeof kMethods / sizeof kMethods[0]);
}

}  // namespace nuvik_jni
