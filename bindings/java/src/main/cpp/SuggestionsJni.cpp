// Native half of nuvik.Suggestions, with the glue of Glue.h. The Java class
// serialises the calls on one object, holds the facade's lock too while a row
// reads it, and keeps both alive during each call.
#include <jni.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include <nuvik/Nuvik.h>
#include <nuvik/Suggestions.h>

#include "Glue.h"

namespace nuvik_jni {
namespace {

using NuvikPrediction::Nuvik;
using NuvikPrediction::RowRequest;
using NuvikPrediction::Suggestions;

// Objects created and not yet deleted, for the Java tests of the cleanup.
std::atomic<std::int64_t> liveObjects{0};

// `count` is not negative: the Java class checks it.
RowRequest ToRequest(JNIEnv* env, jint count, jobjectArray exclude, jobjectArray installed, jobjectArray fallback,
                     jboolean stable) {
  RowRequest request;
  request.count = static_cast<std::size_t>(count);
  request.exclude = ToUtf8(env, exclude);
  request.installed = ToUtf8(env, installed);
  request.fallback = ToUtf8(env, fallback);
  request.stable = stable == JNI_TRUE;
  return request;
}

// Native methods of nuvik.Suggestions, in the order of its declarations.

jlong Create(JNIEnv* env, jclass) {
  return Guard(env, [] {
    auto suggestions = std::make_unique<Suggestions>();
    ++liveObjects;
    return ToHandle(std::move(suggestions));
  });
}

void Delete(JNIEnv*, jclass, jlong handle) {
  delete &FromHandle<Suggestions>(handle);
  --liveObjects;
}

jlong LiveObjects(JNIEnv*, jclass) { return liveObjects.load(); }

jobjectArray RowAt(JNIEnv* env, jclass, jlong handle, jlong model, jint hour, jint minute, jint count,
                   jobjectArray exclude, jobjectArray installed, jobjectArray fallback, jboolean stable) {
  return Guard(env, [&] {
    const RowRequest request = ToRequest(env, count, exclude, installed, fallback, stable);
    return ToJava(env, FromHandle<Suggestions>(handle).Row(FromHandle<Nuvik>(model), At(hour, minute), request));
  });
}

jobjectArray RowOf(JNIEnv* env, jclass, jlong handle, jobjectArray ranking, jint count, jobjectArray exclude,
                   jobjectArray installed, jobjectArray fallback, jboolean stable) {
  return Guard(env, [&] {
    const RowRequest request = ToRequest(env, count, exclude, installed, fallback, stable);
    return ToJava(env, FromHandle<Suggestions>(handle).Row(ToUtf8(env, ranking), request));
  });
}

void Dismiss(JNIEnv* env, jclass, jlong handle, jstring app) {
  Guard(env, [&] { FromHandle<Suggestions>(handle).Dismiss(ToUtf8(env, app)); });
}

void Restore(JNIEnv* env, jclass, jlong handle, jstring app) {
  Guard(env, [&] { FromHandle<Suggestions>(handle).Restore(ToUtf8(env, app)); });
}

jobjectArray Dismissed(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return ToJava(env, FromHandle<Suggestions>(handle).Dismissed()); });
}

void ClearDismissed(JNIEnv* env, jclass, jlong handle) {
  Guard(env, [&] { FromHandle<Suggestions>(handle).ClearDismissed(); });
}

jbyteArray Save(JNIEnv* env, jclass, jlong handle) {
  return Guard(env, [&] { return SaveDocument(env, FromHandle<Suggestions>(handle)); });
}

void Load(JNIEnv* env, jclass, jlong handle, jbyteArray document) {
  Guard(env, [&] { LoadDocument(env, FromHandle<Suggestions>(handle), document); });
}

const JNINativeMethod kMethods[] = {
    NUVIK_NATIVE(Create, "()J"),
    NUVIK_NATIVE(Delete, "(J)V"),
    NUVIK_NATIVE(LiveObjects, "()J"),
    NUVIK_NATIVE(RowAt, "(JJIII[Ljava/lang/String;[Ljava/lang/String;[Ljava/lang/String;Z)[Ljava/lang/String;"),
    NUVIK_NATIVE(RowOf,
                 "(J[Ljava/lang/String;I[Ljava/lang/String;[Ljava/lang/String;[Ljava/lang/String;Z)"
                 "[Ljava/lang/String;"),
    NUVIK_NATIVE(Dismiss, "(JLjava/lang/String;)V"),
    NUVIK_NATIVE(Restore, "(JLjava/lang/String;)V"),
    NUVIK_NATIVE(Dismissed, "(J)[Ljava/lang/String;"),
    NUVIK_NATIVE(ClearDismissed, "(J)V"),
    NUVIK_NATIVE(Save, "(J)[B"),
    NUVIK_NATIVE(Load, "(J[B)V"),
};

}  // namespace

bool RegisterSuggestions(JNIEnv* env) {
  return RegisterNatives(env, "nuvik/Suggestions", kMethods, sizeof kMethods / sizeof kMethods[0]);
}

}  // namespace nuvik_jni
