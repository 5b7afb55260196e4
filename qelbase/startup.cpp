// The static objects of the library, in the one order in which they are built; they are destroyed
// in reverse. Within one file the order is that of the lines, so that all of them stand here and
// nowhere else. An object may use those above it.

#include "qelbase/checks/COXCRC.h"
#include "qelbase/platform/CHtmlHelpWrapper.h"
#include "qelbase/platform/CTimeCountOutput.h"
#include "qelbase/platform/hard_exceptions_internal.h"
#include "qelbase/progress/IStatusCallback.h"
#include "qelbase/progress/ProgressToStatusCallback.h"
#include "qelbase/settings/MSoftKey.h"
#include "qelbase/units/MUserUnit.h"

// Built by the compiler: no code runs for it.
constinit std::atomic<IStatusCallback*> IStatusCallback::mp_instance = nullptr;

// Registers the provider of delegates.
ProgressToStatusCallback::ProgressDelegateFactory
    ProgressToStatusCallback::ProgressDelegateFactory::mg_instance;

// Translates the faults of the loading thread.
MMExceptionTranslator MMExceptionTranslator::mg_instance;

// Sets the conversion factor of the internal units.
MUserUnit MUserUnit::mg_user_unit(MUserUnit::UNIT_MILLIMETRE);

// The path of all product keys, until MSoftKey::Init.
CStringW MSoftKey::m_CompanyName = L"!TestCompany";
CStringW MSoftKey::m_ProductName = MSoftKey::GetDefaultProductName();
CStringW MSoftKey::m_ProductVersion;

// Empty from the first moment on, so that any static object may make a check.
constinit COXCRC16::CTableList COXCRC16::m_tableList;
constinit COXCRC32::CTableList COXCRC32::m_tableList;

// No file.
CStringW CTimeCountOutput::m_output_file_name;

// Loads nothing before help is first shown.
CHtmlHelpWrapper CHtmlHelpWrapper::mg_htmlhelpwrapper(false);
