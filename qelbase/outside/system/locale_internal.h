#pragma once
// The "C" locale as an object, so that no front-end's setlocale reaches the library's numbers.
#include <locale.h>

namespace qel::sys {

locale_t CLocale();  // lives until the process ends

}  // namespace qel::sys
