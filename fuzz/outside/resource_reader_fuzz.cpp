// The reader of compiled resources: entries stay inside the input and never repeat.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "qelbase/outside/system/resources_internal.h"

using namespace qel::sys;

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

bool isInside(Bytes part, Bytes whole) {
  return part.empty() ||
         (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

void readAll(Bytes file) {
  ResourceReader reader(file);
  const std::byte* last = nullptr;
  std::size_t count = 0;
  for (ResourceEntry entry; reader.Next(entry);) {
    require(isInside(entry.data, file));
    require(entry.header > last);
    last = entry.header;
    for (unsigned place : {0u, 1u, 15u}) {
      require(StringOfBlock(entry.data, place).size() * 2 <= entry.data.size());
    }
    DWORD error = 0;
    if (++count < 8) require(ChooseResource(file, entry.type, entry.name, error).has_value());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes input = std::as_bytes(std::span(data, size));
  readAll(input);
  Bytes segment = input;
  for (Bytes file; NextResourceNote(segment, file);) {
    require(isInside(file, input));
    readAll(file);
  }
  return 0;
}
