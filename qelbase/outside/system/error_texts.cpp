// What the codes mean, in words.
#include <algorithm>
#include <array>
#include <string_view>

#include "qelbase/outside/system/errors.h"

namespace qel::sys {

namespace {

struct Text {
  DWORD code;
  const wchar_t* text;
};

// By code.
constexpr std::array texts = std::to_array<Text>({
    {0, L"Everything went well."},
    {1, L"The function is not valid here."},
    {2, L"There is no file or key of this name."},
    {3, L"A folder on the way to the file is missing."},
    {4, L"Too many files are open."},
    {5, L"Access is denied."},
    {6, L"The handle is not valid."},
    {8, L"There is not enough memory."},
    {13, L"The data is not valid."},
    {17, L"The file cannot move to another file system."},
    {18, L"There are no more files."},
    {19, L"The storage can only be read."},
    {31, L"A device or service does not work."},
    {32, L"The file is in use elsewhere."},
    {33, L"A part of the file is locked elsewhere."},
    {50, L"The request is not supported."},
    {53, L"The network path cannot be found."},
    {80, L"The file is there already."},
    {87, L"An argument is not valid."},
    {109, L"The other end of the pipe is closed."},
    {111, L"The name is too long."},
    {112, L"The storage is full."},
    {122, L"The buffer handed in is too small."},
    {123, L"The name of the file or folder is not valid."},
    {124, L"The level of information is not valid."},
    {126, L"The module cannot be found."},
    {127, L"The module has no function of this name."},
    {145, L"The folder is not empty."},
    {157, L"The memory behind the handle has been given up."},
    {158, L"The memory is not locked."},
    {161, L"The path is not valid."},
    {183, L"Something of this name is there already."},
    {193, L"The file is no program or library for this system."},
    {203, L"The environment variable does not exist."},
    {206, L"The name of the file or its extension is too long."},
    {223, L"The file would become too large."},
    {234, L"There is more data than the buffer holds."},
    {258, L"The time of waiting has passed."},
    {259, L"There is nothing more to list."},
    {267, L"The name is not that of a folder."},
    {317, L"There is no text for this code."},
    {995, L"The operation was ended before it was done."},
    {1009, L"The registry is damaged."},
    {1017, L"The file is no registry file."},
    {1018, L"The registry key has been deleted."},
    {1021, L"A lasting key cannot lie below a passing one."},
    {1051, L"Other services that run depend on this one."},
    {1052, L"The service does not take this control."},
    {1053, L"The service did not answer in time."},
    {1055, L"The database of services is locked."},
    {1056, L"The service runs already."},
    {1057, L"The account of the service is not valid or its password is wrong."},
    {1058, L"The service is switched off."},
    {1059, L"The services depend on each other in a circle."},
    {1060, L"There is no service of this name."},
    {1061, L"The service cannot take a control now."},
    {1062, L"The service does not run."},
    {1063, L"The process is not connected to the service manager."},
    {1065, L"The database does not exist."},
    {1067, L"The process ended unexpectedly."},
    {1068, L"A service on which this one depends did not start."},
    {1072, L"The service is about to be deleted."},
    {1073, L"A service of this name exists already."},
    {1075, L"A service on which this one depends does not exist."},
    {1077, L"The service has not been started since the last start of the system."},
    {1078, L"The name is in use as the name or the display name of a service."},
    {1083, L"The program does not contain this service."},
    {1113, L"A character has no form in the target's code page."},
    {1117, L"Reading from or writing to the device failed."},
    {1150, L"The program needs another version of the system."},
    {1223, L"The user has cancelled the operation."},
    {1338, L"The security descriptor is not valid."},
    {1400, L"The window handle is not valid."},
    {1418, L"The clipboard is not open in this thread."},
    {1460, L"The operation did not end in time."},
    {1722, L"The server cannot be reached."},
    {1812, L"The module has no resources."},
    {1813, L"The module has no resource of this type."},
    {1814, L"The module has no resource of this name."},
    {1815, L"The module has no resource in this language."},
    {1816, L"There is no room for more in the queue."},
    {1921, L"The file name leads through too many links."},
    {0x80004005, L"The operation failed for a reason that is not told."},
    {0x8000FFFF, L"The operation failed in a way that was not expected."},
});

static_assert(std::ranges::is_sorted(texts, {}, &Text::code));

// A code of the system dressed as a failure of the component model.
constexpr DWORD undressed(DWORD code) {
  return (code & 0xFFFF0000) == 0x80070000 ? code & 0xFFFF : code;
}

DWORD fail(DWORD code) {
  SetLastError(code);
  return 0;
}

}  // namespace

DWORD FormatMessageW(DWORD flags, const void* /*source*/, DWORD code, DWORD /*language*/,
                     wchar_t* buffer, DWORD size, const void* /*inserts*/) {
  constexpr DWORD known = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
  const bool is_understood = (flags & FORMAT_MESSAGE_FROM_SYSTEM) != 0 && (flags & ~known) == 0;
  if (!is_understood || !buffer) return fail(ERROR_INVALID_PARAMETER);
  const auto* const found = std::ranges::lower_bound(texts, undressed(code), {}, &Text::code);
  if (found == texts.end() || found->code != undressed(code)) return fail(ERROR_MR_MID_NOT_FOUND);
  constexpr std::wstring_view line_end = L"\r\n";
  const std::wstring_view text = found->text;
  const std::size_t length = text.size() + line_end.size();
  if (length >= size) return fail(ERROR_INSUFFICIENT_BUFFER);
  wchar_t* const end = std::ranges::copy(line_end, std::ranges::copy(text, buffer).out).out;
  *end = L'\0';
  return static_cast<DWORD>(length);
}

}  // namespace qel::sys
