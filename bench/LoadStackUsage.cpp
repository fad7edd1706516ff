// Peak stack taken by loading the most deeply nested document the reader
// accepts (1000 levels; one more raises Json::RuntimeError), measured by
// painting a thread's stack and finding the deepest byte overwritten.
#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include <nuvik/Nuvik.h>

namespace {

constexpr std::size_t kStackBytes = 16u << 20;
constexpr unsigned char kPaint = 0xA5;

void* Load(void* text) {
  NuvikPrediction::Nuvik nuvik;
  std::istringstream in(*static_cast<const std::string*>(text));
  try {
    in >> nuvik;
  } catch (const std::exception&) {
  }
  return nullptr;
}

std::size_t PeakStack(const std::string& text) {
  void* stack = std::aligned_alloc(1u << 16, kStackBytes);
  std::memset(stack, kPaint, kStackBytes);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack, kStackBytes);
  pthread_t thread;
  pthread_create(&thread, &attributes, Load, const_cast<std::string*>(&text));
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  const auto* bytes = static_cast<const unsigned char*>(stack);
  std::size_t untouched = 0;
  while (untouched < kStackBytes && bytes[untouched] == kPaint) ++untouched;
  std::free(stack);
  return kStackBytes - untouched;
}

std::string Nested(int depth, const char* open, const char* close) {
  std::string text;
  for (int i = 0; i < depth; ++i) text += open;
  for (int i = 0; i < depth; ++i) text += close;
  return text;
}

}  // namespace

int main() {
  const std::size_t flat = PeakStack("{}");
  const std::size_t arrays = PeakStack(Nested(1000, "[", "]"));
  const std::size_t objects = PeakStack(Nested(1000, "{\"a\":", "}"));
  const std::size_t rejected = PeakStack(Nested(1001, "[", "]"));
  std::printf("peak stack of a load: flat document %zu bytes, 1000 nested arrays %zu bytes, "
              "1000 nested objects %zu bytes, 1001 levels (rejected by exception) %zu bytes\n",
              flat, arrays, objects, rejected);
}
