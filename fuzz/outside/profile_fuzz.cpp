// Arbitrary bytes as an ini file: the bytes come back as they were, and a changed entry reads as it
// was set, beside all others as they were.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qelbase/outside/system/profile_internal.h"

using namespace qel::sys;

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const ProfileText profile = DecodeProfile(bytes);
  const bool is_cut = size % 2 == 1 && (profile.encoding == ProfileText::Encoding::utf16_little ||
                                        profile.encoding == ProfileText::Encoding::utf16_big);
  require(is_cut || EncodeProfile(profile) == bytes);
  const auto other = FindProfileValue(profile.text, L"s", L"other");
  if (other) (void)ProfileNumber(*other);
  const std::wstring value = other.value_or(L" value");
  const std::wstring set = EditedProfile(profile.text, {L"s", L"entry", value});
  require(FindProfileValue(set, L"s", L"entry") == value);
  require(FindProfileValue(set, L"s", L"other") == other);
  const std::wstring removed = EditedProfile(set, {L"S", L"ENTRY", {}});
  require(!FindProfileValue(removed, L"s", L"entry"));
  require(FindProfileValue(removed, L"s", L"other") == other);
  require(!FindProfileValue(EditedProfile(set, {L"s", {}, {}}), L"s", L"other"));
  return 0;
}
