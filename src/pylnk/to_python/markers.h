// Marker structures: 1 by 1 structs whose field of a reserved name
// ("VX_PylnkSP_...") says what the host's side sent, for what host arrays
// have no form of their own. All of them read element 0.
#pragma once

#include <string>
#include <vector>

#include "to_python/convert_to_python.h"

namespace pylnk {

using MarkerConversion = ConversionResult (*)(foundation::veltradata::StructArray);

// The conversion of the first marker, in the fixed order of the search, that
// is among the field names; null for a plain struct.
MarkerConversion markerConversionOf(const std::vector<std::string>& fieldNames);

}  // namespace pylnk
