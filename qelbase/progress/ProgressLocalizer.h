#pragma once
// The display texts of the steps that sibling libraries report.

#include <string>

#include "qelbase/export.h"

namespace QelBase {

// From the keys of steps to what users read.
class QELBASE_API ProgressLocalizer {
 public:
  // The text of a step's key, such as "QelSDK.Triangles.Data.MStlFileIO._SaveStl". Some keys are
  // known and show nothing: their text is empty, as is that of an empty key. A key that isn't known
  // is a text itself, in UTF-8. Case counts. Any thread may call.
  [[nodiscard]] static std::wstring Localize(const std::string& key);
};

}  // namespace QelBase
