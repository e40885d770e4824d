// Where libFuzzer hands over each input.
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  velmor::test::Input input({bytes, size});
  velmor::test::Run(input);
  return 0;
}
