// A command line program as it came from the other system: names, texts and failures in its terms.

#include <qelbase/qelbase.h>

#include <cstdio>

namespace {

using namespace qel::sys;  // the system's calls under their own names

// The head of a binary STL file is 80 bytes of text and a count.
bool CountTriangles(const MFileName& name, std::int32_t& count) {
  MFile file;
  return file.OPEN_READ(name.GET()) && file.SEEK(80, SEEK_SET) && file.READ(&count, 1) == 1;
}

void Show(const CStringW& text) {
  std::puts(Narrow(text.GetString()).c_str());
}

}  // namespace

// The system hands over narrow names in its own form: here they become wide ones.
int main(int argc, char** argv) {
  CWinApp app(L"Ported");
  CQelResource::SetResInstance(GetModuleHandleW(nullptr));
  if (argc != 2) return 2;

  const MFileName name(FromNative(argv[1]).c_str(), false);
  std::int32_t count = 0;
  CStringW text;
  if (!CountTriangles(name, count)) {
    MLoadString(text, 102);
    Show(text);
    return 1;
  }
  CStringW format;
  MLoadString(format, 101);
  text.Format(format.GetString(), count, name.GET_FILE_EXT_PARTS());
  Show(text);
}
