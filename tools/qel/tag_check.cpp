#include "tag_check.h"

#include <string_view>

#include "qelbase/outside/system/names.h"
#include "qelbase/paths/MFileName.h"

#include "disk.h"
#include "session.h"

namespace qel::tool {
namespace {

void Count(CheckResult& result, const Finding& finding, const TagWalker::Report& report) {
  if (result.findings++ == 0) result.first = finding;
  if (report) report(finding);
}

bool BeginsAsTaggedFile(const std::string& native) {
  MFile file(64);
  MTag head;
  return file.OPEN_READ(LibraryName(native).c_str()) && head.READ(file) && IsHeadTag(head);
}

}  // namespace

CheckResult CheckTags(MFile& file, const TagWalker::Report& report) {
  CheckResult result;
  TagWalker walker(file, [&](const Finding& finding) { Count(result, finding, report); });
  TagNode node;
  if (!walker.ReadHead()) return result;
  while (walker.Next(node)) ++result.records;
  return result;
}

std::string BackupName(const std::string& native) {
  MFileName name(LibraryName(native).c_str(), false);
  std::string backup;
  if (std::wstring_view(name.GET_EXT_PART()) == L".bak") return backup;
  name.SET_EXT_PART(L".bak", 256);
  if (!sys::ToNative(name.GET(), backup)) return {};
  const std::string base = backup.substr(backup.rfind('/') + 1);
  return native.substr(0, native.rfind('/') + 1) + base;  // as relative as it was given
}

std::string LeftBackup(const std::string& native) {
  const std::string backup = BackupName(native);
  const bool left = !backup.empty() && IsRegularFile(backup) && BeginsAsTaggedFile(backup);
  return left ? backup : std::string();
}

CheckResult CheckFile(const std::string& native, const TagWalker::Report& report) {
  CheckResult result = CheckTags(*OpenForReading(native), report);
  const std::string backup = LeftBackup(native);
  if (!backup.empty()) Count(result, {Rule::kBackup, 0, backup, 0, 0}, report);
  return result;
}

}  // namespace qel::tool
