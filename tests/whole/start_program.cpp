// Stands before the library in the loader's order, and so sees what its static objects call while
// they are made and destroyed. A line for each call, with the initial of what exists by then:
// Delegates' provider, Unit, Company, Product, Help; T if a check has a table.
#include <dlfcn.h>
#include <qelbase/qelbase.h>
#include <unistd.h>

#include <csignal>
#include <string_view>
#include <type_traits>

using QelSDK::Common::IProgressDelegate;
using QelSDK::Common::IProgressInfo;
using QelSDK::Common::MInternalUnits;
namespace Provider = QelSDK::Common::ProgressDelegateProvider;

namespace {

bool g_has_provider;
const char* g_last_call;

// All lies in zeros until it is made.
bool isMade(const void* object) {
  return *static_cast<void* const*>(object) != nullptr;
}

void say(const char* call) {
  if (call == g_last_call) return;
  g_last_call = call;
  const struct {
    bool exists;
    char initial;
  } parts[] = {{g_has_provider, 'D'},
               {MUserUnit::GetInstance().ConvertFromMmToUI(1.0) == 1.0, 'U'},
               {isMade(&MSoftKey::m_CompanyName), 'C'},
               {isMade(&MSoftKey::m_ProductName), 'P'},
               {isMade(CHtmlHelpWrapper::Instance()), 'H'},
               {COXCRC16::m_tableList.m_head || COXCRC32::m_tableList.m_head, 'T'}};
  char line[64] = {};
  std::size_t size = std::string_view(call).copy(line, 32);
  line[size++] = ' ';
  for (const auto& part : parts) {
    if (part.exists) line[size++] = part.initial;
  }
  line[size++] = '\n';
  if (write(1, line, size) < 0) _exit(1);
}

template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace QelSDK::Common {

void ProgressDelegateProvider::SetSharedProvider(Provider provider) {
  say("provider");
  g_has_provider = static_cast<bool>(provider);
  next<void(Provider)>(
      "_ZN6QelSDK6Common24ProgressDelegateProvider17SetSharedProviderESt8functionIFSt10shared_"
      "ptrINS"
      "0_17IProgressDelegateEERKNS0_13IProgressInfoEEE")(std::move(provider));
}

MInternalUnits& MInternalUnits::GetInstance() {
  say("units");
  return next<MInternalUnits&()>("_ZN6QelSDK6Common14MInternalUnits11GetInstanceEv")();
}

}  // namespace QelSDK::Common

extern "C" int sigaction(int signal, const struct sigaction* action, struct sigaction* before) {
  say("faults");
  return next<int(int, const struct sigaction*, struct sigaction*)>("sigaction")(signal, action,
                                                                                 before);
}

extern "C" ssize_t readlink(const char* path, char* text, std::size_t size) {
  say("product");
  return next<ssize_t(const char*, char*, std::size_t)>("readlink")(path, text, size);
}

int main() {
  say("main");
  const bool is_told = MSoftKey::m_CompanyName == L"!TestCompany" &&
                       MSoftKey::m_ProductName == L"start_program" &&
                       MSoftKey::m_ProductVersion == L"" &&
                       MUserUnit::GetInstance().GetUnit() == MUserUnit::UNIT_MILLIMETRE &&
                       MInternalUnits::GetInstance().GetConversionFactor() == 1.0 &&
                       !CHtmlHelpWrapper::Instance()->GetSubtractHids();
  if (is_told) say("told");
  return 0;
}
