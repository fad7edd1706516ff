#include "Glue.h"

#include <limits>

#include "Utf.h"

namespace nuvik_jni {

static_assert(std::is_same<jchar, std::uint16_t>::value, "jchar must be a 16-bit unsigned integer");

Classes classes;

namespace {

bool GlobalClass(JNIEnv* env, const char* name, jclass& out) {
  jclass local = env->FindClass(name);
  if (local == nullptr) return false;
  out = static_cast<jclass>(env->NewGlobalRef(local));
  env->DeleteLocalRef(local);
  return out != nullptr;
}

}  // namespace

bool InitialiseClasses(JNIEnv* env) {
  return GlobalClass(env, "java/lang/String", classes.string) &&
         GlobalClass(env, "java/lang/Object", classes.object) &&
         GlobalClass(env, "nuvik/NuvikFormatException", classes.formatException) &&
         GlobalClass(env, "java/lang/NullPointerException", classes.nullPointer) &&
         GlobalClass(env, "java/lang/OutOfMemoryError", classes.outOfMemory) &&
         GlobalClass(env, "java/lang/RuntimeException", classes.runtime);
}

bool RegisterNatives(JNIEnv* env, const char* name, const JNINativeMethod* methods, std::size_t count) {
  jclass owner = env->FindClass(name);
  if (owner == nullptr) return false;
  const bool ok = env->RegisterNatives(owner, methods, static_cast<jint>(count)) == JNI_OK;
  env->DeleteLocalRef(owner);
  return ok;
}

void CheckJava(JNIEnv* env) {
  if (env->ExceptionCheck()) throw JavaExceptionPending{};
}

void ThrowJava(JNIEnv* env, jclass type, const char* message) {
  env->ThrowNew(type, message);
  throw JavaExceptionPending{};
}

jsize ToJavaSize(std::size_t size) {
  if (size > static_cast<std::size_t>(std::numeric_limits<jsize>::max())) throw std::bad_alloc();
  return static_cast<jsize>(size);
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

jobjectArray ToJavaPair(JNIEnv* env, jobject first, jobject second) {
  jobjectArray pair = env->NewObjectArray(2, classes.object, nullptr);
  if (pair == nullptr) throw JavaExceptionPending{};
  env->SetObjectArrayElement(pair, 0, first);
  env->SetObjectArrayElement(pair, 1, second);
  return pair;
}

std::tm At(jint hour, jint minute) {
  std::tm time{};
  time.tm_hour = hour;
  time.tm_min = minute;
  return time;
}

jbyteArray ToJavaBytes(JNIEnv* env, const std::string& bytes) {
  jbyteArray array = env->NewByteArray(ToJavaSize(bytes.size()));
  if (array == nullptr) throw JavaExceptionPending{};
  env->SetByteArrayRegion(array, 0, static_cast<jsize>(bytes.size()), reinterpret_cast<const jbyte*>(bytes.data()));
  return array;
}

std::string ToBytes(JNIEnv* env, jbyteArray document) {
  std::string copy(static_cast<std::size_t>(env->GetArrayLength(NonNull(env, document, "null document"))), '\0');
  env->GetByteArrayRegion(document, 0, static_cast<jsize>(copy.size()), reinterpret_cast<jbyte*>(&copy[0]));
  return copy;
}

}  // namespace nuvik_jni
