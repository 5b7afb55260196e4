#include "qelbase/platform/CHtmlHelpWrapper.h"

#include <algorithm>
#include <array>

#include "qelbase/outside/framework/CWinApp.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/platform/help_viewer_internal.h"

namespace {

using qel::platform::CallHelpViewer;
using qel::platform::kDisplayTextPopup;
using qel::platform::kDisplayTopic;
using qel::platform::kHelpContext;
using qel::platform::TextPopup;

// --- context numbers -----------------------------------------------------------------------------

constexpr std::int32_t kContextHtml = 0;
constexpr std::int32_t kContextText = 1;
constexpr std::int32_t kNormalDialog = 2;
constexpr std::int32_t kNormalControl = 3;
constexpr std::int32_t kNormalMenuItem = 4;

constexpr std::array kModeLabels = {L"Context HTML", L"Context Text", L"Normal dialog",
                                    L"Normal control", L"Normal menuitem"};

// The numbers below `end`, what lies before the first of them by the subtract flag, and their mode.
struct Range {
  std::uint64_t end;
  std::uint64_t offset;
  std::int32_t mode;
};
constexpr std::array kRanges = {
    Range{0x20000, 0x10000, kNormalMenuItem},
    Range{0x30000, 0x20000, kNormalDialog},
    Range{0x50000, 0, kContextHtml},
    Range{UINT64_MAX, 0, kNormalControl},
};

const Range& rangeOf(std::uint64_t number) {
  return *std::find_if(kRanges.begin(), kRanges.end() - 1,
                       [number](const Range& range) { return number < range.end; });
}

constexpr int kNoHelp = 0xFFFF;  // a control without any

// --- the application -------------------------------------------------------------------------

constexpr const wchar_t* kSection = L"Tip";
constexpr const wchar_t* kStartUp = L"StartUp";
constexpr const wchar_t* kCurrent = L"current";
constexpr const wchar_t* kShowId = L"showid";
constexpr std::uint32_t kFirstPage = 0x8000;

CStringW helpPath() {
  const CWinApp* app = AfxGetApp();
  return app ? app->m_pszHelpFilePath : L"";
}

std::uint64_t show(const wchar_t* path, UINT command, std::uint64_t data) {
  return AfxGetApp() ? CallHelpViewer(path, command, data) : 0;
}

UINT setting(const wchar_t* entry, int otherwise) {
  CWinApp* app = AfxGetApp();
  return app ? app->GetProfileInt(kSection, entry, otherwise) : static_cast<UINT>(otherwise);
}

void setSetting(const wchar_t* entry, std::uint32_t value) {
  if (CWinApp* app = AfxGetApp()) {
    app->WriteProfileInt(kSection, entry, static_cast<int>(value));
  }
}

// A book beside the help file.
CStringW siblingBook(const wchar_t* name) {
  constexpr std::size_t longest = 256;
  MFileName book;
  book.SET(helpPath(), false);
  book.SET_FILE_EXT_PARTS(name, longest, longest);
  return book.GET();
}

// Puts another text in the place of one of the application's, unless it is empty, until the end of
// the scope.
class StandIn {
 public:
  StandIn(const wchar_t*& member, const CStringW& text) : m_member(member), m_old(member) {
    if (!text.IsEmpty()) member = text;
  }
  ~StandIn() { m_member = m_old; }
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;

 private:
  const wchar_t*& m_member;
  const wchar_t* m_old;
};

}  // namespace

CHtmlHelpWrapper::CHtmlHelpWrapper(bool subtract_hids) : m_subtract_hids(subtract_hids) {}
CHtmlHelpWrapper::~CHtmlHelpWrapper() = default;

CHtmlHelpWrapper* CHtmlHelpWrapper::Instance() {
  return &mg_htmlhelpwrapper;
}

void CHtmlHelpWrapper::SetSubtractHids(bool subtract) {
  m_subtract_hids = subtract;
}

bool CHtmlHelpWrapper::GetSubtractHids() const {
  return m_subtract_hids;
}

void CHtmlHelpWrapper::SetHelperRegistryPaths(const wchar_t* registry_key,
                                              const wchar_t* profile_name,
                                              const wchar_t* help_path) {
  if (registry_key) m_registry_key = registry_key;
  if (profile_name) m_profile_name = profile_name;
  if (help_path) m_help_path = help_path;
}

void CHtmlHelpWrapper::AddToTextOnly(const std::int32_t& control) {
  m_text_only.push_back(control);
}

bool CHtmlHelpWrapper::IsTextOnlyHelp(const std::int32_t& control) const {
  return std::find(m_text_only.begin(), m_text_only.end(), control) != m_text_only.end();
}

int CHtmlHelpWrapper::ShowHelp(std::uint64_t data, std::uint32_t command) {
  const CStringW path = helpPath();
  if (command != kHelpContext) {
    show(path, kDisplayTopic, data);
    return 1;
  }
  const Range& range = rangeOf(data);
  if (range.mode == kContextHtml) return 0;
  const std::uint64_t id = m_subtract_hids ? data - range.offset : data;
  show(path, kHelpContext, id);
  _ShowID(range.mode, static_cast<std::int64_t>(id));
  return 1;
}

int CHtmlHelpWrapper::ShowHelp(const tagHELPINFO* info) {
  const CStringW path = helpPath();
  const auto id = static_cast<std::int64_t>(info->dwContextId);
  if (!IsTextOnlyHelp(info->iCtrlId)) {
    show(path, kHelpContext, info->dwContextId);
    _ShowID(rangeOf(info->dwContextId).mode, id);
    return 1;
  }
  if (info->iCtrlId == kNoHelp) return 1;
  const TextPopup popup{.size = sizeof(TextPopup),
                        .instance = nullptr,
                        .string = static_cast<UINT>(info->dwContextId),
                        .text = nullptr,
                        .point = info->MousePos,
                        .foreground = 0xFFFFFFFF,
                        .background = 0xD0FFFF,
                        .margins = {-1, 0, -1, -1},
                        .font = nullptr};
  show(path + L"::\\Help.txt", kDisplayTextPopup, reinterpret_cast<std::uint64_t>(&popup));
  _ShowID(kContextText, id);
  return 1;
}

int CHtmlHelpWrapper::ShowTopic(const wchar_t* topic, const wchar_t* window) {
  CStringW path = helpPath();
  if (topic) path += CStringW(L"::/") + topic;
  if (window) path += CStringW(L">") + window;
  show(path, kDisplayTopic, 0);
  return 1;
}

void CHtmlHelpWrapper::ShowTutorial() {
  show(siblingBook(L"tutorial.chm"), kDisplayTopic, 0);
}

void CHtmlHelpWrapper::ShowGettingStarted() {
  const CStringW book = siblingBook(L"GettingStarted.chm");
  std::uint32_t page = setting(kCurrent, kFirstPage);
  if (show(book, kHelpContext, page) != 0) {
    ++page;
  } else {
    page = show(book, kHelpContext, kFirstPage) != 0 ? kFirstPage + 1 : kFirstPage;
  }
  setSetting(kCurrent, page);
}

bool CHtmlHelpWrapper::ShowGettingStartedAtStartup() const {
  return setting(kStartUp, 1) == 1;
}

void CHtmlHelpWrapper::SetShowGettingStartedAtStartup(const bool& on) {
  setSetting(kStartUp, on ? 1 : 0);
}

void CHtmlHelpWrapper::_ShowID(const std::int32_t& mode, const std::int64_t& id) {
  CWinApp* app = AfxGetApp();
  if (!app) return;
  UINT shows_ids = 0;
  {
    const StandIn key(app->m_pszRegistryKey, m_registry_key);
    const StandIn profile(app->m_pszProfileName, m_profile_name);
    const StandIn help(app->m_pszHelpFilePath, m_help_path);
    shows_ids = setting(kShowId, 0);
  }
  if (shows_ids == 0) return;
  CStringW text;
  text.Format(L"%s: 0x%X", kModeLabels.at(static_cast<std::size_t>(mode)),
              static_cast<unsigned>(id));
  AfxMessageBox(text);
}
