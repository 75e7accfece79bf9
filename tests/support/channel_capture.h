// Captures what the library writes on its two channels, one handler call at
// a time, and puts the default handlers back afterwards.
#ifndef KXZEF_TESTS_SUPPORT_CHANNEL_CAPTURE_H
#define KXZEF_TESTS_SUPPORT_CHANNEL_CAPTURE_H

#include <numeric>
#include <string>
#include <vector>

#include "kxzefarchiver/zefarchiver.h"
#include "messages/channels.h"

namespace kxzef::testing {

class ChannelCapture {
 public:
  ChannelCapture() {
    active = this;
    set_zefarchiver_output_handler([](const char* text) { return record(active->outputWrites, text); });
    set_zefarchiver_error_handler([](const char* text) { return record(active->errorWrites, text); });
  }
  ~ChannelCapture() {
    set_zefarchiver_output_handler(defaultTextHandler);
    set_zefarchiver_error_handler(defaultTextHandler);
    getOutputStream().clear();
    getErrorStream().clear();
    active = nullptr;
  }
  ChannelCapture(const ChannelCapture&) = delete;
  ChannelCapture& operator=(const ChannelCapture&) = delete;

  std::string output() const { return joined(outputWrites); }  // everything on the output channel
  std::string error() const { return joined(errorWrites); }    // everything on the error channel
  void clear() { outputWrites.clear(), errorWrites.clear(); }

  std::vector<std::string> outputWrites, errorWrites;  // one element per handler call

 private:
  static int record(std::vector<std::string>& writes, const char* text) {
    writes.emplace_back(text == nullptr ? "" : text);
    return static_cast<int>(writes.back().size());
  }
  static std::string joined(const std::vector<std::string>& writes) {
    return std::accumulate(writes.begin(), writes.end(), std::string());
  }
  inline static ChannelCapture* active = nullptr;
};

}  // namespace kxzef::testing

#endif
