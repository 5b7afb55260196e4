#include "qelbase/tagged/tags_internal.h"

using QelSDK::Common::Logging::GetLogger;
using QelSDK::Common::Logging::ILogger;

namespace qel::tagged {

ILogger& GetLibraryLogger() {
  static ILogger& logger = GetLogger(L"lib.qelbase");
  return logger;
}

void LogUnfitSkip(const wchar_t* place, const MTag& tag, std::int64_t skip) {
  LogFailure(place, L"A body of ", skip, L" bytes at position ", tag.m_data_position,
             L" can't be told in the header");
}

}  // namespace qel::tagged
