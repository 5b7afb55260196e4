// A viewer of help that faults whatever it is asked for.
extern "C" __attribute__((visibility("default"))) const void* ordinal_15(void*, const wchar_t*,
                                                                         unsigned, unsigned long) {
  return *static_cast<const void* const volatile*>(nullptr);
}
