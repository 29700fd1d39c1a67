// A host table into a pandas DataFrame.
#pragma once

#include "to_python/convert_to_python.h"

namespace pylnk {

// The marker VX_PylnkSP_VELTRATableAsStruct, whose value holds "tableStruct"
// (one field per column), "variableNames" (the column labels, converted by
// the driver), "rowNamesFound" and "dimensionRow" (the label of the column
// that becomes the index).
ConversionResult convertTable(foundation::veltradata::StructArray marker);
// A column, converted and made ready for a Series: numeric and logical data,
// dates and durations as one flat NumPy array in the host's element order.
ConversionResult convertTableColumn(foundation::veltradata::Array column);

}  // namespace pylnk
