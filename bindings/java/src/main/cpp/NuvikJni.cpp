// Native half of nuvik.Nuvik: registers its native methods, converts names
// between Java's UTF-16 and the library's UTF-8, builds the Java arrays the
// queries return, and turns every C++ exception into a Java one. The Java class
// serialises the calls on one facade and keeps it alive during each call.
#include <jni.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <exception>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <nuvik/Nuvik.h>

#include "Utf.h"

namespace nuvik_jni {
namespace {

using NuvikPrediction::Item;
using NuvikPrediction::Nuvik;
using NuvikPrediction::NuvikConfig;

static_assert(std::is_same<jchar, std::uint16_t>::value, "jchar must be a 16-bit unsigned integer");

// Global references to the classes the glue creates or throws, taken at load time.
struct Classes {
  jclass string = nullptr;
  jclass object = nullptr;
  jclass formatException = nullptr;
  jclass nullPointer = nullptr;
  jclass outOfMemory = nullptr;
  jclass runtime = nullptr;
};
Classes classes;

// Facades created and not yet deleted, for the Java tests of the cleanup.
std::atomic<std::int64_t> liveFacades{0};

// Unwinds the glue while a Java exception is pending; the JVM raises it on return.
struct JavaExceptionPending {};

void CheckJava(JNIEnv* env) {
  if (env->ExceptionCheck()) throw JavaExceptionPending{};
}

[[noreturn]] void ThrowJava(JNIEnv* env, jclass type, const char* message) {
  env->ThrowNew(type, message);
  throw JavaExceptionPending{};
}

// Runs `body`, translating whatever it throws; returns a zero value after a throw.
template <typename Body>
auto Guard(JNIEnv* env, Body body) -> decltype(body()) {
  try {
    return body();
  } catch (const JavaExceptionPending&) {
  } catch (const std::bad_alloc&) {
    env->ThrowNew(classes.outOfMemory, "out of native memory in the Nuvik library");
  } catch (const std::exception& e) {
    env->ThrowNew(classes.runtime, e.what());
  } catch (...) {
    env->ThrowNew(classes.runtime, "unknown C++ exception in the Nuvik library");
  }
  if constexpr (!std::is_void<decltype(body())>::value) return {};
}

jsize ToJavaSize(std::size_t size) {
  if (size > static_cast<std::size_t>(std::numeric_limits<jsize>::max())) throw std::bad_alloc();
  return static_cast<jsize>(size);
}

Nuvik& FromHandle(jlong handle) { return *reinterpret_cast<Nuvik*>(static_cast<std::intptr_t>(handle)); }

jlong ToHandle(std::unique_ptr<Nuvik> nuvik) {
  ++liveFacades;
  return static_cast<jlong>(reinterpret_cast<std::intptr_t>(nuvik.release()));
}

template <typename T>
T* NonNull(JNIEnv* env, T* reference, const char* what) {
  if (reference == nullptr) ThrowJava(env, classes.nullPointer, what);
  return reference;
}

std::string ToUtf8(JNIEnv* env, jstring text) {
  NonNull(env, text, "null string");
  const jsize length = env->GetStringLength(text);
  std::string utf8;
  constexpr jsize kStackUnits = 128;
  if (length <= kStackUnits) {
    jchar units[kStackUnits];
    env->GetStringRegion(text, 0, length, units);
    AppendUtf8(units, static_cast<std::size_t>(length), utf8);
  } else {
    std::vector<jchar> units(static_cast<std::size_t>(length));
    env->GetStringRegion(text, 0, length, units.data());
    AppendUtf8(units.data(), units.size(), utf8);
  }
  return utf8;
}

jstring ToJava(JNIEnv* env, const std::string& utf8, std::vector<std::uint16_t>& units) {
  DecodeUtf8(utf8, units);
  static const jchar kNoUnit = 0;
  jstring text = env->NewString(units.empty() ? &kNoUnit : units.data(), ToJavaSize(units.size()));
  if (text == nullptr) throw JavaExceptionPending{};
  return text;
}

jstring ToJava(JNIEnv* env, const std::string& utf8) {
  std::vector<std::uint16_t> units;
  return ToJava(env, utf8, units);
}

std::vector<std::string> ToUtf8(JNIEnv* env, jobjectArray texts) {
  const jsize count = env->GetArrayLength(NonNull(env, texts, "null string array"));
  std::vector<std::string> utf8;
  utf8.reserve(static_cast<std::size_t>(count));
  for (jsize i = 0; i < count; ++i) {
    auto text = static_cast<jstring>(env->GetObjectArrayElement(texts, i));
    CheckJava(env);
    utf8.push_back(ToUtf8(env, text));
    env->DeleteLocalRef(text);
  }
  return utf8;
}

jobjectArray ToJava(JNIEnv* env, const std::vector<std::string>& utf8) {
  jobjectArray texts = env->NewObjectArray(ToJavaSize(utf8.size()), classes.string, nullptr);
  if (texts == nullptr) throw JavaExceptionPending{};
  std::vector<std::uint16_t> units;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    jstring text = ToJava(env, utf8[i], units);
    env->SetObjectArrayElement(texts, static_cast<jsize>(i), text);
    env->DeleteLocalRef(text);
  }
  return texts;
}

std::vector<int> ToVector(JNIEnv* env, jintArray values) {
  std::vector<int> copy(static_cast<std::size_t>(env->GetArrayLength(NonNull(env, values, "null int array"))));
  env->GetIntArrayRegion(values, 0, static_cast<jsize>(copy.size()), copy.data());
  return copy;
}

std::vector<double> ToVector(JNIEnv* env, jdoubleArray values) {
  std::vector<double> copy(static_cast<std::size_t>(env->GetArrayLength(NonNull(env, values, "null double array"))));
  env->GetDoubleArrayRegion(values, 0, static_cast<jsize>(copy.size()), copy.data());
  return copy;
}

jintArray ToJava(JNIEnv* env, const std::vector<int>& values) {
  jintArray array = env->NewIntArray(ToJavaSize(values.size()));
  if (array == nullptr) throw JavaExceptionPending{};
  env->SetIntArrayRegion(array, 0, static_cast<jsize>(values.size()), values.data());
  return array;
}

jdoubleArray ToJava(JNIEnv* env, const std::vector<double>& values) {
  jdoubleArray array = env->NewDoubleArray(ToJavaSize(values.size()));
  if (array == nullptr) throw JavaExceptionPending{};
  env->SetDoubleArrayRegion(array, 0, static_cast<jsize>(values.size()), values.data());
  return array;
}

// {first, second} as a Java Object[2].
jobjectArray ToJavaPair(JNIEnv* env, jobject first, jobject second) {
  jobjectArray pair = env->NewObjectArray(2, classes.object, nullptr);
  if (pair == nullptr) throw JavaExceptionPending{};
  env->SetObjectArrayElement(pair, 0, first);
  env->SetObjectArrayElement(pair, 1, second);
  return pair;
}

// The C++ configuration's own normalisation: with parameters as
// NuvikConfig(params, names), without them one parameter 1 per name.
NuvikConfig ToConfig(JNIEnv* env, jobjectArray names, jintArray params) {
  if (params == nullptr) return NuvikConfig(ToUtf8(env, names), false, 60, 0.5, 0.05);
  return NuvikConfig(ToVector(env, params), ToUtf8(env, names));
}

std::tm At(jint hour, jint minute) {
  std::tm time{};
  time.tm_hour = hour;
  time.tm_min = minute;
  return time;
}

// Native methods of nuvik.Nuvik, in the order of its declarations.

jlong CreateDefault(JNIEnv* env, jclass) {
  return Guard(env, [] { return ToHandle(std::make_unique<Nuvik>()); });
}

jlong CreateNamed(JNIEnv* env, jclass, jobjectArray names) {
  return Guard(env, [&] { return ToHandle(std::make_unique<Nuvik>(ToUtf8(env, names))); });
}

jlong CreateConfigured(JNIEnv* env, jclass, jobjectArray names, jintArray params, jboolean skipRepeats,
                       jdouble killThreshold, jlong countLimit, jdouble weightThreshold) {
  return Guard(env, [&] {
    NuvikConfig config = ToConfig(env, names, params);
    config.skipRepeats = skipRepeats == JNI_TRUE;
    config.killThreshold = killThreshold;
    config.countLimit = static_cast<unsigned long>(countLimit);
    config.weightThreshold = weightThreshold;
    return ToHandle(std::make_unique<Nuvik>(config));
  });
}

jobjectArray Normalize(JNIEnv* env, jclass, jobjectArray names, jintArray params) {
  return Guard(env, [&] {
    const NuvikConfig config = ToConfig(env, names, params);
    return ToJavaPair(env, ToJava(env, config.names), ToJava(env, config.params));
  });
}

void Delete(JNIEnv*, jclass, jlong handle) {
  delete &FromHandle(handle);
  --liveFacades;
}

jlong LiveFacades(JNIEnv*, jclass) { return liveFacades.load(); }

void Update(JNIEnv* env, jclass, jlong handle, jstring app, jint hour, jint minute) {
  Guard(env, [&] { FromHandle(handle).Update(ToUtf8(env, app), At(hour, minute)); });
}

void UpdateTagged(JNIEnv* env, jclass, jlong handle, jstring app, jint hour, jint minute, jstring tag) {
  Guard(env, [&] {
    Item item;
    item.app = ToUtf8(env, app);
    item.time = At(hour, minute);
    item.tag = ToUtf8(env, tag);
    FromHandle(handle).Update(item);
  });
}

void Clear(JNIEnv* env, jclass, jlong handle) {
  Guard(env, [&] { FromHandle(handle).Clear(); });
}

jobjectArray Next(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return ToJava(env, FromHandle(handle).GetNext()); });
}

jobjectArray Soon(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return ToJava(env, FromHandle(handle).GetSoon()); });
}

jobjectArray Kill(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return ToJava(env, FromHandle(handle).GetKill()); });
}

jdouble Weight(JNIEnv* env, jclass, jlong handle, jstring app) {
  return Guard(env, [&] { return FromHandle(handle).GetWeightSingle(ToUtf8(env, app)); });
}

jdouble WeightDet(JNIEnv* env, jclass, jlong handle, jstring app) {
  return Guard(env, [&] { return FromHandle(handle).GetWeightSingleDet(ToUtf8(env, app)); });
}

jdoubleArray Weights(JNIEnv* env, jclass, jlong handle, jobjectArray apps) {
  return Guard(env, [&] { return ToJava(env, FromHandle(handle).GetWeights(ToUtf8(env, apps))); });
}

// {String[] names, double[] weights}, both in the C++ map's order.
jobjectArray AllWeights(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] {
    const std::map<std::string, double> all = FromHandle(handle).GetAllWeights();
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
  return Guard(env, [&] { return FromHandle(handle).GetSoonWeight(ToVector(env, scores)); });
}

void SetAppsPriority(JNIEnv* env, jclass, jlong handle, jobjectArray apps, jintArray priorities) {
  Guard(env, [&] {
    const std::vector<std::string> names = ToUtf8(env, apps);
    const std::vector<int> values = ToVector(env, priorities);
    std::vector<std::pair<std::string, int>> list;
    list.reserve(names.size());
    for (std::size_t i = 0; i < names.size() && i < values.size(); ++i) list.emplace_back(names[i], values[i]);
    FromHandle(handle).SetAppsPriority(list);
  });
}

void ResetPriority(JNIEnv* env, jclass, jlong handle) {
  Guard(env, [&] { FromHandle(handle).ResetPriority(); });
}

jlong CountMetrics(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return static_cast<jlong>(FromHandle(handle).GetCountMetrics()); });
}

void ClearMetrics(JNIEnv* env, jclass, jlong handle) {
  Guard(env, [&] { FromHandle(handle).ClearMetrics(); });
}

jdouble MapMetric(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return FromHandle(handle).GetMapMetric(); });
}

jdouble RecallMetric(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return FromHandle(handle).GetRecallMetric(); });
}

jdouble SumMap(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return FromHandle(handle).GetSumMap(); });
}

jdouble SumRecall(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return FromHandle(handle).GetSumRecall(); });
}

jlong CountKnownApps(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return static_cast<jlong>(FromHandle(handle).GetCountKnownApps()); });
}

jbyteArray Save(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] {
    std::ostringstream out;
    FromHandle(handle).SerializeJson(out);
    const std::string document = out.str();
    jbyteArray bytes = env->NewByteArray(ToJavaSize(document.size()));
    if (bytes == nullptr) throw JavaExceptionPending{};
    env->SetByteArrayRegion(bytes, 0, static_cast<jsize>(document.size()),
                            reinterpret_cast<const jbyte*>(document.data()));
    return bytes;
  });
}

void Load(JNIEnv* env, jclass, jlong handle, jbyteArray bytes) {
  Guard(env, [&] {
    std::string document(static_cast<std::size_t>(env->GetArrayLength(NonNull(env, bytes, "null document"))), '\0');
    env->GetByteArrayRegion(bytes, 0, static_cast<jsize>(document.size()), reinterpret_cast<jbyte*>(&document[0]));
    std::istringstream in(std::move(document));
    try {
      FromHandle(handle).DeserializeJson(in);
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& e) {
      // jsoncpp's own exceptions; the facade is unchanged after them.
      ThrowJava(env, classes.formatException, e.what());
    }
    if (in.bad()) ThrowJava(env, classes.formatException, "document rejected");
  });
}

jstring LibraryInfo(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return ToJava(env, FromHandle(handle).GetLibraryInfo()); });
}

jstring Describe(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return ToJava(env, FromHandle(handle).PrintNuvikInfo()); });
}

#define NUVIK_NATIVE(name, signature) {const_cast<char*>("n" #name), const_cast<char*>(signature), \
                                       reinterpret_cast<void*>(&name)}

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
    NUVIK_NATIVE(Soon, "(J)[Ljava/lang/String;"),
    NUVIK_NATIVE(Kill, "(J)[Ljava/lang/String;"),
    NUVIK_NATIVE(Weight, "(JLjava/lang/String;)D"),
    NUVIK_NATIVE(WeightDet, "(JLjava/lang/String;)D"),
    NUVIK_NATIVE(Weights, "(J[Ljava/lang/String;)[D"),
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

#undef NUVIK_NATIVE

bool GlobalClass(JNIEnv* env, const char* name, jclass& out) {
  jclass local = env->FindClass(name);
  if (local == nullptr) return false;
  out = static_cast<jclass>(env->NewGlobalRef(local));
  env->DeleteLocalRef(local);
  return out != nullptr;
}

bool Initialise(JNIEnv* env) {
  jclass nuvik = nullptr;
  const bool ok = GlobalClass(env, "java/lang/String", classes.string) &&
                  GlobalClass(env, "java/lang/Object", classes.object) &&
                  GlobalClass(env, "nuvik/NuvikFormatException", classes.formatException) &&
                  GlobalClass(env, "java/lang/NullPointerException", classes.nullPointer) &&
                  GlobalClass(env, "java/lang/OutOfMemoryError", classes.outOfMemory) &&
                  GlobalClass(env, "java/lang/RuntimeException", classes.runtime) &&
                  (nuvik = env->FindClass("nuvik/Nuvik")) != nullptr &&
                  env->RegisterNatives(nuvik, kMethods, sizeof kMethods / sizeof kMethods[0]) == JNI_OK;
  if (nuvik != nullptr) env->DeleteLocalRef(nuvik);
  return ok;
}

}  // namespace
}  // namespace nuvik_jni

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*) {
  JNIEnv* env = nullptr;
  if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) != JNI_OK) return JNI_ERR;
  return nuvik_jni::Initialise(env) ? JNI_VERSION_1_6 : JNI_ERR;
}
