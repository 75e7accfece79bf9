// Captures what the library writes on its two channels, one handler call at
// a time, and puts the default handlers back afterwards.
#ifndef KXZEF_TESTS_SUPPORT_CHANNEL_CAPTURE_H
#define KXZEF_TESTS_SUPPORT_CHANNEL_CAPTURE_H

#include <string>
#include <vector>

namespace kxzef::testing {

class ChannelCapture {
 public:
  ChannelCapture();
  ~ChannelCapture();
  ChannelCapture(const ChannelCapture&) = delete;
  ChannelCapture& operator=(const ChannelCapture&) = delete;

  std::string output() const;  // everything on the output channel
  std::string error() const;   // everything on the error channel
  const std::vector<std::string>& outputWrites() const { return outputWrites_; }
  const std::vector<std::string>& errorWrites() const { return errorWrites_; }
  void clear();

 private:
  static int captureOutput(const char* text);
  static int captureError(const char* text);
  static ChannelCapture* active_;

  std::vector<std::string> outputWrites_;
  std::vector<std::string> errorWrites_;
};

}  // namespace kxzef::testing

#endif
