#include "support/standard_input.h"

#include <cstdio>
#include <fstream>

namespace kxzef::testing {

bool feedStandardInput(const std::string& text) {
  const char* file = "standard-input.txt";
  std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
  return std::freopen(file, "r", stdin) != nullptr;
}

}  // namespace kxzef::testing
