// The load hook of libnuvik_jni.so, its only exported symbol: takes the glue's
// classes and registers the native methods of every class of the binding.
#include <jni.h>

#include "Glue.h"

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*) {
  JNIEnv* env = nullptr;
  if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) != JNI_OK) return JNI_ERR;
  const bool ok = nuvik_jni::InitialiseClasses(env) && nuvik_jni::RegisterNuvik(env) &&
                  nuvik_jni::RegisterSuggestions(env);
  return ok ? JNI_VERSION_1_6 : JNI_ERR;
}
