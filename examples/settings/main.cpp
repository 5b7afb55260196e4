// Keeps the width of a window in each of the places for settings, and tells what it was.

#include <qelbase/qelbase.h>

#include <cstdio>

namespace {

// Of the product: HKEY_CURRENT_USER\software\Maker\Carver\3.1\Window.
int productWidth() {
  MSoftKey::Init(L"Carver", L"3.1", L"Maker");  // once, before threads use keys
  MSoftKeyCU window(L"Window");
  const int width = window.GetRegIntD(L"Width", 1024);
  if (window.SetRegInt(L"Width", 1280) == 0) {
    std::fprintf(stderr, "not kept: code %d\n", window.GetLastError());
  }
  return width;
}

// Of the application object: [Window] Width in ~/.config/PROGRAM.ini.
unsigned applicationWidth(CWinApp& app) {
  const unsigned width = app.GetProfileInt(L"Window", L"Width", 1024);
  app.WriteProfileInt(L"Window", L"Width", 1280);
  return width;
}

// Of a file that people edit and send around: job_u.ini below the current folder.
std::uint32_t jobWidth() {
  MIniFile job;
  if (job.ReadFromFile(L"job.ini", 0) != 0) return 0;  // damaged; a missing file is an empty one
  const std::uint32_t width = job.GetValueDWORD(L"Window", L"Width", 1024);
  job.SetValue(L"Window", L"Width", 1280U, false);
  if (job.WriteToFile(L"job.ini", L"made by the example") != 0) return 0;
  return width;
}

}  // namespace

int main() {
  CWinApp app(L"Carver");
  std::printf("product %d, application %u, job %u\n", productWidth(), applicationWidth(app),
              jobWidth());
}
