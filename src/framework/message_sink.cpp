#include "framework/message_sink.h"

#include <cstdarg>
#include <cstdio>

namespace vora {

namespace {

// Plain pointers: constant-initialised, so reading them costs no guard.
thread_local MessageHook currentHook = nullptr;
thread_local void* currentContext = nullptr;

} // namespace

MessageRoute::MessageRoute(MessageHook hook, void* context)
    : previousHook_(currentHook), previousContext_(currentContext) {
  currentHook = hook;
  currentContext = context;
}

MessageRoute::~MessageRoute() {
  currentHook = previousHook_;
  currentContext = previousContext_;
}

void emitLine(const char* line) {
  if (currentHook != nullptr) {
    currentHook(currentContext, line);
    return;
  }
  std::fputs(line, stdout);
  std::fputc('\n', stdout);
}

void emitLine(const std::string& line) {
  emitLine(line.c_str());
}

void emitFormattedLine(const char* format, ...) {
  char line[256];
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  if (length >= static_cast<int>(sizeof line)) {
    std::string longer(static_cast<size_t>(length), '\0');
    std::vsnprintf(longer.data(), longer.size() + 1, format, again);
    emitLine(longer);
  } else if (length >= 0) {
    emitLine(line);
  }
  va_end(again);
}

} // namespace vora
