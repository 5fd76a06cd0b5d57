// Message catalogues of the host's locale.
#pragma once

#include <vorn/StringVar.h>

namespace Vorn::Language_Support {

// The text of one message of catalogue `file` in the locale of the moment. False when no sound
// catalogue is found or it does not hold the message.
bool CatalogueText(const char* file, unsigned int set, unsigned int number,
                   Strings::CStringVar& text);

} // namespace Vorn::Language_Support
