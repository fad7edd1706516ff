// What the native methods of every class of the binding share: the Java classes
// they build and throw, the translation of C++ exceptions into Java ones, the
// conversions of names, arrays and documents, and the registration of natives.
#ifndef NUVIK_JNI_GLUE_H_
#define NUVIK_JNI_GLUE_H_

#include <jni.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <exception>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace nuvik_jni {

// Global references to the classes the glue creates or throws, taken at load time.
struct Classes {
  jclass string = nullptr;
  jclass object = nullptr;
  jclass formatException = nullptr;
  jclass nullPointer = nullptr;
  jclass outOfMemory = nullptr;
  jclass runtime = nullptr;
};
extern Classes classes;

// Takes the global references of `classes`; false with a Java exception pending on failure.
bool InitialiseClasses(JNIEnv* env);

// Registers `count` native methods of the class `name`; false with a Java exception pending on failure.
bool RegisterNatives(JNIEnv* env, const char* name, const JNINativeMethod* methods, std::size_t count);

// The native methods of nuvik.Nuvik and nuvik.Suggestions.
bool RegisterNuvik(JNIEnv* env);
bool RegisterSuggestions(JNIEnv* env);

// One native method implemented by the function `name`, registered as "n" `name`.
#define NUVIK_NATIVE(name, signature) {const_cast<char*>("n" #name), const_cast<char*>(signature), \
                                       reinterpret_cast<void*>(&name)}

// Unwinds the glue while a Java exception is pending; the JVM raises it on return.
struct JavaExceptionPending {};

void CheckJava(JNIEnv* env);
[[noreturn]] void ThrowJava(JNIEnv* env, jclass type, const char* message);

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

// A native object owned by a Java object, as the long that the Java object holds.
template <typename T>
jlong ToHandle(std::unique_ptr<T> object) {
  return static_cast<jlong>(reinterpret_cast<std::intptr_t>(object.release()));
}

template <typename T>
T& FromHandle(jlong handle) {
  return *reinterpret_cast<T*>(static_cast<std::intptr_t>(handle));
}

jsize ToJavaSize(std::size_t size);

template <typename T>
T* NonNull(JNIEnv* env, T* reference, const char* what) {
  if (reference == nullptr) ThrowJava(env, classes.nullPointer, what);
  return reference;
}

// Names cross as standard UTF-8 (Utf.h), not JNI's modified UTF-8.
std::string ToUtf8(JNIEnv* env, jstring text);
std::vector<std::string> ToUtf8(JNIEnv* env, jobjectArray texts);
jstring ToJava(JNIEnv* env, const std::string& utf8, std::vector<std::uint16_t>& units);
jstring ToJava(JNIEnv* env, const std::string& utf8);
jobjectArray ToJava(JNIEnv* env, const std::vector<std::string>& utf8);

std::vector<int> ToVector(JNIEnv* env, jintArray values);
std::vector<double> ToVector(JNIEnv* env, jdoubleArray values);
jintArray ToJava(JNIEnv* env, const std::vector<int>& values);
jdoubleArray ToJava(JNIEnv* env, const std::vector<double>& values);

// {first, second} as a Java Object[2].
jobjectArray ToJavaPair(JNIEnv* env, jobject first, jobject second);

// The time of day that the library reads: only tm_hour and tm_min are set.
std::tm At(jint hour, jint minute);

// Documents as Java byte arrays.
jbyteArray ToJavaBytes(JNIEnv* env, const std::string& bytes);
std::string ToBytes(JNIEnv* env, jbyteArray document);

// `source` written by its SerializeJson.
template <typename Source>
jbyteArray SaveDocument(JNIEnv* env, const Source& source) {
  std::ostringstream out;
  source.SerializeJson(out);
  return ToJavaBytes(env, out.str());
}

// Reads `document` into `target` by its DeserializeJson, all or nothing. A
// rejected document throws NuvikFormatException, and so does an exception of
// the JSON reader (nesting too deep, a bare value where a table belongs), after
// which the target is unchanged too.
template <typename Target>
void LoadDocument(JNIEnv* env, Target& target, jbyteArray document) {
  std::istringstream in(ToBytes(env, document));
  try {
    target.DeserializeJson(in);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& e) {
    ThrowJava(env, classes.formatException, e.what());
  }
  if (in.bad()) ThrowJava(env, classes.formatException, "document rejected");
}

}  // namespace nuvik_jni

#endif  // NUVIK_JNI_GLUE_H_
