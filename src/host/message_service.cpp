// Message-table registration and formatting by number. Formatting never
// writes past the buffer it is given.
#include "host/host.h"

#include <cstdio>
#include <vector>

namespace kxzef::host {

namespace {

struct ServiceState {
  std::vector<const MessageTable*> tables;
  unsigned registrations = 0;
};

ServiceState& service() {
  static ServiceState state;
  return state;
}

const char* findText(uint32_t number) {
  const uint32_t facility = number >> 16;
  const uint32_t index = number & 0xFFFFu;
  for (const MessageTable* table : service().tables) {
    if (table->facility != facility) continue;
    for (uint32_t i = 0; i < table->count; ++i) {
      if (table->identifiers[i].index == index && table->identifiers[i].facility == facility) {
        return table->texts[i];
      }
    }
  }
  return nullptr;
}

}  // namespace

void* utGetMemoryContext() {
  static int memoryContext;
  return &memoryContext;
}

void* utGetMessageContext() {
  static int messageContext;
  return &messageContext;
}

int ut_mem_add_primary_message_table(void* /*memoryContext*/, const MessageTable* table) {
  if (table == nullptr) return 0;
  service().tables.push_back(table);
  ++service().registrations;
  return 0;
}

unsigned messageTableRegistrations() { return service().registrations; }

int ut_vsprintm(void* /*messageContext*/, char* buffer, size_t size, uint32_t number, va_list args) {
  if (buffer == nullptr || size == 0) return 0;
  const char* text = findText(number);
  if (text == nullptr) {
    buffer[0] = '\0';
    return 0;
  }
  const int wanted = std::vsnprintf(buffer, size, text, args);
  if (wanted < 0) return wanted;
  const size_t kept = static_cast<size_t>(wanted) < size ? static_cast<size_t>(wanted) : size - 1;
  return static_cast<int>(kept);
}

}  // namespace kxzef::host
