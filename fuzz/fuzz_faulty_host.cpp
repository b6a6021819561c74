// Any sequence of calls by a host that does everything wrong.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "../tests/support/faulty_host.h"

namespace {

void require(const std::string& broken) {
  if (broken.empty()) return;
  std::fprintf(stderr, "fuzz_faulty_host: %s\n", broken.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteSource source(std::vector<std::uint8_t>(data, data + size));
  FaultyHost host(source);
  for (int call = 0; call < 60 && !source.done(); ++call) require(host.step());
  require(host.recover());
  return 0;
}
