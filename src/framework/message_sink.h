// Where the library's diagnostic lines go. By default each line is written
// to standard output with a line break after it; a caller may route the
// lines written on its thread to a function of its own for as long as a
// MessageRoute lives, which lets the facade hand each instance's lines to
// that instance's host without passing a sink through every layer.
#pragma once

#include <string>

namespace vora {

// Receives one line, NUL-terminated, without a line break.
using MessageHook = void (*)(void* context, const char* line);

class MessageRoute {
public:
  // Lines written on this thread go to `hook` (null: standard output)
  // until this route ends; the routing before it is then restored.
  MessageRoute(MessageHook hook, void* context);
  ~MessageRoute();
  MessageRoute(const MessageRoute&) = delete;
  MessageRoute& operator=(const MessageRoute&) = delete;

private:
  MessageHook previousHook_;
  void* previousContext_;
};

// Writes one line where this thread's lines go.
void emitLine(const char* line);
void emitLine(const std::string& line);
// The same with printf formatting.
void emitFormattedLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace vora
