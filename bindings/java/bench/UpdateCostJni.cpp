// The C++ side of UpdateCost.java: a facade of its own fed the same launches by
// a plain C++ loop, timed inside the same process; and the cost of a call that
// the facade ignores at once (a repeat, with skipRepeats).
#include <jni.h>

#include <chrono>
#include <ctime>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nuvik/Nuvik.h>

namespace {

struct CppSide {
  explicit CppSide(const std::vector<std::string>& predictors) : nuvik(predictors) {}
  NuvikPrediction::Nuvik nuvik;
  std::vector<std::pair<std::string, std::tm>> launches;
};

std::unique_ptr<CppSide> side;

std::string Ascii(JNIEnv* env, jobjectArray array, jsize i) {
  auto text = static_cast<jstring>(env->GetObjectArrayElement(array, i));
  const char* chars = env->GetStringUTFChars(text, nullptr);
  std::string copy(chars);
  env->ReleaseStringUTFChars(text, chars);
  env->DeleteLocalRef(text);
  return copy;
}

}  // namespace

// Builds the facade and copies the launches; nothing is timed.
extern "C" JNIEXPORT void JNICALL Java_UpdateCost_cppPrepare(JNIEnv* env, jclass, jobjectArray predictors,
                                                             jobjectArray apps, jintArray hours, jintArray minutes) {
  std::vector<std::string> names;
  for (jsize i = 0; i < env->GetArrayLength(predictors); ++i) names.push_back(Ascii(env, predictors, i));
  side = std::make_unique<CppSide>(names);
  const jsize count = env->GetArrayLength(apps);
  std::vector<jint> hour(static_cast<std::size_t>(count)), minute(static_cast<std::size_t>(count));
  env->GetIntArrayRegion(hours, 0, count, hour.data());
  env->GetIntArrayRegion(minutes, 0, count, minute.data());
  for (jsize i = 0; i < count; ++i) {
    std::tm time{};
    time.tm_hour = hour[static_cast<std::size_t>(i)];
    time.tm_min = minute[static_cast<std::size_t>(i)];
    side->launches.emplace_back(Ascii(env, apps, i), time);
  }
}

// Nanoseconds spent on launches [from, to).
extern "C" JNIEXPORT jlong JNICALL Java_UpdateCost_cppRun(JNIEnv*, jclass, jint from, jint to) {
  const auto start = std::chrono::steady_clock::now();
  for (jint i = from; i < to; ++i) {
    const auto& [app, time] = side->launches[static_cast<std::size_t>(i)];
    side->nuvik.Update(app, time);
  }
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - start).count();
}

// Nanoseconds per call over `calls` repeats of one launch that the facade skips.
extern "C" JNIEXPORT jdouble JNICALL Java_UpdateCost_cppSkippedCall(JNIEnv*, jclass, jint calls) {
  NuvikPrediction::NuvikConfig config({"stat_counter"}, true, 60, 0.5, 0.05);
  NuvikPrediction::Nuvik nuvik(config);
  const std::string app = "app0";
  std::tm time{};
  time.tm_hour = 8;
  nuvik.Update(app, time);
  const auto start = std::chrono::steady_clock::now();
  for (jint i = 0; i < calls; ++i) nuvik.Update(app, time);
  return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() / calls;
}
