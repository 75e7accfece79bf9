#include "support/channel_capture.h"

#include <cstring>

#include "kxzefarchiver/zefarchiver.h"
#include "surface/channels.h"

namespace kxzef::testing {

ChannelCapture* ChannelCapture::active_ = nullptr;

namespace {

std::string joined(const std::vector<std::string>& writes) {
  std::string all;
  for (const std::string& write : writes) all += write;
  return all;
}

int record(std::vector<std::string>& writes, const char* text) {
  writes.emplace_back(text == nullptr ? "" : text);
  return text == nullptr ? 0 : static_cast<int>(std::strlen(text));
}

}  // namespace

ChannelCapture::ChannelCapture() {
  active_ = this;
  set_zefarchiver_output_handler(captureOutput);
  set_zefarchiver_error_handler(captureError);
}

ChannelCapture::~ChannelCapture() {
  set_zefarchiver_output_handler(defaultTextHandler);
  set_zefarchiver_error_handler(defaultTextHandler);
  getOutputStream().clear();
  getErrorStream().clear();
  active_ = nullptr;
}

int ChannelCapture::captureOutput(const char* text) { return record(active_->outputWrites_, text); }
int ChannelCapture::captureError(const char* text) { return record(active_->errorWrites_, text); }

std::string ChannelCapture::output() const { return joined(outputWrites_); }
std::string ChannelCapture::error() const { return joined(errorWrites_); }

void ChannelCapture::clear() {
  outputWrites_.clear();
  errorWrites_.clear();
}

}  // namespace kxzef::testing
